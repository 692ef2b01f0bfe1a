// How the platform's functions write their lines.
#ifndef TESTS_PLATFORM_RECORD_H
#define TESTS_PLATFORM_RECORD_H

#include <cstdint>
#include <sstream>
#include <string>

// An argument that is written in hexadecimal.
struct Hex {
  uint32_t value;
};

inline std::ostream &operator<<(std::ostream &out, Hex hex) {
  return out << "0x" << std::hex << hex.value << std::dec;
}

void recordLine(std::string line);

// Adds "name(argument, argument)" to the transcript.
template <typename... A>
void record(const char *name, A... arguments) {
  std::ostringstream line;
  [[maybe_unused]] const char *separator = "";
  line << name << '(';
  ((line << separator << arguments, separator = ", "), ...);
  line << ')';
  recordLine(line.str());
}

#endif
