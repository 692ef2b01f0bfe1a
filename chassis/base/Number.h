// Numbers as people write them. Nothing is bent: what is no number is none.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

namespace chassis {

// A whole number, decimal or with 0x; one that is too large for the type is the largest there is.
inline std::optional<std::uint64_t> readWhole(const std::string &text) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = text.substr(hex ? 2 : 0);
  const char *allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) {
    return std::nullopt;
  }
  return std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
}

// Digits, with a point among them or not.
inline std::optional<double> readDecimal(const std::string &text) {
  const bool decimal = text.find_first_not_of("0123456789.") == std::string::npos &&
                       text.find_first_of("0123456789") != std::string::npos &&
                       std::count(text.begin(), text.end(), '.') <= 1;
  return decimal ? std::optional<double>(std::strtod(text.c_str(), nullptr)) : std::nullopt;
}

}  // namespace chassis
