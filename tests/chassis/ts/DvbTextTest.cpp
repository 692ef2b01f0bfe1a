#include "ts/DvbText.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "chassis/StreamWriter.h"

using chassis::dvbText;
using chassis::dvbTextLimit;
using testing_streams::append;
using testing_streams::Bytes;

namespace {

constexpr const char *replacement = "\uFFFD";

std::string text(const Bytes &bytes) {
  return dvbText(bytes.data(), bytes.size());
}

Bytes bytesOf(const std::string &characters) {
  return {characters.begin(), characters.end()};
}

Bytes after(const Bytes &selection, const std::string &characters) {
  Bytes bytes = selection;
  append(bytes, bytesOf(characters));
  return bytes;
}

// The code points of text in UTF-8 of the shortest form; empty where there is another byte.
std::vector<std::uint32_t> codePoints(const std::string &utf8) {
  std::vector<std::uint32_t> points;
  for (std::size_t at = 0; at < utf8.size();) {
    const auto byteAt = [&utf8](std::size_t index) {
      return index < utf8.size() ? static_cast<unsigned char>(utf8[index]) : 0U;
    };
    const unsigned first = byteAt(at);
    const std::size_t length = first < 0x80             ? 1
                               : (first & 0xE0) == 0xC0 ? 2
                               : (first & 0xF0) == 0xE0 ? 3
                               : (first & 0xF8) == 0xF0 ? 4
                                                        : 0;
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t point = length < 2 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
      if ((byteAt(at + i) & 0xC0) != 0x80) {
        return {};
      }
      point = point << 6 | (byteAt(at + i) & 0x3F);
    }
    if (length == 0 || point < least[length]) {
      return {};
    }
    points.push_back(point);
    at += length;
  }
  return points;
}

bool within(std::uint32_t point, std::uint32_t first, std::uint32_t last) {
  return point >= first && point <= last;
}

// What nobody sees, or what changes how the rest is shown.
bool unseen(std::uint32_t point) {
  return point < 0x20 || within(point, 0x7F, 0xA0) || point == 0xAD || point == 0x34F ||
         point == 0x61C || within(point, 0x115F, 0x1160) || within(point, 0x180B, 0x180F) ||
         within(point, 0x2000, 0x200F) || within(point, 0x2028, 0x202F) ||
         within(point, 0x205F, 0x206F) || point == 0x2800 || point == 0x3000 || point == 0x3164 ||
         within(point, 0xD800, 0xF8FF) || within(point, 0xFE00, 0xFE0F) || point == 0xFEFF ||
         point == 0xFFA0 || within(point, 0xFFF0, 0xFFFB) || (point & 0xFFFE) == 0xFFFE ||
         point > 0xDFFFF;
}

void expectSound(const Bytes &bytes) {
  const std::string shown = text(bytes);
  const auto points = codePoints(shown);
  EXPECT_EQ(points.empty(), shown.empty()) << "no UTF-8: " << testing::PrintToString(bytes);
  EXPECT_LE(points.size(), dvbTextLimit) << testing::PrintToString(bytes);
  EXPECT_EQ(std::count_if(points.begin(), points.end(), unseen), 0)
      << testing::PrintToString(bytes);
  EXPECT_EQ(shown.find("  "), std::string::npos) << testing::PrintToString(bytes);
  EXPECT_TRUE(shown.empty() || (shown.front() != ' ' && shown.back() != ' '))
      << testing::PrintToString(bytes);
}

const std::vector<Bytes> selections = {
    {},           {0x01},       {0x02},       {0x03},        {0x04},        {0x05},
    {0x06},       {0x07},       {0x09},       {0x0A},        {0x0B},        {0x10, 0, 1},
    {0x10, 0, 2}, {0x10, 0, 3}, {0x10, 0, 4}, {0x10, 0, 16}, {0x10, 0, 12}, {0x11},
    {0x12},       {0x13},       {0x14},       {0x15},        {0x08},        {0x1F, 1}};

}  // namespace

// ------------------------------------------------------------------------------------------------
// Tables
// ------------------------------------------------------------------------------------------------

TEST(DvbText, NothingIsNothing) {
  EXPECT_EQ(text({}), "");
  EXPECT_EQ(text({0x05}), "");
  EXPECT_EQ(text({0x10, 0, 1}), "");
}

TEST(DvbText, PlainLettersStandForThemselvesInTheDefaultTable) {
  std::string ascii;
  for (char character = '!'; character <= '~'; ++character) {
    ascii += character;
  }
  EXPECT_EQ(text(bytesOf(ascii.substr(0, 60))) + text(bytesOf(ascii.substr(60))), ascii);
}

TEST(DvbText, TheDefaultTableAboveThePlainLetters) {
  const std::vector<std::pair<unsigned, std::string>> rows = {
      {0xA1, "¡¢£€¥"}, {0xA7, "§¤‘“«←↑→↓"},  {0xB0, "°±²³×µ¶·÷’”»¼½¾¿"}, {0xD0, "―¹®©™♪¬¦"},
      {0xDC, "⅛⅜⅝⅞"},  {0xE0, "\u2126ÆĐªĦ"}, {0xE6, "ĲĿŁØŒºÞŦŊŉ"},       {0xF0, "ĸæđðħıĳŀłøœßþŧŋ"}};
  for (const auto &[first, expected] : rows) {
    Bytes bytes;
    for (std::size_t i = 0; i < codePoints(expected).size(); ++i) {
      bytes.push_back(static_cast<std::uint8_t>(first + i));
    }
    EXPECT_EQ(text(bytes), expected);
  }
  for (const unsigned reserved : {0xA6U, 0xD8U, 0xDBU, 0xE5U, 0xC0U, 0xC9U, 0xCCU}) {
    EXPECT_EQ(text({static_cast<std::uint8_t>(reserved)}), replacement) << reserved;
  }
}

TEST(DvbText, AMarkOfTheDefaultTableBelongsToTheLetterBehindIt) {
  EXPECT_EQ(text({0xC1, 'e', 0xC2, 'e', 0xC3, 'e', 0xC4, 'n', 0xC5, 'a', 0xC6, 'a', 0xC7, 'z'}),
            "èéêñāăż");
  EXPECT_EQ(text({0xC8, 'u', 0xCA, 'a', 0xCB, 'c', 0xCD, 'o', 0xCE, 'e', 0xCF, 's'}), "üåçőęš");
  EXPECT_EQ(text({'x', 0xCF, 'x'}), "xx\u030C");
  // one without a letter
  EXPECT_EQ(text({'x', 0xC8}), std::string("x") + replacement);
  EXPECT_EQ(text({0xC8, 0xC8, 'u'}), std::string(replacement) + "ü");
  EXPECT_EQ(text({0xC8, 0xE1}), std::string(replacement) + "Æ");
}

TEST(DvbText, TheTablesThatOneByteSelects) {
  EXPECT_EQ(text({0x01, 'A', 0xB0, 0xB1, 0xCF, 0xF0}), "AАБЯ№");
  EXPECT_EQ(text({0x02, 0xC7, 0xE4}), "ال");
  EXPECT_EQ(text({0x03, 0xC1, 0xE1, 0xD9}), "ΑαΩ");
  EXPECT_EQ(text({0x04, 0xE0, 0xF9}), "אש");
  EXPECT_EQ(text({0x05, 0xD0, 0xDD, 0xFE}), "Ğİş");
  EXPECT_EQ(text({0x06, 0xA1, 0xA2, 0xBE, 0xFF}), "ĄĒūĸ");
  EXPECT_EQ(text({0x07, 0xA1, 0xE0}), "กเ");
  EXPECT_EQ(text({0x09, 0xC0, 0xE0, 0xFE}), "Ąąž");
  EXPECT_EQ(text({0x0A, 0xA1, 0xD0, 0xDE}), "ḂŴŶ");
  EXPECT_EQ(text({0x0B, 0xA4, 0xA6, 0xBD}), "€Šœ");
}

TEST(DvbText, TheTablesThatThreeBytesSelect) {
  const std::vector<std::pair<std::uint8_t, std::string>> firstAbove = {
      {1, "¡"}, {2, "Ą"},  {3, "Ħ"},  {4, "Ą"},  {5, "Ё"},  {7, "‘"},
      {9, "¡"}, {10, "Ą"}, {11, "ก"}, {13, "”"}, {14, "Ḃ"}, {15, "¡"}};
  for (const auto &[part, expected] : firstAbove) {
    EXPECT_EQ(text({0x10, 0x00, part, 'a', 0xA1}), "a" + expected) << int{part};
  }
  EXPECT_EQ(text({0x10, 0x00, 2, 0xA3, 0xB3}), "Łł");
  EXPECT_EQ(text({0x10, 0x00, 4, 0xA2}), "ĸ");
  EXPECT_EQ(text({0x10, 0x00, 6, 0xC7}), "ا");
  EXPECT_EQ(text({0x10, 0x00, 8, 0xE0}), "א");
  EXPECT_EQ(text({0x10, 0x00, 9, 0xFE}), "ş");
}

TEST(DvbText, AByteThatItsTableLeavesOpenIsReplaced) {
  EXPECT_EQ(text({0x02, 'a', 0xA1, 'b'}), std::string("a") + replacement + "b");
  EXPECT_EQ(text({0x07, 0xFF}), replacement);
}

TEST(DvbText, TwoBytesOfTheBasicPlane) {
  EXPECT_EQ(text({0x11, 0x00, 'A', 0x04, 0x10, 0x4E, 0x2D}), "AА中");
  EXPECT_EQ(text({0x11, 0xD8, 0x3D, 0xDC, 0x00}), "\U0001F400");
  // half a pair, half a character
  EXPECT_EQ(text({0x11, 0xD8, 0x3D, 0x00, 'A'}), std::string(replacement) + "A");
  EXPECT_EQ(text({0x11, 0xDC, 0x00}), replacement);
  EXPECT_EQ(text({0x11, 0x00, 'A', 0x00}), std::string("A") + replacement);
}

TEST(DvbText, KoreanAndChinese) {
  EXPECT_EQ(text({0x12, 0xC7, 0xD1, 0xB1, 0xDB, ' ', 'T', 'V'}), "한글 TV");
  EXPECT_EQ(text({0x13, 'C', 0xD6, 0xD0, 0xB9, 0xFA}), "C中国");
  EXPECT_EQ(text({0x14, 0xA4, 0xA4, 0xB0, 0xEA}), "中國");
  for (const std::uint8_t table : {0x12, 0x13, 0x14}) {
    EXPECT_EQ(text({table, 0xFF, 0xFF, 'x'}), std::string(replacement) + "x") << int{table};
    EXPECT_EQ(text({table, 'x', 0xB0}), std::string("x") + replacement) << int{table};
    EXPECT_EQ(text({table, 0xFF, 'x'}), std::string(replacement) + "x") << int{table};
  }
}

TEST(DvbText, Utf8) {
  EXPECT_EQ(text(after({0x15}, "Ünï 中 \U0001F400")), "Ünï 中 \U0001F400");
  EXPECT_EQ(text({0x15, 'a', 0xC3}), std::string("a") + replacement);
  EXPECT_EQ(text({0x15, 0xC0, 0x80, 'a'}), std::string(replacement) + replacement + "a");
  EXPECT_EQ(text({0x15, 0xED, 0xA0, 0x80}),
            std::string(replacement) + replacement + replacement);  // a surrogate
  EXPECT_EQ(text(after({0x15}, "e\u0301")), "é");
}

TEST(DvbText, OfAReservedTableNoByteIsShown) {
  for (const unsigned table : {0x00U, 0x08U, 0x0CU, 0x0FU, 0x16U, 0x1EU, 0x1FU}) {
    EXPECT_EQ(text(after({static_cast<std::uint8_t>(table)}, "name")), replacement) << table;
  }
  for (const Bytes &selection : {Bytes{0x10}, Bytes{0x10, 0}, Bytes{0x10, 0, 0}, Bytes{0x10, 0, 12},
                                 Bytes{0x10, 0, 16}, Bytes{0x10, 0, 255}, Bytes{0x10, 1, 1}}) {
    EXPECT_EQ(text(selection), replacement) << testing::PrintToString(selection);
  }
  EXPECT_EQ(text(after({0x10, 0, 12}, "name")), replacement);
}

// ------------------------------------------------------------------------------------------------
// What is not shown
// ------------------------------------------------------------------------------------------------

TEST(DvbText, EmphasisIsLeftOutAndABreakIsABlank) {
  EXPECT_EQ(text({'a', 0x86, 'b', 0x87, 'c', 0x8A, 'd', 0x9F, 'e'}), "abc de");
  EXPECT_EQ(text({0x05, 'a', 0x86, 'b', 0x87, 0x8A, 'd'}), "ab d");
  EXPECT_EQ(text({0x11, 0, 'a', 0xE0, 0x86, 0, 'b', 0xE0, 0x8A, 0, 'd'}), "ab d");
  for (const std::uint8_t table : {0x12, 0x13, 0x14}) {
    EXPECT_EQ(text({table, 'a', 0xE0, 0x86, 'b', 0xE0, 0x8A, 'd', 0xE0, 0x87}), "ab d")
        << int{table};
  }
  EXPECT_EQ(text(after({0x15}, "a\uE086b\uE08Ad\uE09F")), "ab d");
}

TEST(DvbText, NoControlCharacterPasses) {
  EXPECT_EQ(text({'a', 0x1B, '[', '2', 'J', 0x07, 0x7F}), "a[2J");
  EXPECT_EQ(text({'a', '\r', '\n', 'b', '\t', 'c', 0x00, 'd'}), "a b cd");
  EXPECT_EQ(text({0x11, 0, 'a', 0, 0x1B, 0, 0x9B, 0, 'b'}), "ab");
  EXPECT_EQ(text(after({0x15}, "a\u009Bb\u0085c")), "abc");
}

TEST(DvbText, WhatChangesTheDirectionOrHasNoWidthIsLeftOut) {
  EXPECT_EQ(text(after({0x15}, "a\u202Eb\u2066c\u2069d\u200Be\u200Ff\uFEFFg\u00ADh\u061Ci")),
            "abcdefghi");
  EXPECT_EQ(text(after({0x15}, "a\u034Fb\u115Fc\u3164d\uFE0Fe\U000E0041f")), "abcdef");
  EXPECT_EQ(text({0x04, 0xE0, 0xFD, 0xFE}), "א");  // its marks of direction
  EXPECT_EQ(text({'a', 0xFF, 'b'}), "ab");         // a soft hyphen
}

TEST(DvbText, WhatHasNoMeaningIsReplaced) {
  EXPECT_EQ(text(after({0x15}, "a\uE000b")), std::string("a") + replacement + "b");
  EXPECT_EQ(text({0x11, 0xFF, 0xFF}), replacement);
}

TEST(DvbText, OneBlankPartsWordsAndNoneStandsAtTheEnds) {
  EXPECT_EQ(text(bytesOf("  a   b  ")), "a b");
  EXPECT_EQ(text(after({0x15}, "\u3000a\u00A0\u2003\u2028\u2029b\u2800")), "a b");
  EXPECT_EQ(text(bytesOf("   ")), "");
}

TEST(DvbText, MarksNeitherBeginNorPileUp) {
  EXPECT_EQ(text(after({0x15}, "\u0338\u0338a")), "a");
  const std::string four = "q\u0338\u0338\u0338\u0338";
  EXPECT_EQ(text(after({0x15}, four + "\u0338\u0338b")), four + "b");
}

TEST(DvbText, ALongTextIsCutWithAnEllipsis) {
  const std::string whole(dvbTextLimit, 'a');
  EXPECT_EQ(text(bytesOf(whole)), whole);
  EXPECT_EQ(text(bytesOf(whole + "  ")), whole);
  EXPECT_EQ(text(bytesOf(whole + "b")), whole.substr(1) + "…");
  EXPECT_EQ(codePoints(text(Bytes(255, 0xF1))).size(), dvbTextLimit);
}

TEST(DvbText, EveryByteAloneIsSound) {
  for (const Bytes &selection : selections) {
    for (unsigned byte = 0; byte < 0x100; ++byte) {
      Bytes bytes = selection;
      bytes.push_back(static_cast<std::uint8_t>(byte));
      expectSound(bytes);
    }
  }
}

TEST(DvbText, EveryCharacterOfTheBasicPlaneIsSound) {
  for (unsigned unit = 0; unit < 0x10000; ++unit) {
    expectSound({0x11, 0, 'a', static_cast<std::uint8_t>(unit >> 8),
                 static_cast<std::uint8_t>(unit), 0, 'b'});
  }
}

TEST(DvbText, RandomBytesAreSound) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int i = 0; i < 20000; ++i) {
    Bytes bytes = selections[random() % selections.size()];
    for (unsigned left = random() % 80; left > 0; --left) {
      bytes.push_back(static_cast<std::uint8_t>(random()));
    }
    expectSound(bytes);
  }
}
