#include "command/Player.h"

#include <gtest/gtest.h>

#include <sstream>

#include "base/InputError.h"

namespace chassis {
namespace {

class RecordedEvents : public Events {
 public:
  void tell(const Event &event) override {
    lines.push_back(std::to_string(event.place.slot) + "/" + std::to_string(event.place.cam) + " " +
                    event.what + " | " + event.why);
  }
  std::vector<std::string> lines;
};

class PlayerTest : public testing::Test {
 protected:
  Player player(const std::string &text) {
    std::istringstream lines(text);
    return Player(readScript("x", lines), chassis_);
  }

  RecordedEvents events_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
};

using Lines = std::vector<std::string>;

TEST_F(PlayerTest, WaitsAddUp) {
  Player player = this->player("note \"a\"\nwait 1.5\nnote \"b\"\nwait 2\nwait 0.5\nnote \"c\"");
  EXPECT_EQ(player.endMs(), 4000U);
  EXPECT_EQ(player.nextMs(), 0U);
  player.runDue(0);
  EXPECT_EQ(events_.lines, Lines{"-1/-1 a | "});
  EXPECT_EQ(player.nextMs(), 1500U);
  player.runDue(1499);
  EXPECT_EQ(events_.lines.size(), 1U);
  player.runDue(1500);
  EXPECT_EQ(events_.lines.size(), 2U);
  EXPECT_EQ(player.nextMs(), 3500U);
  player.runDue(3999);
  EXPECT_EQ(events_.lines.size(), 2U);
  EXPECT_EQ(player.nextMs(), 4000U);
  player.runDue(10000);
  EXPECT_EQ(events_.lines, (Lines{"-1/-1 a | ", "-1/-1 b | ", "-1/-1 c | "}));
  EXPECT_EQ(player.nextMs(), std::nullopt);
}

TEST_F(PlayerTest, AWaitAtTheEndCounts) {
  EXPECT_EQ(player("note \"a\"\nwait 7").endMs(), 7000U);
  EXPECT_EQ(player("").endMs(), 0U);
  EXPECT_EQ(player("").nextMs(), std::nullopt);
}

TEST_F(PlayerTest, AFailingLineIsNamed) {
  Player player = this->player("note \"a\"\n\ncardInsert(3, \"/no/such/stream\")");
  try {
    player.runDue(0);
    FAIL();
  } catch (const InputError &error) {
    EXPECT_EQ(std::string(error.what()).rfind("x:3: ", 0), 0U) << error.what();
    EXPECT_NE(std::string(error.what()).find("/no/such/stream"), std::string::npos);
  }
  EXPECT_EQ(events_.lines,
            (Lines{"-1/-1 a | ", "3/-1 cardInsert 3, \"/no/such/stream\" | script line 3"}));
}

}  // namespace
}  // namespace chassis
