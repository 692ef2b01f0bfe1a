// Takes one line of a script apart into a name and its arguments.
#pragma once

#include <cstddef>
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

// Of a script and of the console, in bytes.
constexpr std::size_t longestLine = 1000;

// The line of a file whose lines end in CR LF as that of one whose lines end in LF.
std::string withoutReturn(std::string line);

// Throw InputError, which quotes nothing of it: it is longer than that; it has control characters,
// which could upset the terminal that shows them.
void checkLength(const std::string &text);
void checkCharacters(const std::string &text);

bool isNameChar(char c);

// As it must stand between the quotes of a string.
std::string escaped(const std::string &text);

// The name that the line begins with, whatever follows; empty when it begins with none.
std::string leadingName(const std::string &text);

// `name arg, arg`, `name(arg, arg)`, `# comment` or nothing. Throws InputError on anything else.
Line parseLine(const std::string &text);

// The call as a person would write it; parseLine takes it again.
std::string lineText(const Line &line);

}  // namespace chassis
