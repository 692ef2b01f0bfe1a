#include "command/ScriptRun.h"

#include <gtest/gtest.h>

#include <sstream>

#include "base/InputError.h"
#include "status/EventWords.h"

namespace chassis {
namespace {

class RecordedEvents : public Events {
 public:
  void tell(const Event &event) override {
    lines.push_back(std::to_string(event.place.slot) + "/" + std::to_string(event.place.cam) + " " +
                    wordsOf(event).what + " | " + wordsOf(event).why);
  }
  std::vector<std::string> lines;
};

class ScriptRunTest : public testing::Test {
 protected:
  ScriptRun scriptRun(const std::string &text) {
    std::istringstream lines(text);
    return ScriptRun(readScript("x", lines), chassis_, watch_);
  }

  RecordedEvents events_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
  StatusWatch watch_{chassis_, events_};
};

using Lines = std::vector<std::string>;

TEST_F(ScriptRunTest, WaitsAddUp) {
  ScriptRun scriptRun =
      this->scriptRun("note \"a\"\nwait 1.5\nnote \"b\"\nwait 2\nwait 0.5\nnote \"c\"");
  EXPECT_EQ(scriptRun.endMs(), 4000U);
  EXPECT_EQ(scriptRun.nextMs(), 0U);
  scriptRun.runDue(0);
  EXPECT_EQ(events_.lines, Lines{"-1/-1 a | "});
  EXPECT_EQ(scriptRun.nextMs(), 1500U);
  scriptRun.runDue(1499);
  EXPECT_EQ(events_.lines.size(), 1U);
  scriptRun.runDue(1500);
  EXPECT_EQ(events_.lines.size(), 2U);
  EXPECT_EQ(scriptRun.nextMs(), 3500U);
  scriptRun.runDue(3999);
  EXPECT_EQ(events_.lines.size(), 2U);
  EXPECT_EQ(scriptRun.nextMs(), 4000U);
  scriptRun.runDue(10000);
  EXPECT_EQ(events_.lines, (Lines{"-1/-1 a | ", "-1/-1 b | ", "-1/-1 c | "}));
  EXPECT_EQ(scriptRun.nextMs(), std::nullopt);
}

TEST_F(ScriptRunTest, AWaitAtTheEndCounts) {
  EXPECT_EQ(scriptRun("note \"a\"\nwait 7").endMs(), 7000U);
  EXPECT_EQ(scriptRun("").endMs(), 0U);
  EXPECT_EQ(scriptRun("").nextMs(), std::nullopt);
}

TEST_F(ScriptRunTest, AFailingLineIsNamed) {
  ScriptRun scriptRun = this->scriptRun("note \"a\"\n\ncardInsert(3, \"/no/such/stream\")");
  try {
    scriptRun.runDue(0);
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
