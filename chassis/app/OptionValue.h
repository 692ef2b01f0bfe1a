// What CLI11 reads on a command line, or refuses: numbers, whole and in their range; names.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "base/Number.h"

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

// A check for an option that names a file: a variable that is not set in a shell is no name.
inline CLI::Validator notEmpty() {
  const auto check = [](const std::string &text) {
    return text.empty() ? "the name is empty; write the name of a file" : std::string();
  };
  return CLI::Validator(check, "");
}

}  // namespace chassis
