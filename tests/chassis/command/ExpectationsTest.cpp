#include "command/Expectations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "base/InputError.h"
#include "chassis/PatientSink.h"
#include "chassis/StreamWriter.h"
#include "command/Functions.h"
#include "command/ScriptRun.h"
#include "status/EventWords.h"

namespace chassis {
namespace {

using namespace testing_streams;

class Notes : public Events {
 public:
  void tell(const Event &event) override {
    if (event.kind() == EventKind::AsExpected || event.kind() == EventKind::NotAsExpected) {
      lines.push_back(wordsOf(event).what + " | " + wordsOf(event).why);
    }
  }
  std::vector<std::string> lines;
};

// A card with a program for a CAM that is there or not; the module checks it at 2 s, 3 s and so on.
class ExpectationsTest : public testing::Test {
 protected:
  // What the script, behind the line that puts the card in, does not find as expected; empty:
  // nothing. The run ends then, or with the script and all that it expects.
  std::string play(const std::string &lines) {
    std::istringstream text("cardInsert 0, \"" + file_.path() +
                            "\", 1504000\nprogAssign 0, 101, 1\n" + lines);
    ScriptRun scriptRun(readScript("x", text), chassis_, watch_);
    try {
      while (!scriptRun.isOver(clock_.elapsedMs())) {
        chassis_.run(clock_.elapsedMs() + Clock::msPerTick, scriptRun);
      }
    } catch (const Unexpected &error) {
      return error.what();
    }
    return "";
  }

  TemporaryFile file_{oneProgram()};
  Notes notes_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, notes_, loop_};
  StatusWatch watch_{chassis_, notes_};
};

TEST_F(ExpectationsTest, AProgramIsToldWithItsName) {
  Bytes stream = StreamWriter().table(0x11, sdtSection({{101, {'O', 'n', 'e'}, {}}})).bytes();
  append(stream, oneProgram());
  file_.write(stream);
  const std::string failure = play("wait 2.5\nexpectState 0, 101, \"descrambled\"");
  EXPECT_NE(failure.find("program 101 \"One\" of slot 0 is \"not measured\""), std::string::npos)
      << failure;
}

TEST_F(ExpectationsTest, WhatIsSoIsTold) {
  EXPECT_EQ(play("wait 2.5\nexpectState 0, 101, \"not measured\"\n"
                 "expectAlarm 0, 0, \"CAM absent\"\nexpectNoAlarm 0, 1, \"CAM absent\""),
            "");
  EXPECT_EQ(notes_.lines, (std::vector<std::string>{
                              "as expected: expectState 0, 101, \"not measured\" | script line 4",
                              "as expected: expectAlarm 0, 0, \"CAM absent\" | script line 5",
                              "as expected: expectNoAlarm 0, 1, \"CAM absent\" | script line 6"}));
}

TEST_F(ExpectationsTest, AStateIsToldByItsWordsOrItsCause) {
  EXPECT_EQ(play("wait 2.5"), "");
  DescStatus[0][0].progStatus = DESC_STAT_NO_ENTITLEMENT;
  watch_.lookAtLast();
  const auto isSo = [this](const std::string &state) {
    const std::vector<Function> &all = functions();
    const auto function = std::find_if(all.begin(), all.end(), [](const Function &each) {
      return std::string(each.name) == "expectState";
    });
    Values values(3);
    values[1].number = 101;
    values[2].text = state;
    return !function->differs(*watch_.snapshot(), values);
  };
  EXPECT_TRUE(isSo("no entitlement"));
  EXPECT_TRUE(isSo("not descrambled"));
  EXPECT_FALSE(isSo("descrambled"));
  EXPECT_FALSE(isSo("not measured"));
}

// The last check was at 2 s, with a thousand packets a second.
TEST_F(ExpectationsTest, NobodyWorksForThem) {
  std::uint64_t written = 0;
  chassis_.card(0).setOutput(std::make_unique<PatientSink>(written));
  EXPECT_EQ(play("wait 2.5\nexpectState 0, 101, \"not measured\"\n"
                 "expectState 0, 101, \"not measured\", 0.3\nwait 0.4"),
            "");
  EXPECT_EQ(notes_.lines.size(), 2U);
  EXPECT_EQ(written, 2000U);
}

TEST_F(ExpectationsTest, AStateIsThatOfTheLastCheck) {
  EXPECT_EQ(play("wait 2.5\nexpectState 0, 101, \"not measured\""), "");
  DescStatus[0][0].progStatus = DESC_STAT_NO_ENTITLEMENT;
  EXPECT_EQ(watch_.snapshot()->cards[0]->programs[0].status, DESC_STAT_UNKNOWN);
}

TEST_F(ExpectationsTest, WhatIsNotSoEndsTheRunWithItsLine) {
  EXPECT_EQ(play("wait 2.5\nexpectState 0, 101, \"no entitlement\"\nwait 5"),
            "x:4: expected expectState 0, 101, \"no entitlement\", but program 101 of slot 0 is "
            "\"not measured\"");
  EXPECT_EQ(clock_.elapsedMs(), 2500U);
  EXPECT_EQ(notes_.lines,
            std::vector<std::string>{"NOT as expected: expectState 0, 101, \"no entitlement\" | "
                                     "program 101 of slot 0 is \"not measured\""});
}

// The alarm is raised at 2 s and cleared when its card has gone.
TEST_F(ExpectationsTest, WithoutATimeItIsJudgedBeforeTheNextLineActs) {
  EXPECT_EQ(play("wait 3\nexpectNoAlarm 0, 0, \"CAM absent\"\ncardRemove 0\nwait 3"),
            "x:4: expected expectNoAlarm 0, 0, \"CAM absent\", but CAM 0 of slot 0 has the alarms "
            "\"CAM absent\"");
  EXPECT_EQ(clock_.elapsedMs(), 3000U);
}

TEST_F(ExpectationsTest, BeforeTheCardGoes) {
  EXPECT_EQ(play("wait 3\nexpectState 0, 101, \"not measured\"\ncardRemove 0\nwait 1"), "");
  EXPECT_EQ(notes_.lines.size(), 1U);
}

TEST_F(ExpectationsTest, ARunThatEndsBeforeHasNotShownIt) {
  std::istringstream text("cardInsert 0, \"" + file_.path() +
                          "\", 1504000\nexpectAlarm 0, 1, \"CAM absent\", 9\nwait 3\n"
                          "expectNoAlarm 0, 1, \"CAM absent\"\nwait 3\n"
                          "expectNoAlarm 0, 0, \"CAM absent\"");
  ScriptRun scriptRun(readScript("x", text), chassis_, watch_);
  chassis_.run(4000, scriptRun);
  try {
    scriptRun.close();
    FAIL() << "nothing was missing";
  } catch (const Unexpected &error) {
    EXPECT_STREQ(error.what(),
                 "x:6: expected expectNoAlarm 0, 0, \"CAM absent\", but the run ends before this "
                 "line\n"
                 "x:2: expected expectAlarm 0, 1, \"CAM absent\", 9, but CAM 1 of slot 0 has no "
                 "alarm when the run ends");
  }
  EXPECT_EQ(notes_.lines[0], "as expected: expectNoAlarm 0, 1, \"CAM absent\" | script line 4");
  EXPECT_TRUE(scriptRun.isOver(10000));
}

TEST_F(ExpectationsTest, AnAlarmThatStandsOrDoesNotIsNamed) {
  EXPECT_EQ(play("wait 2.5\nexpectNoAlarm 0, 0, \"CAM absent\""),
            "x:4: expected expectNoAlarm 0, 0, \"CAM absent\", but CAM 0 of slot 0 has the alarms "
            "\"CAM absent\"");
}

TEST_F(ExpectationsTest, NoAlarmIsCalledSo) {
  EXPECT_EQ(play("wait 1\nexpectAlarm 0, 1, \"CAM absent\""),
            "x:4: expected expectAlarm 0, 1, \"CAM absent\", but CAM 1 of slot 0 has no alarm");
}

// The alarm is raised at 2 s.
TEST_F(ExpectationsTest, ItMayComeTrueInItsTime) {
  EXPECT_EQ(play("wait 1\nexpectAlarm 0, 0, \"CAM absent\", 1\nwait 0.5\nnote \"on\""), "");
  EXPECT_EQ(notes_.lines.size(), 1U);
  EXPECT_EQ(clock_.elapsedMs(), 2010U) << "the run waits for it behind the end of the script";
}

TEST_F(ExpectationsTest, TooLateByATick) {
  EXPECT_NE(play("wait 1\nexpectAlarm 0, 0, \"CAM absent\", 0.99"), "");
  EXPECT_EQ(clock_.elapsedMs(), 2000U);
}

TEST_F(ExpectationsTest, ResetsAreCounted) {
  EXPECT_EQ(play("camInsert 0, 0, 0x0500\nwait 1\nexpectReset 0, 0, 0\n"
                 "expectReset 0, 0, 1, 2"),
            "x:6: expected expectReset 0, 0, 1, 2, but CAM 0 of slot 0 has had 0 resets");
  EXPECT_EQ(clock_.elapsedMs(), 3010U);
}

TEST_F(ExpectationsTest, OnlyTextsThatCanComeTrueAreTaken) {
  const auto errorOf = [](const std::string &line) -> std::string {
    std::istringstream text("cardInsert 0, \"f\"\n" + line);
    try {
      readScript("x", text);
    } catch (const InputError &error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_NE(errorOf("expectState 0, 101, \"fine\"")
                .find("there is no state \"fine\"; write one of \"not descrambled\", "),
            std::string::npos);
  EXPECT_NE(errorOf("expectAlarm 0, 0, \"fine\"").find("there is no fault \"fine\""),
            std::string::npos);
}

TEST(ExpectationNames, AreTheTextsThatPeopleSee) {
  const std::vector<std::string> states = stateNames();
  for (const char *name : {"descrambled", "not descrambled", "no entitlement", "ECMs missing",
                           "ECMs damaged", "technical refusal", "not measured"}) {
    EXPECT_EQ(std::count(states.begin(), states.end(), name), 1) << name;
  }
  EXPECT_EQ(alarmNames().size(), 5U);
}

}  // namespace
}  // namespace chassis
