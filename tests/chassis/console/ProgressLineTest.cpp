#include "console/ProgressLine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>

using chassis::Progress;
using chassis::ProgressLine;
using chassis::ProgressPace;

namespace {

using std::chrono::milliseconds;

constexpr int columns = 40;

class ProgressLineTest : public testing::Test {
 protected:
  ProgressLineTest() {
    winsize size{};
    size.ws_col = columns;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, &size), 0);
    fcntl(master, F_SETFL, O_NONBLOCK);
  }
  ~ProgressLineTest() override {
    close(master);
    close(slave);
  }

  std::string seen() const {
    std::array<char, 1000> buffer{};
    const ssize_t size = read(master, buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
  }
  // Shows it until it stands there, with a bound.
  std::string shown(ProgressLine &line, const Progress &progress) const {
    std::string text;
    for (int i = 0; i < 3000 && text.empty(); ++i) {
      line.show(progress);
      text = seen();
      usleep(10000);
    }
    return text;
  }

  int master = -1;
  int slave = -1;
};

}  // namespace

TEST(ProgressPace, WhatIsOverSoonIsNotTold) {
  ProgressPace pace(std::chrono::hours(1), milliseconds(0));
  EXPECT_FALSE(pace.due({"reading", 1, 10}));
  EXPECT_FALSE(pace.due({"reading", 9, 10}));
  ProgressPace at(milliseconds(0), std::chrono::hours(1));
  EXPECT_TRUE(at.due({"reading", 1, 10}));
  EXPECT_FALSE(at.due({"reading", 2, 10}));
  EXPECT_TRUE(at.due({"reading", 1, 10}));  // begun again
  EXPECT_TRUE(at.due({"writing", 5, 10}));  // other work
}

TEST(ProgressText, TellsAPartOfAHundredWhereItCan) {
  EXPECT_EQ(chassis::progressText({"reading 'x'", 1, 3}), "reading 'x': 33 %");
  EXPECT_EQ(chassis::progressText({"time", 1, 4, "1 s of 4 s"}), "time 1 s of 4 s: 25 %");
  EXPECT_EQ(chassis::progressText({"waiting", 0, 0}), "waiting");
}

TEST_F(ProgressLineTest, TheLineGoesWhenTheWorkIsDone) {
  ProgressLine line(slave);
  EXPECT_EQ(shown(line, {"reading", 1, 4}), "reading: 25 %");
  line.show({"reading", 4, 4});
  EXPECT_EQ(seen(), "\r" + std::string(13, ' ') + "\r");
  line.clear();
  EXPECT_EQ(seen(), "");
}

TEST_F(ProgressLineTest, ALineThatDoesNotFitIsShort) {
  ProgressLine line(slave);
  EXPECT_EQ(shown(line, {std::string(columns, 'x'), 1, 4}), "25 %");
}

TEST(ProgressLine, APipeGetsNothing) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  {
    ProgressLine line(ends[1]);
    for (int i = 1; i < 80; ++i) {
      line.show({"reading", 1, 4});
      usleep(10000);
    }
  }
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  close(ends[0]);
  close(ends[1]);
}
