#include "console/Completion.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

const std::vector<std::string> names{"camAlarm", "camAlarmCheck", "status"};

TEST(Completion, TheOnlyNameIsFinished) {
  const Completion completion = complete("st", names);
  EXPECT_EQ(completion.insert, "atus ");
  EXPECT_TRUE(completion.choices.empty());
}

TEST(Completion, SeveralNamesGetWhatTheyShare) {
  const Completion completion = complete("ca", names);
  EXPECT_EQ(completion.insert, "mAlarm");
  EXPECT_EQ(completion.choices.size(), 2u);
}

TEST(Completion, NothingMoreIsShared) {
  const Completion completion = complete("camAlarm", names);
  EXPECT_EQ(completion.insert, "");
  EXPECT_EQ(completion.choices.size(), 2u);
}

TEST(Completion, AlsoBehindOtherWords) {
  EXPECT_EQ(complete("help sta", names).insert, "tus ");
}

TEST(Completion, NotWhereNoNameStands) {
  for (const char *before : {"", "x", "note \"st", "# st", "camAlarm 5", "status "}) {
    const Completion completion = complete(before, names);
    EXPECT_EQ(completion.insert, "") << before;
    EXPECT_TRUE(completion.choices.empty()) << before;
  }
}

TEST(Completion, Columns) {
  EXPECT_EQ(inColumns({"a", "bcd", "e"}, 11), "a    bcd\ne\n");
  EXPECT_EQ(inColumns({"abcdef", "g"}, 3), "abcdef\ng\n");
  EXPECT_EQ(inColumns({}, 80), "");
}

}  // namespace
}  // namespace chassis
