#include <gtest/gtest.h>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 2;

struct Delay {
  const char *name;
  uint32_t kind;
  uint32_t raise;
  uint32_t clear;
  void (*setFault)(CiData &card, bool fault);
};

// The delays seen through the alarm that each pair filters.
const Delay DELAYS[] = {
    {"CamAbsent", ALARM_KIND_CAM_ABSENT, 1000, 1000,
     [](CiData &card, bool fault) { card.camInsert[0] = fault ? 0 : 1; }},
    {"CaPidAbsent", ALARM_KIND_CA_PID_ABSENT, 60000, 1000,
     [](CiData &card, bool fault) { card.preCamPidStat[0] = fault ? 1 : 0; }},
    {"CaSysMismatch", ALARM_KIND_CA_SYS_MISMATCH, 3000, 3000,
     [](CiData &card, bool fault) { card.casidStat[0] = fault ? 0 : 1; }},
    {"CiInput", ALARM_KIND_CI_INPUT, 3000, 3000,
     [](CiData &card, bool fault) { card.cimaxStat = fault ? 1 : 0; }},
    {"Descramble", ALARM_KIND_DESCRAMBLE, 12000, 3000,
     [](CiData &card, bool fault) { card.descStat[0] = fault ? DESC_SUM_PART : DESC_SUM_OK; }},
};

class AlarmDelay : public testing::TestWithParam<Delay> {
 protected:
  void SetUp() override { registerCard(SLOT); }

  // One check with or without the fault; returns how often the alarm service was called.
  size_t check(bool fault) {
    GetParam().setFault(*pCiData[SLOT], fault);
    camAlarmCheck(SLOT, 0, GetParam().kind);
    return platform.take({"AlarmAdd", "AlarmDel"}).size();
  }

  size_t checkAfter(uint32_t milliseconds, bool fault) {
    platform.advance(milliseconds);
    return check(fault);
  }

  void expectDelays(uint32_t raise, uint32_t clear) {
    EXPECT_EQ(check(false), 0U);
    EXPECT_EQ(checkAfter(raise, true), 0U);
    EXPECT_EQ(checkAfter(1, true), 1U);
    EXPECT_EQ(checkAfter(clear, false), 0U);
    EXPECT_EQ(checkAfter(1, false), 1U);
  }
};
INSTANTIATE_TEST_SUITE_P(Kinds, AlarmDelay, testing::ValuesIn(DELAYS), ItsName());

TEST_P(AlarmDelay, IsZeroBeforeTheInitialisation) {
  expectDelays(0, 0);
}

TEST_P(AlarmDelay, HasItsDefaultAfterTheInitialisation) {
  ciAlarmDlyTimeInit();
  expectDelays(GetParam().raise, GetParam().clear);
}

TEST_P(AlarmDelay, HasTheSameDefaultAfterASecondInitialisation) {
  ciAlarmDlyTimeInit();
  ciAlarmDlyTimeInit();
  expectDelays(GetParam().raise, GetParam().clear);
}

TEST_P(AlarmDelay, IsSetByTheStartUp) {
  ciIfInit();
  expectDelays(GetParam().raise, GetParam().clear);
}

TEST_P(AlarmDelay, IsSetBeforeTheLibraryIsLoaded) {
  size_t calls = 99;
  EXPECT_EQ(check(false), 0U);
  platform.ciLibLoad.does([this, &calls] {
    calls = checkAfter(GetParam().raise, true);
    return -1;
  });
  ciIfInit();
  EXPECT_EQ(calls, 0U);
}

TEST_P(AlarmDelay, IsReadAtEveryCheck) {
  EXPECT_EQ(check(false), 0U);
  ciAlarmDlyTimeInit();
  EXPECT_EQ(checkAfter(GetParam().raise, true), 0U);
  EXPECT_EQ(checkAfter(1, true), 1U);
}

TEST(AlarmDelayInit, CallsNothing) {
  ciAlarmDlyTimeInit();
  EXPECT_EQ(platform.take(), (Calls{}));
}

}  // namespace
