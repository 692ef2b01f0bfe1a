#include "console/Statement.h"

#include <algorithm>

#include "base/InputError.h"

namespace chassis {
namespace {

constexpr const char *blankCharacters = " \t";

std::size_t afterBlanks(const std::string &text, std::size_t at) {
  return std::min(text.find_first_not_of(blankCharacters, at), text.size());
}

std::string trimmed(const std::string &text) {
  const std::size_t begin = text.find_first_not_of(blankCharacters);
  return begin == std::string::npos
             ? ""
             : text.substr(begin, text.find_last_not_of(blankCharacters) - begin + 1);
}

// Reads "[index]" at `at`, which it moves behind it and the blanks that follow.
Word readIndex(const std::string &text, std::size_t &at) {
  const std::size_t end = text.find(']', at);
  if (end == std::string::npos) {
    throw InputError("an index is not closed; end it with ]");
  }
  Word index{trimmed(text.substr(at + 1, end - at - 1)), false};
  if (index.text.empty()) {
    throw InputError("an index is missing; write a number between [ and ]");
  }
  at = afterBlanks(text, end + 1);
  return index;
}

Word readValue(const std::string &text, std::size_t at) {
  const std::string value = trimmed(text.substr(at, text.find('#', at) - at));
  if (value.empty()) {
    throw InputError("the value is missing; write name = value");
  }
  return Word{value, false};
}

}  // namespace

Statement parseStatement(const std::string &text) {
  const std::size_t begin = afterBlanks(text, 0);
  const std::string name = leadingName(text);
  std::size_t at = afterBlanks(text, begin + name.size());
  Statement statement;
  statement.isVariable = !name.empty() && at < text.size() && (text[at] == '[' || text[at] == '=');
  if (!statement.isVariable) {
    statement.line = parseLine(text);
    return statement;
  }
  statement.line.name = name;
  while (at < text.size() && text[at] == '[') {
    statement.indexes.push_back(readIndex(text, at));
  }
  if (at < text.size() && text[at] == '=') {
    statement.value = readValue(text, at + 1);
  } else if (at < text.size() && text[at] != '#') {
    throw InputError("unexpected \"" + text.substr(at) + "\" behind " + statement.line.name +
                     "; write name, or name = value");
  }
  return statement;
}

std::string statementText(const Statement &statement) {
  if (!statement.isVariable) {
    return lineText(statement.line);
  }
  std::string text = statement.line.name;
  for (const Word &index : statement.indexes) {
    text += "[" + index.text + "]";
  }
  return statement.value ? text + " = " + statement.value->text : text;
}

}  // namespace chassis
