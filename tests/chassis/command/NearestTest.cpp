#include "command/Nearest.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(Nearest, EveryChangeOfACharacterIsOneStep) {
  EXPECT_EQ(editDistance("status", "status"), 0u);
  EXPECT_EQ(editDistance("status", "STATUS"), 0u);
  EXPECT_EQ(editDistance("status", "statos"), 1u);
  EXPECT_EQ(editDistance("status", "stats"), 1u);
  EXPECT_EQ(editDistance("stats", "status"), 1u);
  EXPECT_EQ(editDistance("wait", "note"), 4u);
  EXPECT_EQ(editDistance("", "abc"), 3u);
  EXPECT_EQ(editDistance("abc", ""), 3u);
}

TEST(Nearest, IsTheFirstOfTheNearest) {
  EXPECT_EQ(nearest("camDeff", {"camInsert", "camDeaf", "camDeef"}), "camDeaf");
  EXPECT_EQ(nearest("x", {}), "");
}

}  // namespace
}  // namespace chassis
