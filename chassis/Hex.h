// Numbers as people of the trade read them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace chassis {

// "0x" and at least `digits` (1..8) upper case hexadecimal digits.
inline std::string hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(value));
  return text;
}

}  // namespace chassis
