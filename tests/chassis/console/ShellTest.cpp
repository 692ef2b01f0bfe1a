#include "console/Shell.h"

#include <random>

#include "ConsoleRig.h"

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
  EXPECT_TRUE(has(line, "card 1")) << line;
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
  bindConsole([this, &prints](ConsolePort port, const std::string &line) {
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

TEST_F(ShellTest, ALineMayNotBeEndless) {
  EXPECT_TRUE(isOneErrorLine(ask(std::string(Shell::longestLine + 1, 'a'))));
}

TEST_F(ShellTest, HelpHasOneLineForEachName) {
  const std::string help = ask("help");
  for (const std::string &name : Shell::names()) {
    const std::string one = ask("help " + name);
    EXPECT_EQ(one.rfind("  " + name, 0), 0u) << name << ": " << one;
    EXPECT_TRUE(has(help, one)) << name;
  }
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
  EXPECT_EQ(std::count(status.begin(), status.end(), '\n'), 4) << status;
  const std::string detail = ask("status 0");
  EXPECT_TRUE(has(detail, "0x0201")) << detail;
  EXPECT_TRUE(has(detail, "last CA PMT")) << detail;
}

TEST_F(ShellTest, AlarmsStandingAndPast) {
  EXPECT_EQ(ask("alarms"), "no alarm stands\nno alarm has stood before\n");
  insertCard();
  ask("progAssign 0, 101, 1");
  runFor(2000);
  EXPECT_TRUE(has(ask("alarms"), "CAM A: CAM absent"));
  ask("camInsert 0, 0, 0x0500");
  runFor(20000);
  const std::string alarms = ask("alarms");
  EXPECT_TRUE(has(alarms.substr(alarms.find("history:")), "CAM A: CAM absent")) << alarms;
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
}

TEST_F(ShellTest, ExitEnds) {
  EXPECT_FALSE(shell_.exited());
  ask("exit");
  EXPECT_TRUE(shell_.exited());
  EXPECT_EQ(ask("printCiIfVer"), "");
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
    if (line == "wait" || line == "exit") {
      continue;
    }
    for (auto parts = random() % 8; parts > 0; --parts) {
      line += pieces[random() % pieces.size()] + (random() % 3 == 0 ? ", " : " ");
    }
    shell_.run(line);
  }
  EXPECT_EQ(ask("test_bit \"04\", 2"), "value = 1 = 0x1\n");
}

}  // namespace
}  // namespace chassis
