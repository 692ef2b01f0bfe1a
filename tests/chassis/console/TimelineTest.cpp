#include "console/Timeline.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/Print.h"

namespace chassis {
namespace {

Event event(Place place, const std::string &what, const std::string &why, Tone tone = Tone::Plain) {
  return {EventKind::Remark, place, what, why, {}, tone};
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
  timeline().tell(event({0, 0}, "CA PMT sent: programs 101, 102", "the CAM came up"));
  EXPECT_EQ(text(), "00:00:07.010  slot 0  CAM 0  CA PMT sent: programs 101, 102" +
                        std::string(32, ' ') + "the CAM came up\n");
}

TEST_F(TimelineTest, NamesEveryKindOfPlace) {
  Timeline &line = timeline();
  line.tell(event({}, "a note", ""));
  line.tell(event({5, -1}, "no sync", ""));
  line.tell(event({5, 1}, "up", ""));
  EXPECT_EQ(text(),
            "00:00:07.010  chassis        a note\n"
            "00:00:07.010  slot 5         no sync\n"
            "00:00:07.010  slot 5  CAM 1  up\n");
}

TEST_F(TimelineTest, ALongClauseKeepsItsDistanceFromItsReason) {
  timeline().tell(event({}, std::string(70, 'w'), "y"));
  EXPECT_EQ(text(), "00:00:07.010  chassis        " + std::string(70, 'w') + "  y\n");
}

TEST_F(TimelineTest, CountsBeyondADay) {
  nowMs_ = 100ull * 3600000 + 59 * 60000 + 59999;
  timeline().tell(event({}, "late", ""));
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
  line.tell(event({}, "event", ""));
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
  timeline({true, nullptr}).tell(event({}, "bad", "", Tone::Bad));
  EXPECT_EQ(text(), "00:00:07.010  chassis        \033[31mbad\033[0m\n");
  timeline({false, nullptr}).tell(event({}, "bad", "", Tone::Bad));
  EXPECT_EQ(text(), "00:00:07.010  chassis        bad\n");
}

TEST_F(TimelineTest, AlarmsStandOutMoreThanAnythingElse) {
  timeline({true, nullptr}).tell(event({}, "ALARM", "", Tone::Alarm));
  EXPECT_EQ(text(), "00:00:07.010  chassis        \033[1;37;41mALARM\033[0m\n");
}

TEST_F(TimelineTest, ANarrowTerminalHasTheReasonBelow) {
  std::size_t width = 80;
  Timeline &line = timeline({false, [&width] { return width; }});
  line.tell(event({0, 0}, "CAM reset", "reset 1"));
  line.tell(event({0, 0}, "CAM reset", "reset 1 since its insertion"));
  line.tell(event({0, 0}, "programs 101, 102 not descrambled, cause: no entitlement", ""));
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  CAM reset                  reset 1\n"
            "00:00:07.010  slot 0  CAM 0  CAM reset\n"
            "                               reset 1 since its insertion\n"
            "00:00:07.010  slot 0  CAM 0  programs 101, 102 not descrambled, cause: no\n"
            "                               entitlement\n");
}

TEST_F(TimelineTest, FollowsTheTerminalsWidth) {
  std::size_t width = 80;
  Timeline &line = timeline({false, [&width] { return width; }});
  line.tell(event({0, 0}, "CAM reset", "reset 1 since its insertion"));
  width = 120;
  line.tell(event({0, 0}, "CAM reset", "reset 1 since its insertion"));
  width = anyWidth;
  line.tell(event({0, 0}, "CAM reset", "reset 1 since its insertion"));
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  CAM reset\n"
            "                               reset 1 since its insertion\n"
            "00:00:07.010  slot 0  CAM 0  CAM reset" +
                std::string(38, ' ') +
                "reset 1 since its insertion\n"
                "00:00:07.010  slot 0  CAM 0  CAM reset" +
                std::string(53, ' ') + "reset 1 since its insertion\n");
}

// 80 columns have room for it, though not behind the time and the place.
TEST_F(TimelineTest, ALongWordStandsFurtherLeft) {
  const std::string path = "\"" + std::string(60, 'p') + "\"";
  const std::string blanks(18, ' ');
  timeline({false, [] { return std::size_t{80}; }})
      .tell(event({0, -1}, "cardInsert 0, " + path, "script line 1"));
  EXPECT_EQ(text(), "00:00:07.010  slot 0         cardInsert 0,\n" + blanks + path +
                        "\n                               script line 1\n");
  timeline({false, [] { return std::size_t{40}; }}).tell(event({0, -1}, path, ""));
  EXPECT_EQ(text(), "00:00:07.010  slot 0\n" + path + "\n");
}

TEST_F(TimelineTest, EachRowHasItsOwnColour) {
  timeline({true, [] { return std::size_t{80}; }})
      .tell(event({0, 0}, "descrambling failure of the CAM", "alarm 0, identifiers 1", Tone::Bad));
  EXPECT_EQ(text(),
            "00:00:07.010  slot 0  CAM 0  \033[31mdescrambling failure of the CAM\033[0m\n"
            "                               \033[31malarm 0, identifiers 1\033[0m\n");
}

}  // namespace
}  // namespace chassis
