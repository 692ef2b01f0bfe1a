// Completion of names in a line.
#pragma once

#include <string>
#include <vector>

namespace chassis {

struct Completion {
  std::string insert;                // what can be added to the name before the cursor
  std::vector<std::string> choices;  // the names that fit when more than one does
};

// before: the line up to the cursor; names: sorted. A name that is complete gets a blank behind it.
// Nothing fits within a string, behind a comment, or where no name has begun.
Completion complete(const std::string &before, const std::vector<std::string> &names);

// The words in columns of a terminal of that width, in whole lines with their ends.
std::string inColumns(const std::vector<std::string> &words, std::size_t width);

}  // namespace chassis
