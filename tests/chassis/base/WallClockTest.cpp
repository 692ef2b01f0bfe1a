#include "base/WallClock.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(WallClock, IsUtcWithMilliseconds) {
  EXPECT_EQ(wallClockText(0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(wallClockText(999), "1970-01-01T00:00:00.999Z");
  EXPECT_EQ(wallClockText(1582934400000 + 86399001), "2020-02-29T23:59:59.001Z");
  EXPECT_GT(wallClockMs(), 1795000000000);
}

}  // namespace
}  // namespace chassis
