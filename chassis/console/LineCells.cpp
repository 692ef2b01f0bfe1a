#include "console/LineCells.h"

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
bool isMark(wchar_t c) {
  return c != L'\0' && wcwidth(c) == 0;
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
  if (text.empty()) {
    return 0;
  }
  const auto end = std::find_if_not(text.begin() + 1, text.end(), isMark);
  return static_cast<std::size_t>(end - text.begin());
}

std::size_t lastGlyph(std::wstring_view text) {
  const auto base = std::find_if_not(text.rbegin(), text.rend(), isMark);
  const auto marks = static_cast<std::size_t>(base - text.rbegin());
  return std::min(marks + 1, text.size());
}

bool isPlainWithMarks(std::wstring_view text) {
  return std::all_of(text.begin(), text.end(), isShownAsItIs) &&
         std::any_of(text.begin(), text.end(), isMark);
}

}  // namespace chassis
