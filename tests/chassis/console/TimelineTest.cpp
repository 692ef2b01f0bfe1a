#include "console/Timeline.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/Print.h"

namespace chassis {
namespace {

Event remark(Place place, const std::string &what) {
  return {place, event::Remark{{what}}};
}

// Its reason is its line.
Event scriptLine(Place place, const std::string &what) {
  return {place, event::ScriptLine{what, 1}};
}

const Event cameReset{{0, 0}, event::CamReset{{1}}};

Event missed(const std::string &what, const std::string &why) {
  return {{0, 0}, event::NotAsExpected{what, 1, why}};
}

class TimelineTest : public testing::Test {
 protected:
  Timeline &timeline(Timeline::Config config = {}) {
    timeline_ = std::make_unique<Timeline>(out_, config, [this] { return nowMs_; });
    return *timeline_;
  }
  std::string text() {
    std::string text = out_.str();
    out_.str("");
    return text;
  }

  std::uint64_t nowMs_ = 7010;

 private:
  std::ostringstream out_;
  std::unique_ptr<Timeline> timeline_;
};

TEST_F(TimelineTest, AlignsTimePlaceWhatAndWhy) {
  timeline().tell(scriptLine({0, 0}, "CA PMT sent: programs 101, 102"));
  EXPECT_EQ(text(), "00:00:07.010  slot 0  CAM 0  CA PMT sent: programs 101, 102" +
                        std::string(32, ' ') + "script line 1\n");
}

TEST_F(TimelineTest, NamesEveryKindOfPlace) {
  Timeline &line = timeline();
  line.tell(remark({}, "a note"));
  line.tell(remark({5, -1}, "no sync"));
  line.tell(remark({5, 1}, "up"));
  EXPECT_EQ(text(),
            "00:00:07.010  chassis        a note\n"
            "00:00:07.010  slot 5         no sync\n"
            "00:00:07.010  slot 5  CAM 1  up\n");
}

TEST_F(TimelineTest, ALongClauseKeepsItsDistanceFromItsReason) {
  timeline().tell(scriptLine({}, std::string(70, 'w')));
  EXPECT_EQ(text(), "00:00:07.010  chassis        " + std::string(70, 'w') + "  script line 1\n");
}

TEST_F(TimelineTest, CountsBeyondADay) {
  nowMs_ = 100ull * 3600000 + 59 * 60000 + 59999;
  timeline().tell(remark({}, "late"));
  EXPECT_EQ(text(), "100:59:59.999  chassis        late\n");
}

TEST_F(TimelineTest, CollapsesImmediateRepeatsOfTheConsole) {
  Timeline &line = timeline();
  for (nowMs_ = 1000; nowMs_ <= 4000; nowMs_ += 1000) {
    line.tell(printed(ConsolePort::Print, "again"));
  }
  line.tell(printed(ConsolePort::Print, "other"));
  line.tell(printed(ConsolePort::Print, "again"));
  line.tell(printed(ConsolePort::Print, "again"));
  line.tell(remark({}, "event"));
  line.tell(printed(ConsolePort::Print, "again"));
  line.flush();
  EXPECT_EQ(text(),
            "00:00:01.000  module         again\n"
            "00:00:04.000  module         (3 repeats)\n"
            "00:00:05.000  module         other\n"
            "00:00:05.000  module         (2 repeats of the lines above)\n"
            "00:00:05.000  chassis        event\n"
            "00:00:05.000  module         again\n");
}

TEST_F(TimelineTest, TellsDebugPrintsFromThoseForPeople) {
  timeline().tell(printed(ConsolePort::Debug, "inside"));
  EXPECT_EQ(text(), "00:00:07.010  module debug   inside\n");
}

TEST_F(TimelineTest, ColourAddsNothingButEscapes) {
  timeline({true, nullptr}).tell(missed("bad", ""));
  EXPECT_EQ(text(), "00:00:07.010  slot 0  CAM 0  \033[31mNOT as expected: bad\033[0m\n");
  timeline({false, nullptr}).tell(missed("bad", ""));
  EXPECT_EQ(text(), "00:00:07.010  slot 0  CAM 0  NOT as expected: bad\n");
}

TEST_F(TimelineTest, AlarmsStandOutMoreThanAnythingElse) {
  timeline({true, nullptr}).tell({{}, event::AlarmNotRaised{{"", "CAM absent", ""}}});
  EXPECT_EQ(text(), "00:00:07.010  chassis        \033[1;37;41mALARM not raised: CAM absent" +
                        std::string(34, ' ') + "the alarm service fails\033[0m\n");
}

TEST_F(TimelineTest, ANarrowTerminalHasTheReasonBelow) {
  std::size_t width = 80;
  Timeline &line = timeline({false, [&width] { return width; }});
  line.tell(scriptLine({0, 0}, "CAM reset"));
  line.tell(cameReset);
  line.tell(remark({0, 0}, "programs 101, 102 not descrambled, cause: no entitlement"));
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  CAM reset                  script line 1\n"
            "00:00:07.010  slot 0  CAM 0  RESET of the CAM\n"
            "                               reset 1 since its insertion\n"
            "00:00:07.010  slot 0  CAM 0  programs 101, 102 not descrambled, cause: no\n"
            "                               entitlement\n");
}

TEST_F(TimelineTest, FollowsTheTerminalsWidth) {
  std::size_t width = 80;
  Timeline &line = timeline({false, [&width] { return width; }});
  line.tell(cameReset);
  width = 120;
  line.tell(cameReset);
  width = anyWidth;
  line.tell(cameReset);
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  RESET of the CAM\n"
            "                               reset 1 since its insertion\n"
            "00:00:07.010  slot 0  CAM 0  RESET of the CAM" +
                std::string(31, ' ') +
                "reset 1 since its insertion\n"
                "00:00:07.010  slot 0  CAM 0  RESET of the CAM" +
                std::string(46, ' ') + "reset 1 since its insertion\n");
}

// 80 columns have room for it, though not behind the time and the place.
TEST_F(TimelineTest, ALongWordStandsFurtherLeft) {
  const std::string path = "\"" + std::string(60, 'p') + "\"";
  const std::string blanks(18, ' ');
  timeline({false, [] { return std::size_t{80}; }})
      .tell(scriptLine({0, -1}, "cardInsert 0, " + path));
  EXPECT_EQ(text(), "00:00:07.010  slot 0         cardInsert 0,\n" + blanks + path +
                        "\n                               script line 1\n");
  timeline({false, [] { return std::size_t{40}; }}).tell(remark({0, -1}, path));
  EXPECT_EQ(text(), "00:00:07.010  slot 0\n" + path + "\n");
}

TEST_F(TimelineTest, EachRowHasItsOwnColour) {
  timeline({true, [] { return std::size_t{80}; }})
      .tell(missed("an alarm of the CAM", "it has another one"));
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  \033[31mNOT as expected: an alarm of the CAM\033[0m\n"
            "                               \033[31mit has another one\033[0m\n");
}

}  // namespace
}  // namespace chassis
