// Takes one line of a script apart into a name and its arguments.
#pragma once

#include <string>
#include <vector>

namespace chassis {

struct Word {
  std::string text;     // without quotes, escapes resolved
  bool quoted = false;  // was a "string"
};

// A line without a call has an empty name.
struct Line {
  std::string name;
  std::vector<Word> args;
};

// `name arg, arg`, `name(arg, arg)`, `# comment` or nothing. Throws InputError on anything else.
Line parseLine(const std::string &text);

}  // namespace chassis
