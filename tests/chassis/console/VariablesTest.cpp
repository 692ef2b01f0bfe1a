#include "console/Variables.h"

#include "CiIf.h"
#include "ConsoleRig.h"

namespace chassis {
namespace {

using Variables = ConsoleRig;

TEST_F(Variables, LimitsAreReadAndSet) {
  EXPECT_EQ(ask("TIME_CAPMT"), "value = 10000 = 0x2710\n");
  EXPECT_EQ(ask("TIME_FIRST_RESET"), "value = 30000 = 0x7530\n");
  EXPECT_EQ(ask("TIME_PART_RESET"), "value = 30000 = 0x7530\n");
  EXPECT_EQ(ask("TIME_NO_RESET"), "value = 5000 = 0x1388\n");
  EXPECT_EQ(ask("TIME_RESET = 0xEA60"), "value = 60000 = 0xea60\n");
  EXPECT_EQ(TIME_RESET, 60000u);
  EXPECT_TRUE(has(journal_.lines().back(), "TIME_RESET = 0xEA60"));
}

TEST_F(Variables, OthersOfTheFirmware) {
  EXPECT_EQ(ask("ciProFlag = 255"), "value = 255 = 0xff\n");
  EXPECT_EQ(ciProFlag, 255);
  EXPECT_EQ(ask("caPmtQuery[5][1] = 0xFFFFFFFF"), "value = 4294967295 = 0xffffffff\n");
  EXPECT_EQ(caPmtQuery[5][1], 0xFFFFFFFFu);
  EXPECT_TRUE(has(ask("caPmtQuery"), "[5][1]: value = 4294967295"));
  EXPECT_EQ(ask("caPmtQuery[5]"), "[0]: value = 0 = 0x0\n[1]: value = 4294967295 = 0xffffffff\n");
}

TEST_F(Variables, RecordsAreSummaries) {
  EXPECT_EQ(ask("pCiData[0]"), "pCiData[0]: not registered\n");
  insertCard();
  ask("progAssign 0, 101, 1");
  runFor(3000);
  EXPECT_TRUE(has(ask("pCiData[0]"), "software CI card, cimaxStat 0x"));
  EXPECT_TRUE(
      has(ask("DescStatus[0]"), "DescStatus[0][0]: progStatus 0xEE, PID 0x0201 0xEE type 1"));
  EXPECT_EQ(ask("DescStatus[1]"), "DescStatus[1]: no program\n");
  EXPECT_TRUE(has(ask("DescStatus[0][31]"), "progStatus 0xEE"));
}

TEST_F(Variables, WhatDoesNotFitIsRefused) {
  for (const char *bad :
       {"TIME_RESET = -1", "TIME_RESET = 4294967296", "TIME_RESET = x", "TIME_RESET[0]",
        "TIME_RESET 5", "ciProFlag = 256", "caPmtQuery = 1", "caPmtQuery[0] = 1",
        "caPmtQuery[6][0]", "caPmtQuery[0][2]", "caPmtQuery[0][0][0]", "pCiData = 0", "pCiData[6]",
        "pCiData[-1]", "DescStatus[0][32]", "DescStatus[0] = 1", "nothing = 1", "camAlarm[0]"}) {
    EXPECT_TRUE(isOneErrorLine(ask(bad))) << bad << ": " << answer_;
  }
  EXPECT_EQ(TIME_RESET, 300000u);
}

}  // namespace
}  // namespace chassis
