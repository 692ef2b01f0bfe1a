// A script: calls in the order in which they run, checked before the first one does.
#pragma once

#include <istream>
#include <string>
#include <vector>

#include "script/Functions.h"

namespace chassis {

struct Call {
  std::size_t line = 0;  // in the file, from 1
  std::string text;      // as a person would write it
  const Function *function = nullptr;
  Values values;
};

struct Script {
  std::string name;  // of the file, for messages
  std::vector<Call> calls;
};

// Throw InputError with file and line: a file that cannot be read, a line that cannot be parsed, a
// call of a card or CAM that no earlier line has put in.
Script readScript(const std::string &path);
Script readScript(const std::string &name, std::istream &lines);

// "FILE:LINE: what"
std::string atLine(const Script &script, std::size_t line, const std::string &what);

}  // namespace chassis
