// Text laid out for the width of a terminal: broken at blanks only, what has no room goes to an
// indented line of its own. Widths count columns of a terminal: a wide character has two, a
// combining one and an escape for colour none, a byte that belongs to no character one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace chassis {

constexpr std::size_t columnGap = 2;  // between the columns of a text

constexpr std::size_t anyWidth = SIZE_MAX;  // not a terminal: nothing is broken

using Width = std::function<std::size_t()>;  // asked anew for everything that is laid out

// The columns of the terminal at an open file; anyWidth where there is none, or one that does not
// tell.
std::size_t widthOf(int file);
std::size_t outputWidth();  // at standard output

std::size_t displayWidth(const std::string &text);  // of one line
std::string padded(const std::string &text, std::size_t width);

// As much of one line as fits, with an ellipsis where something is missing.
std::string shortened(const std::string &text, std::size_t width);

// What is left of a width behind `taken` columns, but never so little that words stand in a pile.
std::size_t remaining(std::size_t width, std::size_t taken);

// The lines of one line of text. All but the first begin with `indent` blanks. A word that is wider
// than the width stands alone and whole.
std::vector<std::string> wrapped(const std::string &text, std::size_t width, std::size_t indent);

// So many blanks, up to `most`, stand before a row that it is not wider than the width.
std::size_t indentFor(const std::string &row, std::size_t width, std::size_t most);

// Two clauses on one line, the second one from a column on that is common to many such lines. Where
// they do not fit, the second one follows below, indented.
std::vector<std::string> paired(const std::string &left, const std::string &right,
                                std::size_t column, std::size_t width);

std::string paragraph(const std::string &text, std::size_t width);  // of one line: lines with ends

// Whole lines with their ends. Those that do not fit hang in their second column, or their last one
// that leaves the text some room; those without a column hang a little.
std::string fitted(const std::string &text, std::size_t width);

}  // namespace chassis
