// Completion of names in a line, and of files in its strings.
#pragma once

#include <string>
#include <vector>

namespace chassis {

struct Completion {
  std::string insert;                // what can be added to the name before the cursor
  std::vector<std::string> choices;  // the names that fit when more than one does
};

// before: the line up to the cursor; names: sorted. A name that is complete gets a blank behind it.
// Within a string, files are completed as the system has them, with what a string escapes; a file
// that is complete gets the closing quote, a folder a slash. Hidden files are those that begin with
// a dot: the dot must have been typed. Nothing fits behind a comment, or where no name has begun.
Completion complete(const std::string &before, const std::vector<std::string> &names);

// The words in columns of a terminal of that width, in whole lines with their ends.
std::string inColumns(const std::vector<std::string> &words, std::size_t width);

}  // namespace chassis
