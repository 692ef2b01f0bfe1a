#include "console/Table.h"

#include <gtest/gtest.h>

#include <sstream>

namespace chassis {
namespace {

Table sample() {
  return {{"slot", "CAM", "state", "reply", "evidence"},
          {{{"0"}, {"0"}, {"not descrambled", Tone::Bad}, {""}, {"no ECM on PID 0x1501 for 4 s"}},
           {{"0"}, {"0+1"}, {"descrambled", Tone::Good}, {"0x71"}, {"clear"}}}};
}

std::size_t widestLine(const std::string &text) {
  std::istringstream stream(text);
  std::size_t widest = 0;
  for (std::string line; std::getline(stream, line);) {
    widest = std::max(widest, displayWidth(line));
  }
  return widest;
}

TEST(Table, ColumnsAreAligned) {
  EXPECT_EQ(tableText(sample(), false),
            "slot  CAM  state            reply  evidence\n"
            "----  ---  ---------------  -----  ----------------------------\n"
            "0     0    not descrambled         no ECM on PID 0x1501 for 4 s\n"
            "0     0+1  descrambled      0x71   clear\n");
}

TEST(Table, WhatFitsStaysAsItIs) {
  EXPECT_EQ(tableText(sample(), false, 63), tableText(sample(), false));
  EXPECT_NE(tableText(sample(), false, 62), tableText(sample(), false));
}

TEST(Table, WhatDoesNotFitFollowsBelowItsRow) {
  EXPECT_EQ(tableText(sample(), false, 39),
            "slot  CAM  state            reply\n"
            "----  ---  ---------------  -----\n"
            "0     0    not descrambled\n"
            "    evidence: no ECM on PID 0x1501 for\n"
            "      4 s\n"
            "0     0+1  descrambled      0x71\n"
            "    evidence: clear\n");
}

TEST(Table, PartsBelowStandBesideEachOther) {
  EXPECT_EQ(tableText(sample(), false, 30),
            "slot  CAM  state\n"
            "----  ---  ---------------\n"
            "0     0    not descrambled\n"
            "    evidence: no ECM on PID\n"
            "      0x1501 for 4 s\n"
            "0     0+1  descrambled\n"
            "    reply: 0x71\n"
            "    evidence: clear\n");
  const std::string text = tableText(sample(), false, 32);
  EXPECT_NE(text.find("\n    reply: 0x71  evidence: clear\n"), std::string::npos) << text;
}

TEST(Table, TheFirstColumnAlwaysStays) {
  EXPECT_EQ(tableText(sample(), false, 1).rfind("slot\n----\n0\n    CAM: 0\n", 0), 0u)
      << tableText(sample(), false, 1);
}

TEST(Table, NoWidthIsExceeded) {
  for (std::size_t width = 24; width < 80; ++width) {
    EXPECT_LE(widestLine(tableText(sample(), true, width)), width);
  }
}

TEST(Table, ColourIsInTheCellsAloneAndMovesNothing) {
  const std::string coloured = tableText(sample(), true);
  EXPECT_NE(coloured.find("0     0    \033[31mnot descrambled\033[0m         no ECM"),
            std::string::npos)
      << coloured;
  EXPECT_NE(tableText(sample(), true, 12)
                .find("    \033[31mstate: not\033[0m\n      \033[31mdescrambled\033[0m\n"),
            std::string::npos);
}

}  // namespace
}  // namespace chassis
