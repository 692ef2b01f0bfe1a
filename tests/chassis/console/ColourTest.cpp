#include "console/Colour.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(Colour, IsForTerminals) {
  EXPECT_TRUE(wantsColour(true, nullptr, "xterm"));
  EXPECT_FALSE(wantsColour(false, nullptr, "xterm"));
}

TEST(Colour, NoColorCountsWhenItSaysSomething) {
  EXPECT_FALSE(wantsColour(true, "1", "xterm"));
  EXPECT_FALSE(wantsColour(true, "0", "xterm"));
  EXPECT_TRUE(wantsColour(true, "", "xterm"));
}

TEST(Colour, ATerminalThatHasNoneGetsNone) {
  EXPECT_FALSE(wantsColour(true, nullptr, "dumb"));
  EXPECT_FALSE(wantsColour(true, "", "dumb"));
  EXPECT_FALSE(wantsColour(true, nullptr, ""));
  EXPECT_FALSE(wantsColour(true, nullptr, nullptr));
  EXPECT_TRUE(wantsColour(true, nullptr, "dumber"));
}

TEST(Colour, CodesAreForTerminalsThatKnowThem) {
  EXPECT_TRUE(takesCodes("xterm"));
  EXPECT_FALSE(takesCodes("dumb"));
  EXPECT_FALSE(takesCodes(""));
  EXPECT_FALSE(takesCodes(nullptr));
}

}  // namespace
}  // namespace chassis
