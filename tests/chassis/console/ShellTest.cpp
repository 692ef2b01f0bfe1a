#include "console/Shell.h"

#include <random>

#include "ConsoleRig.h"
#include "alarms/AlarmText.h"

namespace chassis {
namespace {

using ShellTest = ConsoleRig;

TEST_F(ShellTest, BothWaysToWriteACall) {
  EXPECT_EQ(ask("test_bit \"04\", 2"), "value = 1 = 0x1\n");
  EXPECT_EQ(ask("  test_bit( \"04\" , 0x2 )  # bit 2"), "value = 1 = 0x1\n");
  EXPECT_EQ(ask(""), "");
  EXPECT_EQ(ask("# nothing"), "");
}

TEST_F(ShellTest, CallsCarryTheirTimeIntoTheTimeline) {
  insertCard();
  runFor(1000);
  ask("PllReg(0, 5)");
  const std::string line = journal_.lines().back();
  EXPECT_TRUE(has(line, "slot 0")) << line;
  EXPECT_TRUE(has(line, "PllReg 0, 5")) << line;
  EXPECT_TRUE(has(line, "console")) << line;
  EXPECT_EQ(line.rfind("00:00:03.", 0), 0u) << line;
}

TEST_F(ShellTest, WhatTheModulePrintsIsTheAnswer) {
  const std::string answer = ask("ci_Help");
  EXPECT_EQ(std::count(answer.begin(), answer.end(), '\n'), 13);
  EXPECT_EQ(ask("printCiIfVer"), "CI Interface Version is V3.0.1.1 \n");
  EXPECT_EQ(ask("printCiIfVer"), "CI Interface Version is V3.0.1.1 \n");
}

TEST_F(ShellTest, DebugPrintsAreNoAnswer) {
  insertCard();
  ask("progAssign 0, 101, 1");
  runFor(2000);
  std::size_t prints = 0;
  printing_ = chassis_.onPrinted([this, &prints](ConsolePort port, const std::string &line) {
    prints += port == ConsolePort::Debug ? 1U : 0U;
    EXPECT_EQ(shell_.takePrint(port, line), port == ConsolePort::Print) << line;
  });
  EXPECT_EQ(ask("getSlotDescPidInfo 0"), "");
  EXPECT_EQ(prints, 2U) << "one for each stream";
}

TEST_F(ShellTest, UnknownNamesGetTheNearest) {
  EXPECT_TRUE(has(ask("camstatuscheck 0"), "did you mean camStatusCheck?"));
  EXPECT_TRUE(has(ask("statsu"), "did you mean status?"));
  EXPECT_TRUE(has(ask("TIME_RESETT"), "did you mean TIME_RESET?"));
  EXPECT_TRUE(has(ask("TIME_REST = 1"), "did you mean TIME_RESET?"));
  EXPECT_TRUE(has(ask("help camAlrm"), "did you mean camAlarm?"));
}

TEST_F(ShellTest, CommandsOfTheConsoleTakeNoMoreThanTheyNeed) {
  for (const char *line :
       {"help status, alarms", "status 0, 1", "alarms 1", "events 1, 2", "exit 1", "quit 1"}) {
    EXPECT_TRUE(has(ask(line), "arguments")) << line << ": " << answer_;
    EXPECT_TRUE(isOneErrorLine(answer_)) << line;
  }
  EXPECT_FALSE(shell_.exited());
}

TEST_F(ShellTest, FunctionsOfTheChassisNeedTheirCardAndCam) {
  EXPECT_TRUE(has(ask("progAssign 0, 101, 1"), "no card is in slot 0"));
  insertCard();
  EXPECT_TRUE(has(ask("camEntitle 0, 0, 101, 1"), "no CAM is in 0, 0"));
  EXPECT_TRUE(has(ask("progAssign 0, 7, 1"), "program 7 is not in the stream"));
  EXPECT_TRUE(has(ask("cardInsert 1, \"nowhere.ts\""), "nowhere.ts"));
  EXPECT_TRUE(isOneErrorLine(answer_));
}

TEST_F(ShellTest, AWaitHoldsBackTheLinesBehindIt) {
  ask("wait 5");
  const std::uint64_t began = clock_.elapsedMs();
  EXPECT_EQ(ask("printCiIfVer"), "");
  runFor(5000);
  EXPECT_TRUE(has(answer_, "V3.0.1.1"));
  EXPECT_GE(clock_.elapsedMs(), began + 5000);
}

// Until the start-up task is over, at 2 s.
TEST_F(ShellTest, ACallOfTheModuleWaitsForTheSupervisionTaskAndSaysSo) {
  agenda_.type("printCiIfVer");
  agenda_.type("status");
  const auto listening = clock_.onTick([this](std::uint64_t ms) {
    if (ms == 500) {
      EXPECT_FALSE(has(answer_, "supervision task")) << "not yet";
    }
    if (ms == 510) {
      EXPECT_TRUE(has(answer_, "chassis time 00:00:00.000\n"))
          << "a list does not wait: " << answer_;
      EXPECT_TRUE(
          has(answer_, "the supervision task is in a pause; it runs printCiIfVer behind it\n"));
    }
    if (ms == 1990) {
      EXPECT_FALSE(has(answer_, "V3.0.1.1"));
    }
  });
  runFor(2500);
  EXPECT_TRUE(has(answer_, "V3.0.1.1"));
  EXPECT_EQ(answer_.find("supervision task"), answer_.rfind("supervision task")) << "told once";
}

TEST_F(ShellTest, WhatHappensToTheChassisDoesNotWait) {
  insertCard();
  ask("camInsert 0, 0, 0x0500");
  ask("progAssign 0, 101, 1");
  const auto listening = clock_.onTick([this](std::uint64_t) {
    if (chassis_.supervising() && chassis_.booted() && answer_.empty()) {
      answer_ = "typed";
      agenda_.type("pidDrop 0, 0x201, 1");
      agenda_.type("TIME_RESET");
    }
  });
  while (answer_.empty()) {
    runFor(Clock::msPerTick);
  }
  EXPECT_TRUE(has(answer_, "value = "));
}

TEST_F(ShellTest, InTurnALineWaitsForTheAnswerBeforeIt) {
  RunAgenda inTurn(scriptRun_, shell_, RunAgenda::Order::InTurn, nullptr);
  inTurn.type("printCiIfVer");
  inTurn.type("status");
  chassis_.run(1000, inTurn);
  EXPECT_LT(answer_.find("V3.0.1.1"), answer_.find("chassis time 00:00:02.000")) << answer_;
}

TEST_F(ShellTest, AWaitCanBeBrokenOff) {
  EXPECT_FALSE(agenda_.breakOff(clock_.elapsedMs()));
  ask("wait 1000");
  ask("TIME_RESET = 4711");
  EXPECT_TRUE(agenda_.breakOff(clock_.elapsedMs()));
  EXPECT_FALSE(agenda_.breakOff(clock_.elapsedMs()));
  EXPECT_TRUE(has(ask("printCiIfVer"), "V3.0.1.1"));
  EXPECT_FALSE(has(ask("TIME_RESET"), "4711"));
}

// In the pause of the start-up task.
TEST_F(ShellTest, ACallThatWaitsForTheSupervisionTaskCanBeBrokenOff) {
  agenda_.type("printCiIfVer");
  bool broken = false;
  const auto listening = clock_.onTick([this, &broken](std::uint64_t ms) {
    broken = broken || (ms == 600 && agenda_.breakOff(ms));
  });
  runFor(2500);
  EXPECT_TRUE(broken);
  EXPECT_FALSE(has(answer_, "V3.0.1.1")) << answer_;
}

TEST_F(ShellTest, AFaultIsOfTheCamThatIsNamed) {
  insertCard();
  ask("camInsert 0, 1, 0x0500");
  ask("camDeaf 0, 1, 1");
  EXPECT_TRUE(has(journal_.lines().back(), "slot 0  CAM 1")) << journal_.lines().back();
  EXPECT_TRUE(has(journal_.lines().back(), "CAM goes deaf")) << journal_.lines().back();
}

TEST_F(ShellTest, WhatActsOnNothingIsTold) {
  insertCard();
  ask("camInsert 0, 0, 0x0500");
  ask("pidDrop 0, 0x1F00, 1");
  EXPECT_TRUE(has(journal_.lines().back(), "nothing changes: PID 0x1F00 is not in the stream"));
  ask("pidDamage 0, 0x201, 1");
  EXPECT_FALSE(has(journal_.lines().back(), "nothing changes"));
  for (const char *call : {"camEntitle 0, 0, 101, 0", "camRefuse 0, 0, 101, 1"}) {
    ask(call);
    EXPECT_TRUE(has(journal_.lines().back(),
                    "nothing changes yet: program 101 is not assigned to this CAM"));
  }
  ask("progAssign 0, 101, 1");
  ask("camEntitle 0, 0, 101, 1");
  EXPECT_FALSE(has(journal_.lines().back(), "nothing changes"));
}

TEST_F(ShellTest, ALineMayNotBeEndless) {
  EXPECT_TRUE(isOneErrorLine(ask(std::string(longestLine + 1, 'a'))));
}

TEST_F(ShellTest, HelpHasOneLineForEachName) {
  const std::string help = ask("help");
  for (const std::string &name : Shell::names()) {
    const std::string one = ask("help " + name);
    EXPECT_EQ(one.rfind("  " + name, 0), 0u) << name << ": " << one;
    EXPECT_TRUE(has(help, one)) << name;
  }
}

TEST_F(ShellTest, HelpStandsInItsColumnOrTwoBlanksBehindALongCall) {
  EXPECT_EQ(ask("help quit"), "  quit" + std::string(42, ' ') + "the same as exit\n");
  EXPECT_EQ(ask("help expectState"),
            "  expectState slot, program, \"state\"[, seconds]  a program is in this state, or has "
            "this cause, now or within a time\n");
}

TEST_F(ShellTest, StatusAtAGlance) {
  EXPECT_TRUE(has(ask("status"), "no card is in"));
  EXPECT_TRUE(isOneErrorLine(ask("status 0")));
  EXPECT_TRUE(isOneErrorLine(ask("status 6")));
  insertCard();
  ask("progAssign 0, 101, 1");
  ask("camInsert 0, 0, 0x0500, 0x0B00");
  runFor(8000);
  const std::string status = ask("status");
  EXPECT_TRUE(has(status, "usable (0x01)")) << status;
  EXPECT_TRUE(has(status, "0x0500 0x0B00")) << status;
  EXPECT_TRUE(has(status, "in sync and carrying traffic (0x00)")) << status;
  EXPECT_TRUE(has(status, "present (0x00)")) << status;
  EXPECT_EQ(std::count(status.begin(), status.end(), '\n'), 5) << status;
  const std::string detail = ask("status 0");
  EXPECT_TRUE(has(detail, "0x0201")) << detail;
  EXPECT_TRUE(has(detail, "last CA PMT")) << detail;
}

TEST_F(ShellTest, StatusIsWhatTheLastCheckFound) {
  ask("alarms");
  insertCard();
  EXPECT_TRUE(has(ask("status"), "not yet")) << answer_;
  EXPECT_TRUE(has(answer_, "not checked (0xFF)")) << answer_;
  EXPECT_EQ(ask("status 0"),
            "slot 0: the module has not checked this card yet; its stream carries 101\n");
  runFor(1000);
  EXPECT_TRUE(has(ask("status"), "00:00:03.000")) << answer_;
  EXPECT_TRUE(has(ask("status 0"), "slot 0 at 00:00:03.000")) << answer_;
  insertCard();
  EXPECT_TRUE(has(ask("status"), "not yet")) << "another card";
}

TEST_F(ShellTest, StatusHasAnAlarmOnlyAtItsOwnCam) {
  insertCard();
  ask("cardInsert 1, \"" + file_.path() + "\", 1504000");
  ask("progAssign 0, 101, 1");
  runFor(3000);
  ASSERT_EQ(chassis_.alarms().active().size(), 1U);
  const std::string fault = alarmFault(chassis_.alarms().active().begin()->second.record);
  const std::string status = ask("status");
  const std::size_t at = status.find(fault);
  ASSERT_NE(at, std::string::npos) << status;
  EXPECT_EQ(status.find(fault, at + 1), std::string::npos) << status;
}

TEST_F(ShellTest, AlarmsStandingAndPast) {
  EXPECT_EQ(ask("alarms"), "no alarm stands\nno alarm has stood before\n");
  insertCard();
  ask("progAssign 0, 101, 1");
  runFor(2000);
  EXPECT_TRUE(has(ask("alarms"), "CAM 0: CAM absent"));
  ask("camInsert 0, 0, 0x0500");
  runFor(20000);
  const std::string alarms = ask("alarms");
  EXPECT_TRUE(has(alarms.substr(alarms.find("history:")), "CAM 0: CAM absent")) << alarms;
}

TEST_F(ShellTest, EventsAreTheLastLines) {
  EXPECT_EQ(ask("events"), "no event yet\n");
  ask("note \"one\"");
  ask("note \"two\"");
  EXPECT_TRUE(has(ask("events 1"), "two"));
  EXPECT_FALSE(has(answer_, "one"));
  EXPECT_TRUE(has(ask("events"), "one"));
  EXPECT_TRUE(isOneErrorLine(ask("events 0")));
  EXPECT_TRUE(isOneErrorLine(ask("events 1001")));
  for (int i = 0; i < 25; ++i) {
    ask("note \"another\"");
  }
  ask("events");
  EXPECT_EQ(std::count(answer_.begin(), answer_.end(), '\n'), 20);
}

TEST_F(ShellTest, ExitEnds) {
  EXPECT_FALSE(shell_.exited());
  ask("exit");
  EXPECT_TRUE(shell_.exited());
  EXPECT_EQ(ask("printCiIfVer"), "");
}

TEST_F(ShellTest, QuitEndsToo) {
  ask("quit");
  EXPECT_TRUE(shell_.exited());
}

TEST_F(ShellTest, ACallIsShownWithItsQuotes) {
  ask(R"(cardInsert 0, "a \"b\".ts")");
  EXPECT_TRUE(has(answer_, R"('a "b".ts')")) << answer_;
  EXPECT_TRUE(has(journal_.lines().back(), R"(cardInsert 0, "a \"b\".ts")"));
}

// Lines of known names and of pieces that could upset a parser.
TEST_F(ShellTest, NothingTypedCrashesIt) {
  insertCard();
  const std::vector<std::string> names = Shell::names();
  const std::vector<std::string> pieces{
      "0",      "1",  "5",  "6", "-1",   "0x",  "0xFFFFFFFF",
      "\"FF\"", "\"", ",",  "(", ")",    "[",   "]",
      "=",      "#",  "\\", " ", "\x80", "1e9", "0x1FFFFFFFFFFFFFFFFF"};
  std::mt19937 random(3);
  for (int i = 0; i < 4000; ++i) {
    std::string line = names[random() % names.size()];
    if (line == "wait" || line == "exit" || line == "quit") {
      continue;
    }
    for (auto parts = random() % 8; parts > 0; --parts) {
      line += pieces[random() % pieces.size()] + (random() % 3 == 0 ? ", " : " ");
    }
    shell_.run(line);
    shell_.serve();
  }
  EXPECT_EQ(ask("test_bit \"04\", 2"), "value = 1 = 0x1\n");
}

}  // namespace
}  // namespace chassis
