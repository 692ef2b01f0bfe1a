#include "console/LineCells.h"

#include <gtest/gtest.h>

#include <clocale>

namespace chassis {
namespace {

class LineCells : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
};

TEST_F(LineCells, CharactersTakeTheirCells) {
  EXPECT_EQ(cellsBehind(L'a', 3, 20), 4u);
  EXPECT_EQ(cellsBehind(L'\u00E9', 3, 20), 4u);
  EXPECT_EQ(cellsBehind(L'\u65E5', 3, 20), 5u);
  EXPECT_EQ(cellsBehind(L'\U0001F642', 3, 20), 5u);
  EXPECT_EQ(cellsBehind(L'\u0301', 3, 20), 3u);
  EXPECT_EQ(cellsBehind(L'\x01', 3, 20), 5u);
  EXPECT_EQ(cellsBehind(L'\x85', 3, 20), 5u);
  EXPECT_EQ(cellsBehind(L'\u2028', 3, 20), 10u);
  EXPECT_EQ(cellsBehind(L'\U000E0080', 3, 20), 11u);
}

TEST_F(LineCells, AWideCharacterIsNotParted) {
  EXPECT_EQ(cellsBehind(L'\u65E5', 18, 20), 20u);
  EXPECT_EQ(cellsBehind(L'\u65E5', 19, 20), 22u);
  EXPECT_EQ(cellsBehind(L'\u65E5', 39, 20), 42u);
  EXPECT_EQ(cellsBehind(L'a', 19, 20), 20u);
}

TEST_F(LineCells, TabsAndRowsEndWhereTheyDo) {
  EXPECT_EQ(cellsBehind(L'\t', 3, 20), 8u);
  EXPECT_EQ(cellsBehind(L'\t', 8, 20), 16u);
  EXPECT_EQ(cellsBehind(L'\t', 17, 20), 20u);
  EXPECT_EQ(cellsBehind(L'\n', 3, 20), 20u);
  EXPECT_EQ(cellsBehind(L'\n', 20, 20), 40u);
}

TEST_F(LineCells, AGlyphHasItsMarks) {
  EXPECT_EQ(firstGlyph(L""), 0u);
  EXPECT_EQ(lastGlyph(L""), 0u);
  EXPECT_EQ(firstGlyph(L"ab"), 1u);
  EXPECT_EQ(lastGlyph(L"ab"), 1u);
  EXPECT_EQ(firstGlyph(L"e\u0301\u0308b"), 3u);
  EXPECT_EQ(lastGlyph(L"be\u0301\u0308"), 3u);
  EXPECT_EQ(firstGlyph(L"\u0301b"), 1u);
  EXPECT_EQ(lastGlyph(L"\u0301"), 1u);
  EXPECT_EQ(lastGlyph(L"\U0001F468\u200D"), 2u);
}

TEST_F(LineCells, AGlyphIsWhatAPersonTakesForOne) {
  const std::wstring glyphs[] = {
      L"\U0001F468\u200D\U0001F469\u200D\U0001F467",                              // a family
      L"\u2764\uFE0F",                                                            // a red heart
      L"\U0001F44D\U0001F3FD",                                                    // of a skin tone
      L"\U0001F1E9\U0001F1EA",                                                    // a flag
      L"\U0001F3F4\U000E0067\U000E0062\U000E0065\U000E006E\U000E0067\U000E007F",  // by tags
      L"1\uFE0F\u20E3",                                                           // a keycap
      L"\u1100\u1161\u11A8",                                                      // a syllable
      L"\u0915\u093F",                                                            // with its vowel
      L"a\u200D",                                                                 // joined to none
  };
  for (const std::wstring &glyph : glyphs) {
    EXPECT_EQ(firstGlyph(glyph + L"b"), glyph.size());
    EXPECT_EQ(firstGlyph(glyph + L"\U0001F1EB\U0001F1F7"), glyph.size());
    EXPECT_EQ(lastGlyph(L"b" + glyph), glyph.size());
    EXPECT_EQ(lastGlyph(L"\U0001F1EB\U0001F1F7" + glyph), glyph.size());
    EXPECT_TRUE(hasGlyphs(L"b" + glyph));
  }
}

TEST_F(LineCells, PlainWithGlyphs) {
  EXPECT_TRUE(hasGlyphs(L"ae\u0301"));
  EXPECT_FALSE(hasGlyphs(L"a\u00E9\u65E5"));
  EXPECT_FALSE(hasGlyphs(L""));
}

TEST_F(LineCells, WhatIsShownOtherwiseIsNotPlain) {
  EXPECT_TRUE(isPlain(L""));
  EXPECT_TRUE(isPlain(L"ae\u0301\u65E5"));
  for (const wchar_t c : {L'\x01', L'\n', L'\t', L'\u2028'}) {
    EXPECT_FALSE(isPlain(L"a" + std::wstring(1, c) + L"a"));
  }
}

TEST_F(LineCells, WideCharactersAreFound) {
  EXPECT_TRUE(hasWide(L"a\u65E5"));
  EXPECT_TRUE(hasWide(L"\U0001F642"));
  EXPECT_FALSE(hasWide(L"ae\u0301\x01"));
  EXPECT_FALSE(hasWide(L""));
}

}  // namespace
}  // namespace chassis
