#include "console/Layout.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cwchar>

namespace chassis {
namespace {

constexpr std::size_t leastWidth = 20;
constexpr std::size_t hanging = 4;  // deeper than the line itself
constexpr char blank = ' ';

struct Symbol {
  std::size_t bytes;
  std::size_t columns;
};

unsigned char byteAt(const std::string &text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// By the first byte of a character in UTF-8; 1 where none begins.
std::size_t sequenceLength(unsigned char first) {
  return first >> 5 == 0x06 ? 2 : first >> 4 == 0x0E ? 3 : first >> 3 == 0x1E ? 4 : 1;
}

std::size_t columnsOf(wchar_t character) {
  const int columns = wcwidth(character);
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

Symbol characterAt(const std::string &text, std::size_t at) {
  const std::size_t length = sequenceLength(byteAt(text, at));
  std::uint32_t value = byteAt(text, at) & (0xFFU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (byteAt(text, at + i) >> 6 != 2) {
      return {1, 1};
    }
    value = value << 6 | (byteAt(text, at + i) & 0x3FU);
  }
  return {length, length == 1 ? 1 : columnsOf(static_cast<wchar_t>(value))};
}

// A control sequence of the terminal, such as a colour.
std::size_t escapeLength(const std::string &text, std::size_t at) {
  if (text.compare(at, 2, "\033[") != 0) {
    return 0;
  }
  const std::size_t end = text.find_first_not_of("0123456789;", at + 2);
  return (end == std::string::npos ? text.size() : end + 1) - at;
}

Symbol symbolAt(const std::string &text, std::size_t at) {
  const std::size_t escape = escapeLength(text, at);
  return escape > 0 ? Symbol{escape, 0} : characterAt(text, at);
}

std::size_t indentOf(const std::string &text) {
  return std::min(text.find_first_not_of(blank), text.size());
}

// The next blanks and the word behind them.
std::string pieceAt(const std::string &text, std::size_t at) {
  const std::size_t word = std::min(text.find_first_not_of(blank, at), text.size());
  return text.substr(at, std::min(text.find(blank, word), text.size()) - at);
}

// Where the last column of a line begins that leaves its text enough room; 0: it has no such
// column.
std::size_t columnOf(const std::string &line, std::size_t width) {
  const std::string between(columnGap, blank);
  std::size_t column = 0;
  std::size_t at = line.find(between, indentOf(line));
  while (at != std::string::npos) {
    const std::size_t begin = std::min(line.find_first_not_of(blank, at), line.size());
    const std::size_t columns = displayWidth(line.substr(0, begin));
    column = columns <= width * 3 / 5 ? columns : column;
    at = line.find(between, begin);
  }
  return column;
}

std::string joinedLines(const std::vector<std::string> &lines) {
  std::string text;
  for (const std::string &line : lines) {
    text += line + "\n";
  }
  return text;
}

std::string fittedLine(const std::string &line, std::size_t width) {
  const std::size_t column = columnOf(line, width);
  return joinedLines(wrapped(line, width, column > 0 ? column : indentOf(line) + hanging));
}

}  // namespace

std::size_t widthOf(int file) {
  winsize size{};
  const bool known = isatty(file) == 1 && ioctl(file, TIOCGWINSZ, &size) == 0;
  return known && size.ws_col > 0 ? size.ws_col : anyWidth;
}

std::size_t outputWidth() {
  return widthOf(STDOUT_FILENO);
}

std::size_t displayWidth(const std::string &text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Symbol symbol = symbolAt(text, at);
    columns += symbol.columns;
    at += symbol.bytes;
  }
  return columns;
}

std::string padded(const std::string &text, std::size_t width) {
  const std::size_t own = displayWidth(text);
  return text + std::string(own < width ? width - own : 0, blank);
}

std::string shortened(const std::string &text, std::size_t width) {
  if (displayWidth(text) <= width) {
    return text;
  }
  const std::string ellipsis = "\u2026";
  std::size_t end = 0;
  while (displayWidth(text.substr(0, end + symbolAt(text, end).bytes)) < width) {
    end += symbolAt(text, end).bytes;
  }
  return text.substr(0, end) + ellipsis;
}

std::size_t remaining(std::size_t width, std::size_t taken) {
  if (width == anyWidth) {
    return anyWidth;
  }
  return std::max(leastWidth, width - std::min(width, taken));
}

std::vector<std::string> wrapped(const std::string &text, std::size_t width, std::size_t indent) {
  if (displayWidth(text) <= width) {
    return {text};
  }
  std::vector<std::string> lines{""};
  for (std::size_t at = 0; at < text.size();) {
    const std::string piece = pieceAt(text, at);
    at += piece.size();
    const std::string word = piece.substr(indentOf(piece));
    const bool first = lines.back().empty();
    if (first || displayWidth(lines.back()) + displayWidth(piece) <= width) {
      lines.back() += piece;
    } else if (!word.empty()) {
      lines.push_back(std::string(indent, blank) + word);
    }
  }
  return lines;
}

std::size_t indentFor(const std::string &row, std::size_t width, std::size_t most) {
  return std::min(most, width - std::min(width, displayWidth(row)));
}

std::vector<std::string> paired(const std::string &left, const std::string &right,
                                std::size_t column, std::size_t width) {
  const std::string together = padded(left, column) + std::string(columnGap, blank) + right;
  if (!right.empty() && displayWidth(together) <= width) {
    return {together};
  }
  std::vector<std::string> lines = wrapped(left, width, columnGap);
  if (!right.empty()) {
    const std::vector<std::string> below =
        wrapped(std::string(columnGap, blank) + right, width, columnGap);
    lines.insert(lines.end(), below.begin(), below.end());
  }
  return lines;
}

std::string paragraph(const std::string &text, std::size_t width) {
  return joinedLines(wrapped(text, width, 0));
}

std::string fitted(const std::string &text, std::size_t width) {
  if (width == anyWidth) {
    return text;
  }
  std::string all;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    all += fittedLine(text.substr(at, end - at), width);
    at = end + 1;
  }
  return all;
}

}  // namespace chassis
