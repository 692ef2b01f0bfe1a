#include "command/Line.h"

#include <algorithm>
#include <cctype>

#include "base/InputError.h"

namespace chassis {
namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}
bool isControl(char c) {
  return std::iscntrl(static_cast<unsigned char>(c)) != 0 && !isBlank(c);
}
// U+0080 to U+009F in UTF-8: a terminal takes some of them for the begin of a command.
bool hasControlOfTwoBytes(const std::string &text) {
  for (std::size_t at = text.find('\xC2'); at != std::string::npos;
       at = text.find('\xC2', at + 1)) {
    const auto next = static_cast<unsigned char>(at + 1 < text.size() ? text[at + 1] : '\0');
    if (next >= 0x80 && next <= 0x9F) {
      return true;
    }
  }
  return false;
}
bool isDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

class Scanner {
 public:
  explicit Scanner(const std::string &text) : text_(text) { skipBlanks(); }

  bool atEnd() const { return at_ == text_.size() || text_[at_] == '#'; }
  bool take(char wanted) {
    if (atEnd() || text_[at_] != wanted) {
      return false;
    }
    ++at_;
    skipBlanks();
    return true;
  }
  std::string rest() const { return text_.substr(at_); }
  std::string name();
  Word word();

 private:
  void skipBlanks() {
    while (at_ < text_.size() && isBlank(text_[at_])) {
      ++at_;
    }
  }
  Word quoted();

  const std::string &text_;
  std::size_t at_ = 0;
};

std::string Scanner::name() {
  std::string name = leadingName(text_);
  if (name.empty()) {
    throw InputError("\"" + rest() + "\" is not a call; write name arg, arg");
  }
  at_ += name.size();
  if (at_ < text_.size() && !isBlank(text_[at_]) && text_[at_] != '(' && !atEnd()) {
    throw InputError("unexpected \"" + rest() + "\" behind " + name + "; write " + name +
                     " arg, arg");
  }
  skipBlanks();
  return name;
}

Word Scanner::quoted() {
  Word word{"", true};
  for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
    const bool escape = text_[at_] == '\\' && at_ + 1 < text_.size();
    word.text += text_[escape ? ++at_ : at_];
  }
  if (at_ == text_.size()) {
    throw InputError("a string is not closed; end it with \"");
  }
  ++at_;
  skipBlanks();
  return word;
}

Word Scanner::word() {
  if (at_ < text_.size() && text_[at_] == '"') {
    return quoted();
  }
  Word word;
  while (!atEnd() && !isBlank(text_[at_]) && text_[at_] != ',' && text_[at_] != ')') {
    word.text += text_[at_++];
  }
  skipBlanks();
  return word;
}

void parseArgs(Scanner &scanner, Line &line) {
  do {
    Word word = scanner.word();
    if (word.text.empty() && !word.quoted) {
      throw InputError("argument " + std::to_string(line.args.size() + 1) +
                       " is missing; write one value between commas");
    }
    line.args.push_back(std::move(word));
  } while (scanner.take(','));
}

}  // namespace

void checkLength(const std::string &text) {
  if (text.size() > longestLine) {
    throw InputError("the line is too long; write " + std::to_string(longestLine) +
                     " characters at most");
  }
}

std::string withoutReturn(std::string line) {
  if (!line.empty() && line.back() == '\r') {
    line.pop_back();
  }
  return line;
}

void checkCharacters(const std::string &text) {
  if (std::any_of(text.begin(), text.end(), isControl) || hasControlOfTwoBytes(text)) {
    throw InputError("the line has control characters; write plain text");
  }
}

bool isNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

std::string escaped(const std::string &text) {
  std::string result;
  for (const char c : text) {
    result += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
  }
  return result;
}

std::string leadingName(const std::string &text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), isBlank);
  const auto end = std::find_if_not(begin, text.end(), isNameChar);
  return begin == end || isDigit(*begin) ? "" : std::string(begin, end);
}

Line parseLine(const std::string &text) {
  Scanner scanner(text);
  Line line;
  if (scanner.atEnd()) {
    return line;
  }
  line.name = scanner.name();
  const bool parenthesis = scanner.take('(');
  const bool noArgs = parenthesis ? scanner.take(')') : scanner.atEnd();
  if (noArgs) {
    if (!scanner.atEnd()) {
      throw InputError("unexpected \"" + scanner.rest() +
                       "\" behind the call; write one call a line");
    }
    return line;
  }
  parseArgs(scanner, line);
  if (parenthesis && !scanner.take(')')) {
    if (scanner.atEnd()) {
      throw InputError("a parenthesis is not closed; end the call with )");
    }
    throw InputError("unexpected \"" + scanner.rest() +
                     "\" in the arguments; part them with commas");
  }
  if (!scanner.atEnd()) {
    throw InputError("unexpected \"" + scanner.rest() +
                     "\" behind the arguments; part them with commas");
  }
  return line;
}

std::string lineText(const Line &line) {
  std::string text = line.name;
  for (const Word &word : line.args) {
    text += &word == &line.args.front() ? " " : ", ";
    text += word.quoted ? "\"" + escaped(word.text) + "\"" : word.text;
  }
  return text;
}

}  // namespace chassis
