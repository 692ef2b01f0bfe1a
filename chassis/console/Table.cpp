#include "console/Table.h"

#include <algorithm>

namespace chassis {
namespace {

constexpr std::size_t belowIndent = 4;

using Widths = std::vector<std::size_t>;  // of the columns

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}

Widths widthsOf(const Table &table) {
  Widths widest;
  for (std::size_t c = 0; c < table.titles.size(); ++c) {
    widest.push_back(displayWidth(table.titles[c]));
    for (const std::vector<Cell> &row : table.rows) {
      widest[c] = std::max(widest[c], displayWidth(row[c].text));
    }
  }
  return widest;
}

// How many of the first columns fit beside each other; one always stays.
std::size_t fitting(const Widths &widest, std::size_t width) {
  std::size_t taken = widest.front();
  std::size_t count = 1;
  while (count < widest.size() && taken + columnGap + widest[count] <= width) {
    taken += columnGap + widest[count];
    ++count;
  }
  return count;
}

std::string rowText(const std::vector<Cell> &row, const Widths &widest, bool colour) {
  std::string text;
  std::size_t behind = 0;  // blanks that the next text has before it
  for (std::size_t c = 0; c < widest.size(); ++c) {
    if (!row[c].text.empty()) {
      text += blanks(behind) + toned(row[c].text, row[c].tone, colour);
      behind = 0;
    }
    behind += widest[c] - displayWidth(row[c].text) + columnGap;
  }
  return text + "\n";
}

std::string headText(const Table &table, const Widths &widest) {
  std::vector<Cell> titles;
  std::vector<Cell> rule;
  for (std::size_t c = 0; c < widest.size(); ++c) {
    titles.push_back({table.titles[c]});
    rule.push_back({std::string(widest[c], '-')});
  }
  return rowText(titles, widest, false) + rowText(rule, widest, false);
}

// A cell that has no column, each line of it in its colour.
std::vector<std::string> labelled(const std::string &title, const Cell &cell, bool colour,
                                  std::size_t room) {
  std::vector<std::string> lines = wrapped(title + ": " + cell.text, room, columnGap);
  for (std::string &line : lines) {
    line = toned(line, cell.tone, colour);
  }
  return lines;
}

// As many of them beside each other as fit.
void addBelow(const std::vector<std::string> &part, std::size_t room,
              std::vector<std::string> &lines) {
  const bool beside = !lines.empty() && part.size() == 1 &&
                      displayWidth(lines.back()) + columnGap + displayWidth(part.front()) <= room;
  if (beside) {
    lines.back() += blanks(columnGap) + part.front();
  } else {
    lines.insert(lines.end(), part.begin(), part.end());
  }
}

std::string textBelow(const Table &table, const std::vector<Cell> &row, std::size_t first,
                      bool colour, std::size_t room) {
  std::vector<std::string> lines;
  for (std::size_t c = first; c < row.size(); ++c) {
    if (!row[c].text.empty()) {
      addBelow(labelled(table.titles[c], row[c], colour, room), room, lines);
    }
  }
  std::string text;
  for (const std::string &line : lines) {
    text += blanks(belowIndent) + line + "\n";
  }
  return text;
}

}  // namespace

std::string tableText(const Table &table, bool colour, std::size_t width) {
  Widths widest = widthsOf(table);
  widest.resize(fitting(widest, width));
  std::string text = headText(table, widest);
  for (const std::vector<Cell> &row : table.rows) {
    text += rowText(row, widest, colour) +
            textBelow(table, row, widest.size(), colour, remaining(width, belowIndent));
  }
  return text;
}

}  // namespace chassis
