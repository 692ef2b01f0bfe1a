#include "platform/Print.h"

#include <gtest/gtest.h>

#include "CiPlatform.h"
#include "platform/Binding.h"

namespace chassis {
namespace {

class ConsoleTest : public testing::Test {
 protected:
  void SetUp() override {
    printing_ = binding_.onPrinted([this](ConsolePort port, const std::string &line) {
      lines_[static_cast<std::size_t>(port)].push_back(line);
    });
  }

  using Lines = std::vector<std::string>;
  const Lines &printed() const { return lines_[0]; }
  const Lines &debugged() const { return lines_[1]; }

  Binding binding_{{}};
  Printing printing_;

 private:
  std::array<Lines, 2> lines_;
};

TEST_F(ConsoleTest, EveryEndOfLine) {
  modulePrintf("one\n");
  modulePrintf("two\n\r ");
  modulePrintf("three\r\n");
  modulePrintf("four\n");
  EXPECT_EQ(printed(), (Lines{"one", "two", "three", "four"}));
}

TEST_F(ConsoleTest, PutsPiecesTogether) {
  modulePrintf("a");
  modulePrintf(" b");
  EXPECT_TRUE(printed().empty());
  modulePrintf(" c\nd\ne");
  EXPECT_EQ(printed(), (Lines{"a b c", "d"}));
  modulePrintf("\n");
  EXPECT_EQ(printed(), (Lines{"a b c", "d", "e"}));
}

TEST_F(ConsoleTest, KeepsBlanksThatBelongToTheLine) {
  modulePrintf("head\n");
  modulePrintf("    pid=0x%x \n", 0x101);
  modulePrintf("sent\n\r ");
  modulePrintf("  two\n");
  EXPECT_EQ(printed(), (Lines{"head", "    pid=0x101 ", "sent", "  two"}));
}

TEST_F(ConsoleTest, BothPortsAreApart) {
  modulePrintf("print ");
  bbPrintf("debug %d\n", 7);
  modulePrintf("goes on\n");
  EXPECT_EQ(printed(), Lines{"print goes on"});
  EXPECT_EQ(debugged(), Lines{"debug 7"});
}

TEST_F(ConsoleTest, AnswersTheLengthAsPrintfDoes) {
  EXPECT_EQ(modulePrintf("%s\n", std::string(5000, 'x').c_str()), 5001);
  ASSERT_EQ(printed().size(), 1u);
  EXPECT_EQ(printed()[0].size(), 5000u);
}

TEST_F(ConsoleTest, DropsWithoutAListenerAndForgetsTheOpenLine) {
  modulePrintf("open");
  printing_ = nullptr;
  EXPECT_EQ(modulePrintf("lost\n"), 5);
  SetUp();
  modulePrintf("new\n");
  EXPECT_EQ(printed(), Lines{"new"});
}

TEST_F(ConsoleTest, ANewListenerBeginsWithANewLine) {
  modulePrintf("of the one before");
  bbPrintf("of the one before");
  SetUp();
  modulePrintf("new\n");
  bbPrintf("new\n");
  EXPECT_EQ(printed(), Lines{"new"});
  EXPECT_EQ(debugged(), Lines{"new"});
}

TEST(ConsoleUnbound, DropsAndAnswersTheLength) {
  EXPECT_EQ(modulePrintf("lost\n"), 5);
  EXPECT_EQ(bbPrintf("%d\n", 12), 3);
}

}  // namespace
}  // namespace chassis
