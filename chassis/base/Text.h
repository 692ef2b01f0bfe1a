// Small pieces of text for people.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace chassis {

// "0x" and at least `digits` (1..8) upper case hexadecimal digits.
inline std::string hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(value));
  return text;
}

// "1.2 s"
inline std::string secondsText(std::uint64_t ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(ms) / 1000);
  return text;
}

// "a, b, c"
inline std::string joined(const std::vector<std::string> &parts,
                          const std::string &separator = ", ") {
  std::string text;
  for (const std::string &part : parts) {
    text += (text.empty() ? "" : separator) + part;
  }
  return text;
}

// The same of numbers: "101, 102"
inline std::string listOf(const std::vector<std::uint16_t> &numbers) {
  std::vector<std::string> parts;
  parts.reserve(numbers.size());
  for (const std::uint16_t number : numbers) {
    parts.push_back(std::to_string(number));
  }
  return joined(parts);
}

// Of ids and PIDs: "0x0500, 0x0B00"
inline std::string hexListOf(const std::vector<std::uint16_t> &ids,
                             const std::string &separator = ", ") {
  std::vector<std::string> parts;
  parts.reserve(ids.size());
  for (const std::uint16_t id : ids) {
    parts.push_back(hex(id, 4));
  }
  return joined(parts, separator);
}

}  // namespace chassis
