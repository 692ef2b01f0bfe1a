#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

const Calls BANNER = {printed("***************************** \n"),
                      printed("create ci module thread error \n"),
                      printed("***************************** \n")};

Calls runStartUpTask() {
  ciTskInit();
  return except(platform.take(), {"sysClkRateGet"});
}

TEST(StartUpTask, LoadsTheLibraryAtOnceWhenAllCardsAreLoaded) {
  is_all_card_loaded = 1;
  EXPECT_EQ(runStartUpTask(), (Calls{"ciLibLoad()"}));
}

class NotLoaded : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Values, NotLoaded,
                         testing::Values(0, 2, 3, 0x101, 0x10001, 0x80000001, 0xFFFFFFFF),
                         HexName());

TEST_P(NotLoaded, IsPolledOnceASecondUntilItIsOne) {
  is_all_card_loaded = GetParam();
  int polls = 0;
  platform.onTaskDelay = [&polls](int) {
    if (++polls == 4) {
      is_all_card_loaded = 1;
    }
  };
  EXPECT_EQ(runStartUpTask(), (Calls{"taskDelay(60)", "taskDelay(60)", "taskDelay(60)",
                                     "taskDelay(60)", "ciLibLoad()"}));
}

class PollPause : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Rates, PollPause, testing::Values(1, 60, 100, 333, 1000));

TEST_P(PollPause, LastsOneSecondAtEveryClockRate) {
  platform.sysClkRateGet = GetParam();
  platform.onTaskDelay = [](int) { is_all_card_loaded = 1; };
  EXPECT_EQ(runStartUpTask(),
            (Calls{"taskDelay(" + std::to_string(GetParam()) + ")", "ciLibLoad()"}));
}

TEST(StartUpTask, PollsWithoutLimit) {
  int polls = 0;
  platform.onTaskDelay = [&polls](int) { is_all_card_loaded = ++polls == 5000; };
  ciTskInit();
  EXPECT_EQ(platform.count("taskDelay"), 5000U);
}

class LoadFails : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Results, LoadFails, testing::Values(-1, -2, INT32_MIN), HexName());

TEST_P(LoadFails, AndTheTaskPrintsTheBanner) {
  is_all_card_loaded = 1;
  platform.ciLibLoad = GetParam();
  EXPECT_EQ(runStartUpTask(), joined({{"ciLibLoad()"}, BANNER}));
}

TEST_P(LoadFails, AndIsNotRetriedByASecondTask) {
  is_all_card_loaded = 1;
  platform.ciLibLoad = GetParam();
  runStartUpTask();
  EXPECT_EQ(runStartUpTask(), (Calls{}));
}

class LoadSucceeds : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Results, LoadSucceeds, testing::Values(0, 1, INT32_MAX), HexName());

TEST_P(LoadSucceeds, AndTheTaskPrintsNothing) {
  is_all_card_loaded = 1;
  platform.ciLibLoad = GetParam();
  EXPECT_EQ(runStartUpTask(), (Calls{"ciLibLoad()"}));
}

class Initialisation : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Results, Initialisation,
                         testing::Values(INT32_MIN, -1, 0, 1, 7, INT32_MAX), HexName());

TEST_P(Initialisation, ReturnsTheResultOfTheLoad) {
  platform.ciLibLoad = GetParam();
  EXPECT_EQ(ciIfInit(), GetParam());
  EXPECT_EQ(platform.take(), (Calls{"ciLibLoad()"}));
}

TEST_P(Initialisation, ReturnsZeroAndDoesNothingEverAfter) {
  platform.ciLibLoad = GetParam();
  ciIfInit();
  platform.take();
  for (int i = 0; i < 300; ++i) {
    EXPECT_EQ(ciIfInit(), 0);
  }
  EXPECT_EQ(platform.take(), (Calls{}));
}

TEST(StartUp, IsMarkedAsDoneBeforeTheLibraryIsLoaded) {
  int32_t inner = -1;
  platform.ciLibLoad.does([&inner] {
    inner = platform.count("ciLibLoad") == 1 ? ciIfInit() : -1;
    return -5;
  });
  EXPECT_EQ(ciIfInit(), -5);
  EXPECT_EQ(inner, 0);
  EXPECT_EQ(platform.take(), (Calls{"ciLibLoad()"}));
}

}  // namespace
