// How programs are named to people, everywhere: 101 "Name", by number alone where the stream tells
// no name. A name is the stream's word, so the quotation marks end where it does.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/Text.h"

namespace chassis {

// The names of one stream's programs; empty: it tells none.
using ProgramNames = std::function<std::string(std::uint16_t)>;

inline std::string nameOf(const ProgramNames &names, std::uint16_t program) {
  return names ? names(program) : "";
}

// 101 "Name"
inline std::string namedNumber(std::uint16_t number, std::string name) {
  std::replace(name.begin(), name.end(), '"', '\'');
  return std::to_string(number) + (name.empty() ? "" : " \"" + name + "\"");
}

// program 101 "Name"
inline std::string programText(std::uint16_t number, const std::string &name) {
  return "program " + namedNumber(number, name);
}

// The same of several, each with its name: programs 101 "Name", 102
inline std::string programsText(const std::vector<std::uint16_t> &programs,
                                const std::vector<std::string> &names) {
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < programs.size(); ++i) {
    parts.push_back(namedNumber(programs[i], names[i]));
  }
  return (programs.size() == 1 ? "program " : "programs ") + joined(parts);
}

}  // namespace chassis
