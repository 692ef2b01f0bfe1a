#include "console/Completion.h"

#include <algorithm>
#include <cctype>

#include "script/Line.h"

namespace chassis {
namespace {

// The name that ends the text; empty where no name can stand.
std::string nameAtEnd(const std::string &text) {
  const bool inString = std::count(text.begin(), text.end(), '"') % 2 != 0;
  const bool inComment = text.find('#') != std::string::npos;
  std::size_t begin = text.size();
  while (begin > 0 && isNameChar(text[begin - 1])) {
    --begin;
  }
  const bool named =
      begin < text.size() && std::isdigit(static_cast<unsigned char>(text[begin])) == 0;
  return named && !inString && !inComment ? text.substr(begin) : "";
}

std::size_t commonLength(const std::string &a, const std::string &b) {
  const std::size_t shorter = std::min(a.size(), b.size());
  return static_cast<std::size_t>(
      std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(shorter), b.begin()).first -
      a.begin());
}

}  // namespace

Completion complete(const std::string &before, const std::vector<std::string> &names) {
  const std::string begun = nameAtEnd(before);
  Completion completion;
  if (begun.empty()) {
    return completion;
  }
  for (const std::string &name : names) {
    if (name.rfind(begun, 0) == 0) {
      completion.choices.push_back(name);
    }
  }
  if (completion.choices.size() == 1) {
    completion.insert = completion.choices[0].substr(begun.size()) + " ";
    completion.choices.clear();
  } else if (!completion.choices.empty()) {
    // The names are sorted: what the first and the last share, all do.
    const std::string &first = completion.choices.front();
    const std::size_t shared = commonLength(first, completion.choices.back());
    completion.insert = first.substr(begun.size(), shared - begun.size());
  }
  return completion;
}

std::string inColumns(const std::vector<std::string> &words, std::size_t width) {
  std::size_t widest = 0;
  for (const std::string &word : words) {
    widest = std::max(widest, word.size() + 2);
  }
  const std::size_t perLine = std::max<std::size_t>(1, width / std::max<std::size_t>(1, widest));
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool last = (i + 1) % perLine == 0 || i + 1 == words.size();
    text += words[i];
    text += last ? "\n" : std::string(widest - words[i].size(), ' ');
  }
  return text;
}

}  // namespace chassis
