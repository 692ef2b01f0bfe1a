// The module's exported variables as a person reads and sets them, in one table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/Functions.h"

namespace chassis {

using Indexes = std::vector<std::uint32_t>;

struct Variable {
  const char *name;
  const char *help;
  std::vector<const Param *> indexes;                    // a reader may leave out the last ones
  Param value;                                           // what it holds
  std::uint32_t *(*words)(const Indexes &);              // null, unless it is made of words
  std::uint8_t *(*byte)(const Indexes &);                // null, unless it is one byte
  std::vector<std::string> (*summary)(const Indexes &);  // null for a number; a record in words
};

const std::vector<Variable> &variables();
const Variable *findVariable(const std::string &name);  // null: none

// "caPmtQuery[slot][cam]"
std::string variableText(const Variable &variable);

// Lines for a person. Throws InputError: an index that does not fit, too many of them.
std::vector<std::string> readVariable(const Variable &variable, const std::vector<Word> &indexes);

// Also throws InputError: a record, an index is missing, a value that does not fit. Returns what
// readVariable does afterwards.
std::vector<std::string> setVariable(const Variable &variable, const std::vector<Word> &indexes,
                                     const Word &value);

}  // namespace chassis
