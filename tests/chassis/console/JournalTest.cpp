#include "console/Journal.h"

#include <gtest/gtest.h>

#include <ostream>

namespace chassis {
namespace {

TEST(Journal, ShowsWholeLinesOnly) {
  std::string shown;
  Journal journal([&shown](const std::string &text) { shown += text; });
  std::ostream stream(&journal);
  stream << "a half" << std::flush;
  EXPECT_EQ(shown, "");
  EXPECT_TRUE(journal.lines().empty());
  stream << " line\nand" << std::flush;
  EXPECT_EQ(shown, "a half line\n");
  stream << '\n' << std::flush;
  EXPECT_EQ(shown, "a half line\nand\n");
  EXPECT_EQ(journal.lines().size(), 2u);
  EXPECT_EQ(journal.lines().back(), "and");
}

TEST(Journal, AnEventOfSeveralRowsIsOne) {
  Journal journal([](const std::string &) {});
  std::ostream stream(&journal);
  stream << "what\n  why\n" << std::flush;
  stream << "other\n" << std::flush;
  ASSERT_EQ(journal.lines().size(), 2u);
  EXPECT_EQ(journal.lines().front(), "what\n  why");
}

TEST(Journal, ForgetsTheOldestLines) {
  Journal journal([](const std::string &) {});
  std::ostream stream(&journal);
  for (std::size_t i = 0; i <= Journal::capacity; ++i) {
    stream << i << "\n" << std::flush;
  }
  EXPECT_EQ(journal.lines().size(), Journal::capacity);
  EXPECT_EQ(journal.lines().front(), "1");
}

}  // namespace
}  // namespace chassis
