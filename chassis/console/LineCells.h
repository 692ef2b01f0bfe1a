// How the line editor lays a line out in the cells of a terminal, and what a person takes for one
// character.
#pragma once

#include <cstddef>
#include <string_view>

namespace chassis {

// Where the editor goes on behind a character that it shows at `at`, counting cells from the start
// of a row. A wide one is not parted: what is left of its row stays empty.
std::size_t cellsBehind(wchar_t c, std::size_t at, std::size_t columns);

// A glyph is what a person takes for one character: a letter with its accents, a flag, emoji that
// are joined. How many characters of the text its first and its last one have; 0: the text is
// empty.
std::size_t firstGlyph(std::wstring_view text);
std::size_t lastGlyph(std::wstring_view text);

// Whether there are characters that take two cells.
bool hasWide(std::wstring_view text);

// Whether the editor shows all of it as it is: no tabs, no control characters.
bool isPlain(std::wstring_view text);

// Whether there are glyphs of several characters or without a width of their own.
bool hasGlyphs(std::wstring_view text);

}  // namespace chassis
