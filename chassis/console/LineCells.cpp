#include "console/LineCells.h"

#include <utf8proc.h>

#include <algorithm>
#include <cwchar>
#include <cwctype>

namespace chassis {
namespace {

constexpr std::size_t tabStop = 8;
constexpr std::size_t controlWidth = 2;  // as ^X
constexpr std::size_t escapedWidth = 7;  // as \U+1234, one more behind \U+FFFF

bool isControl(wchar_t c) {
  return c < 0x100 && std::iswcntrl(static_cast<std::wint_t>(c)) != 0;
}
bool isShownAsItIs(wchar_t c) {
  return !isControl(c) && std::iswprint(static_cast<std::wint_t>(c)) != 0;
}
// Without a width of its own, as an accent that combines.
bool isMark(wchar_t c) {
  return c != L'\0' && wcwidth(c) == 0;
}
// Whether a glyph ends between two characters; the state goes from one pair to the next.
bool isParted(wchar_t before, wchar_t behind, utf8proc_int32_t &state) {
  return utf8proc_grapheme_break_stateful(before, behind, &state);
}

}  // namespace

std::size_t cellsBehind(wchar_t c, std::size_t at, std::size_t columns) {
  const std::size_t rest = columns - at % columns;
  if (c == L'\n') {
    return at + rest;
  }
  if (c == L'\t') {
    return at + std::min(rest, tabStop - at % columns % tabStop);
  }
  if (isControl(c)) {
    return at + controlWidth;
  }
  if (!isShownAsItIs(c)) {
    return at + escapedWidth + (c > 0xFFFF ? 1 : 0);
  }
  const auto width = static_cast<std::size_t>(std::max(wcwidth(c), 0));
  return at + (width > rest ? rest : 0) + width;
}

std::size_t firstGlyph(std::wstring_view text) {
  std::size_t size = text.empty() ? 0 : 1;
  for (utf8proc_int32_t state = 0;
       size > 0 && size < text.size() && !isParted(text[size - 1], text[size], state);) {
    ++size;
  }
  return size;
}

std::size_t lastGlyph(std::wstring_view text) {
  std::size_t size = firstGlyph(text);
  while (size < text.size()) {
    text.remove_prefix(size);
    size = firstGlyph(text);
  }
  return size;
}

bool hasWide(std::wstring_view text) {
  return std::any_of(text.begin(), text.end(), [](wchar_t c) { return wcwidth(c) > 1; });
}

bool isPlain(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(), isShownAsItIs);
}

bool hasGlyphs(std::wstring_view text) {
  while (!text.empty() && !isMark(text[0]) && firstGlyph(text) == 1) {
    text.remove_prefix(1);
  }
  return !text.empty();
}

}  // namespace chassis
