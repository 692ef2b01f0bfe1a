#include "Transcript.h"

#include <algorithm>
#include <utility>

namespace {

std::string quoted(const char *function, const std::string &text) {
  return std::string(function) + " \"" + text + "\"";
}

std::string assertion(const std::string &unit, const std::string &line,
                      const std::string &condition) {
  return printed("file[" + unit + "] line[" + line + "] ci_assert:" + condition + " failed!!\n");
}

// "line[<decimal above 0>]" as "line[N]"; anything else stays.
std::string withoutLineNumber(const std::string &line) {
  const std::string opening = "line[";
  const size_t found = line.find(opening);
  if (found == std::string::npos) {
    return line;
  }
  const size_t begin = found + opening.size();
  const size_t end = line.find_first_not_of("0123456789", begin);
  const bool isNumber = end != begin && end != std::string::npos && line[begin] != '0';
  if (!isNumber || line[end] != ']') {
    return line;
  }
  return line.substr(0, begin) + "N" + line.substr(end);
}

bool isOneOf(const std::string &line, std::initializer_list<const char *> names) {
  const std::string name = line.substr(0, line.find_first_of("( "));
  return std::find(names.begin(), names.end(), name) != names.end();
}

Calls selected(const Calls &calls, std::initializer_list<const char *> names, bool wanted) {
  Calls result;
  for (const std::string &line : calls) {
    if (isOneOf(line, names) == wanted) {
      result.push_back(line);
    }
  }
  return result;
}

}  // namespace

std::string printed(const std::string &text) {
  return quoted("printf", text);
}
std::string bbPrinted(const std::string &text) {
  return quoted("bbPrintf", text);
}

std::string asserted(const std::string &unit, int line, const std::string &condition) {
  return assertion(unit, std::to_string(line), condition);
}

std::string asserted(const std::string &unit, const std::string &condition) {
  return assertion(unit, "N", condition);
}

Calls anyLine(Calls calls) {
  for (std::string &line : calls) {
    line = withoutLineNumber(line);
  }
  return calls;
}

Calls only(const Calls &calls, std::initializer_list<const char *> names) {
  return selected(calls, names, true);
}

Calls except(const Calls &calls, std::initializer_list<const char *> names) {
  return selected(calls, names, false);
}

Calls joined(std::initializer_list<Calls> parts) {
  Calls result;
  for (const Calls &part : parts) {
    result.insert(result.end(), part.begin(), part.end());
  }
  return result;
}

Calls Transcript::take() {
  return std::exchange(lines_, {});
}
