#include "console/Layout.h"

#include <gtest/gtest.h>

#include <clocale>

namespace chassis {
namespace {

using Lines = std::vector<std::string>;

class Layout : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
};

TEST_F(Layout, CountsColumnsNotBytes) {
  EXPECT_EQ(displayWidth("CAM 0"), 5u);
  EXPECT_EQ(displayWidth("Gr\xc3\xbc\xc3\x9f"
                         "e"),
            5u);
  EXPECT_EQ(displayWidth("\xe4\xb8\xad\xe6\x96\x87"), 4u);  // two wide characters
  EXPECT_EQ(displayWidth("e\xcc\x81"), 1u);                 // a letter and its accent
  EXPECT_EQ(displayWidth("\xf0\x9f\x93\xba"), 2u);          // a television set
}

TEST_F(Layout, ColoursTakeNoRoom) {
  EXPECT_EQ(displayWidth("\033[1;37;41mALARM\033[0m"), 5u);
  EXPECT_EQ(displayWidth("\033[3"), 0u);
}

TEST_F(Layout, BytesThatAreNoCharacterCountOneEach) {
  EXPECT_EQ(displayWidth("\xff\x80"), 2u);
  EXPECT_EQ(displayWidth("\xe4\xb8"), 2u);          // the rest of it is missing
  EXPECT_EQ(displayWidth("\xff\x80\x80\x80"), 4u);  // nothing begins so
  EXPECT_EQ(displayWidth("\x01"), 1u);
}

TEST_F(Layout, PadsToColumns) {
  EXPECT_EQ(padded("\xe4\xb8\xad", 4), "\xe4\xb8\xad  ");
  EXPECT_EQ(padded("four", 4), "four");
  EXPECT_EQ(padded("three", 4), "three");
}

TEST_F(Layout, ShortensToColumns) {
  EXPECT_EQ(shortened("four", 4), "four");
  EXPECT_EQ(shortened("fives", 4), "fiv\u2026");
  EXPECT_EQ(shortened("\u4e2d\u4e2d", 4), "\u4e2d\u4e2d");
  EXPECT_EQ(shortened("\u4e2d\u4e2d\u4e2d", 4), "\u4e2d\u2026");
  EXPECT_EQ(shortened("", 4), "");
}

TEST_F(Layout, WrapsAtBlanksOnly) {
  EXPECT_EQ(wrapped("some PIDs not descrambled", 25, 2), (Lines{"some PIDs not descrambled"}));
  EXPECT_EQ(wrapped("some PIDs not descrambled", 24, 2), (Lines{"some PIDs not", "  descrambled"}));
  EXPECT_EQ(wrapped("some PIDs not", 6, 2), (Lines{"some", "  PIDs", "  not"}));
}

TEST_F(Layout, AWordWithoutRoomStandsAloneAndWhole) {
  EXPECT_EQ(wrapped("a /very/long/path/of/a/stream b", 10, 2),
            (Lines{"a", "  /very/long/path/of/a/stream", "  b"}));
  EXPECT_EQ(wrapped("/very/long/path", 4, 2), (Lines{"/very/long/path"}));
}

TEST_F(Layout, BlanksInsideALineStayAndThoseAtABreakGo) {
  EXPECT_EQ(wrapped("  a  b   c", 6, 0), (Lines{"  a  b", "c"}));
  EXPECT_EQ(wrapped("ab ", 2, 0), (Lines{"ab"}));
  EXPECT_EQ(wrapped("ab ", 3, 0), (Lines{"ab "}));
}

TEST_F(Layout, WrapsByWhatIsSeen) {
  EXPECT_EQ(wrapped("\xe4\xb8\xad \xe6\x96\x87", 5, 0), (Lines{"\xe4\xb8\xad \xe6\x96\x87"}));
  EXPECT_EQ(wrapped("\xe4\xb8\xad \xe6\x96\x87", 4, 0), (Lines{"\xe4\xb8\xad", "\xe6\x96\x87"}));
}

TEST_F(Layout, TheSecondClauseStandsInItsColumnOrBelow) {
  EXPECT_EQ(paired("CAM reset", "reset 1", 12, 21), (Lines{"CAM reset     reset 1"}));
  EXPECT_EQ(paired("CAM reset", "reset 1", 12, 20), (Lines{"CAM reset", "  reset 1"}));
  EXPECT_EQ(paired("CAM starts up again", "reset", 12, 26), (Lines{"CAM starts up again  reset"}));
  EXPECT_EQ(paired("CAM starts up again", "reset of it", 12, 12),
            (Lines{"CAM starts", "  up again", "  reset of", "  it"}));
}

TEST_F(Layout, AClauseAloneIsNotPadded) {
  EXPECT_EQ(paired("CAM removed", "", 20, anyWidth), (Lines{"CAM removed"}));
  EXPECT_EQ(paired("CAM removed", "", 20, 8), (Lines{"CAM", "  removed"}));
}

TEST_F(Layout, WithoutATerminalNothingIsBroken) {
  const std::string text = std::string(500, 'w') + " w\n";
  EXPECT_EQ(fitted(text, anyWidth), text);
  EXPECT_EQ(paired(std::string(500, 'w'), "why", 60, anyWidth).size(), 1u);
}

TEST_F(Layout, LinesHangInTheirColumn) {
  EXPECT_EQ(fitted("  wait seconds  lets time pass\nshort\n", 28),
            "  wait seconds  lets time\n                pass\nshort\n");
}

TEST_F(Layout, LinesWithoutAColumnHangALittle) {
  EXPECT_EQ(fitted("  alarm 0, since then\n", 14), "  alarm 0,\n      since\n      then\n");
  // The column leaves too little room.
  EXPECT_EQ(fitted("a very long call  does it\n", 20), "a very long call\n    does it\n");
}

TEST_F(Layout, EmptyLinesStay) {
  EXPECT_EQ(fitted("\n\na\n", 10), "\n\na\n");
  EXPECT_EQ(fitted("", 10), "");
}

TEST_F(Layout, ParagraphsDoNotHang) {
  EXPECT_EQ(paragraph("one two three", 8), "one two\nthree\n");
}

TEST_F(Layout, AVeryNarrowTerminalStillHasRoomForWords) {
  EXPECT_EQ(remaining(80, 29), 51u);
  EXPECT_EQ(remaining(30, 29), 20u);
  EXPECT_EQ(remaining(10, 29), 20u);
  EXPECT_EQ(remaining(anyWidth, 29), anyWidth);
}

}  // namespace
}  // namespace chassis
