#include "console/Completion.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <optional>

#include "command/Line.h"
#include "console/Layout.h"

namespace chassis {
namespace {

namespace fs = std::filesystem;

// What stands where a line ends so far.
struct Spot {
  bool comment = false;
  std::optional<std::string> string;  // the beginning of one, without escapes
};

Spot spotAtEnd(const std::string &text) {
  Spot spot;
  for (std::size_t i = 0; i < text.size() && !spot.comment; ++i) {
    const char c = text[i];
    if (!spot.string) {
      spot.comment = c == '#';
      spot.string = c == '"' ? std::optional<std::string>("") : std::nullopt;
    } else if (c == '"') {
      spot.string.reset();
    } else {
      const bool escape = c == '\\' && i + 1 < text.size();
      *spot.string += escape ? text[++i] : c;
    }
  }
  return spot;
}

// The name that ends the text; empty where no name can stand.
std::string nameAtEnd(const std::string &text) {
  std::size_t begin = text.size();
  while (begin > 0 && isNameChar(text[begin - 1])) {
    --begin;
  }
  return leadingName(text.substr(begin));
}

bool isControl(char c) {
  return std::iscntrl(static_cast<unsigned char>(c)) != 0;
}

// The files of a folder whose names begin so, folders with a slash behind them, sorted.
std::vector<std::string> filesOf(const std::string &folder, const std::string &begun) {
  std::vector<std::string> names;
  std::error_code failure;
  for (fs::directory_iterator at(folder.empty() ? "." : folder, failure), end;
       !failure && at != end; at.increment(failure)) {
    const std::string name = at->path().filename().string();
    const bool fits = name.rfind(begun, 0) == 0 && (name[0] != '.' || !begun.empty());
    if (fits && std::none_of(name.begin(), name.end(), isControl)) {
      std::error_code ignored;
      names.push_back(name + (at->is_directory(ignored) ? "/" : ""));
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

// Of a character in UTF-8, but not its first byte.
bool isWithinCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

std::size_t commonLength(const std::string &a, const std::string &b) {
  const std::size_t shorter = std::min(a.size(), b.size());
  return static_cast<std::size_t>(
      std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(shorter), b.begin()).first -
      a.begin());
}

// The part of what the choices share that can be added to what has begun; they are sorted, so what
// the first and the last share, all do. A character is not cut in its bytes.
std::string sharedRest(const std::vector<std::string> &choices, const std::string &begun) {
  const std::string &first = choices.front();
  std::size_t shared = commonLength(first, choices.back());
  while (shared > begun.size() && shared < first.size() && isWithinCharacter(first[shared])) {
    --shared;
  }
  return first.substr(begun.size(), shared - begun.size());
}

Completion completeName(const std::string &begun, const std::vector<std::string> &names) {
  Completion completion;
  const auto fits = [&begun](const std::string &name) { return name.rfind(begun, 0) == 0; };
  if (!begun.empty()) {
    std::copy_if(names.begin(), names.end(), std::back_inserter(completion.choices), fits);
  }
  if (completion.choices.size() == 1) {
    completion.insert = completion.choices[0].substr(begun.size()) + " ";
    completion.choices.clear();
  } else if (!completion.choices.empty()) {
    completion.insert = sharedRest(completion.choices, begun);
  }
  return completion;
}

Completion completeFile(const std::string &path) {
  const std::size_t nameAt = path.rfind('/') + 1;
  const std::string begun = path.substr(nameAt);
  Completion completion{"", filesOf(path.substr(0, nameAt), begun)};
  if (completion.choices.empty()) {
    return completion;
  }
  completion.insert = escaped(sharedRest(completion.choices, begun));
  if (completion.choices.size() == 1) {
    completion.insert += completion.choices[0].back() == '/' ? "" : "\"";
    completion.choices.clear();
  }
  return completion;
}

}  // namespace

Completion complete(const std::string &before, const std::vector<std::string> &names) {
  const Spot spot = spotAtEnd(before);
  if (spot.comment) {
    return Completion{};
  }
  return spot.string ? completeFile(*spot.string) : completeName(nameAtEnd(before), names);
}

std::string inColumns(const std::vector<std::string> &words, std::size_t width) {
  std::size_t widest = 0;
  for (const std::string &word : words) {
    widest = std::max(widest, displayWidth(word) + 2);
  }
  const std::size_t perLine = std::max<std::size_t>(1, width / std::max<std::size_t>(1, widest));
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool last = (i + 1) % perLine == 0 || i + 1 == words.size();
    text += last ? words[i] + "\n" : padded(words[i], widest);
  }
  return text;
}

}  // namespace chassis
