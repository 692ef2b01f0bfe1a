// Takes one typed line apart: a call, or a variable that is read or set.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command/Line.h"

namespace chassis {

struct Statement {
  Line line;                // an empty name: nothing to do
  bool isVariable = false;  // it has indexes or a value, and so no arguments
  std::vector<Word> indexes;
  std::optional<Word> value;
};

// What parseLine takes, `name = value` and `name[index][index]` with or without a value. A name
// alone may be either. Throws InputError.
Statement parseStatement(const std::string &text);

// The statement as a person would write it.
std::string statementText(const Statement &statement);

}  // namespace chassis
