// What CLI11 reads on a command line, or refuses: numbers, whole and in their range; names.
#pragma once

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "base/InputError.h"
#include "base/Number.h"
#include "base/Units.h"

namespace chassis {

// A transformation for an option of an unsigned type that holds `most`. CLI11 by itself would let
// -1 be the largest number and 010 be 8.
inline CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most) {
  const auto transform = [least, most](std::string &text) -> std::string {
    const std::optional<std::uint64_t> number = readWhole(text);
    if (!number || *number < least || *number > most) {
      return text + " does not fit; write " + std::to_string(least) + " to " + std::to_string(most);
    }
    text = std::to_string(*number);
    return "";
  };
  return CLI::Validator(transform, "");
}

// A check for an option that names something: a variable that is not set in a shell is no name.
inline CLI::Validator notEmpty(const std::string &what = "name",
                               const std::string &right = "the name of a file") {
  const auto check = [what, right](const std::string &text) {
    return text.empty() ? "the " + what + " is empty; write " + right : std::string();
  };
  return CLI::Validator(check, "");
}

// Of --for, in ms. Throws InputError.
inline std::uint64_t readDuration(const std::string &text) {
  constexpr double longest = 1e6;  // seconds
  const std::optional<double> seconds = readDecimal(text);
  if (!seconds || *seconds > longest) {
    throw InputError("--for " + text + " does not fit; write 0 to 1000000 seconds");
  }
  return static_cast<std::uint64_t>(std::llround(*seconds * msPerSecond));
}

}  // namespace chassis
