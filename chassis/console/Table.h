// A table of plain text.
#pragma once

#include <string>
#include <vector>

#include "console/Layout.h"
#include "console/Tone.h"

namespace chassis {

struct Cell {
  std::string text;
  Tone tone = Tone::Plain;
};

struct Table {
  std::vector<std::string> titles;
  std::vector<std::vector<Cell>> rows;  // each has a cell for every title
};

// Titles, a rule and the rows in aligned columns. Where they do not all fit, as many of the first
// columns as do stay; the others follow below each row, indented, as "title: text", the empty ones
// left out.
std::string tableText(const Table &table, bool colour, std::size_t width = anyWidth);

}  // namespace chassis
