// When a CA PMT or a CA PMT query is sent to a CAM.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "OneProgramCard.h"

namespace {

constexpr uint32_t INDEX = SLOT * MAX_CAM_NUM + CAM;
constexpr uint8_t BAD = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;
constexpr uint32_t START = 1000000;

const Calls MATCHING{"ciLibGetCardIndex(2, 0)", "GetProgDesc(2)", "ciLibGetCardIndex(2, 0)",
                     "ciLibGetInsertCard(2, 0)", "ciLibCaSysIdMatch(4, 0x500)"};
const Calls POLLING = joined({MATCHING, {"semTake(CaPMTFlag[4], 0)"}});

class Scheduling : public testing::Test {
 protected:
  Scheduling() { prepareCard(SLOT); }

  static Calls cycle(uint8_t descStat, uint8_t slot = SLOT, uint8_t cam = CAM) {
    return observed(setCAM, descStat, slot, cam);
  }

  static Calls cycleAt(uint32_t time, uint8_t descStat) {
    platform.now = time;
    return cycle(descStat);
  }

  static bool semaphoreIsGiven() { return platform.isFree(CaPMTFlag[INDEX]); }

  // A CA PMT whose time stamp is `time`.
  static void sendCaPmt(uint32_t time) {
    platform.giveFlag(INDEX);
    const Calls calls = cycleAt(time - 1000, UNCHECKED);
    ASSERT_EQ(only(calls, {"ciLibSendCaPmt"}).size(), 1u);
    ASSERT_EQ(platform.now, time);
  }

  static bool queries(uint32_t time) {
    return !only(cycleAt(time, BAD), {"ciLibSendCaPmt"}).empty();
  }

  Card &card = platform.card[SLOT];
};

TEST(SchedulingWithoutCard, IsReported) {
  platform.giveFlag(INDEX);
  setCAM(SLOT, CAM);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted("../../CiIf_Status", "pCiData[slotNo]")}));
  EXPECT_TRUE(platform.isFree(CaPMTFlag[INDEX]));
}

// --- the full CA PMT -----------------------------------------------------------------------------

Calls fullCaPmt(const std::string &text) {
  return joined(
      {POLLING,
       {"qm_ci_ca_pmt_clr(4, 0x500)", "sysClkRateGet()", "taskDelay(60)", "GetProgDesc(2)",
        "ciLibGetCardIndex(2, 0)", printed("card 3 cam 0 capmtVerNum=1\n"), "semTake(CaPmtSem, -1)",
        "ciLibCaSysIdMatch(4, 0x500)", "ciLibSendCaPmt(2, 0, 1)", "semGive(CaPmtSem)",
        "OSTimeGet()", printed(text)}});
}

class FullCaPmt : public Scheduling, public testing::WithParamInterface<uint8_t> {};

TEST_P(FullCaPmt, FollowsTheSemaphoreWhateverTheSummary) {
  platform.giveFlag(INDEX);
  EXPECT_EQ(cycle(GetParam()), fullCaPmt("send 1 PMT to Card 3 CAM A,time 1001000\n\r "));
  EXPECT_FALSE(semaphoreIsGiven());
  ASSERT_EQ(platform.sent.size(), 1u);
  EXPECT_EQ(platform.sent[0].records[0].cmdId, 1);
  EXPECT_EQ(platform.sent[0].records[0].listMgmt, 3);
}

INSTANTIATE_TEST_SUITE_P(Summaries, FullCaPmt,
                         testing::Values(0x00, 0x01, 0x10, 0x11, 0x20, 0x21, 0xFF));

TEST_F(Scheduling, ResultOfSendingIsPrinted) {
  platform.ciLibSendCaPmt = -7;
  platform.giveFlag(INDEX);
  EXPECT_EQ(cycle(CLEAN), fullCaPmt("send -7 PMT to Card 3 CAM A,time 1001000\n\r "));
}

TEST_F(Scheduling, TimeIsPrintedUnsigned) {
  platform.now = 0xFFFFFC00;
  platform.giveFlag(INDEX);
  EXPECT_EQ(cycle(CLEAN), fullCaPmt("send 1 PMT to Card 3 CAM A,time 4294967272\n\r "));
}

TEST_F(Scheduling, CaPmtStateIsClearedASecondBeforeTheCaPmtIsBuilt) {
  platform.giveFlag(INDEX);
  size_t sentWhileWaiting = 1;
  platform.onTaskDelay = [&](int) {
    sentWhileWaiting = platform.sent.size();
    card.desc.prog[0].prog_num = 0x77;
  };
  cycle(CLEAN);
  EXPECT_EQ(sentWhileWaiting, 0u);
  EXPECT_EQ(platform.sent[0].records[0].progNum, 0x77);
}

class ClockRate : public Scheduling, public testing::WithParamInterface<int> {};

TEST_P(ClockRate, WaitIsOneSecond) {
  platform.sysClkRateGet = GetParam();
  platform.giveFlag(INDEX);
  const Calls calls = cycle(CLEAN);
  EXPECT_EQ(only(calls, {"taskDelay"}), (Calls{"taskDelay(" + std::to_string(GetParam()) + ")"}));
  EXPECT_EQ(platform.now, START + 1000);
}

INSTANTIATE_TEST_SUITE_P(TicksPerSecond, ClockRate, testing::Values(1, 60, 100, 1000));

class SemaphoreResult : public Scheduling, public testing::WithParamInterface<int> {};

TEST_P(SemaphoreResult, OnlyZeroIsTaken) {
  platform.onSemTake = [](const std::string &name, int) {
    return name == "CaPmtSem" ? 0 : GetParam();
  };
  EXPECT_EQ(only(cycle(CLEAN), {"ciLibSendCaPmt"}).empty(), GetParam() != 0);
}

INSTANTIATE_TEST_SUITE_P(Results, SemaphoreResult, testing::Values(0, -1, 1, 0x100));

TEST_F(Scheduling, EachGivenSemaphoreSendsOneCaPmt) {
  for (uint32_t sent = 1; sent <= 3; ++sent) {
    platform.giveFlag(INDEX);
    cycle(CLEAN);
    cycle(CLEAN);
    EXPECT_EQ(platform.sent.size(), sent);
  }
}

TEST_F(Scheduling, NothingIsSentWithoutAMatchAndTheRequestStaysPending) {
  platform.ciLibCaSysIdMatch = 1;
  platform.giveFlag(INDEX);
  EXPECT_EQ(cycle(BAD), MATCHING);
  EXPECT_TRUE(semaphoreIsGiven());
  platform.supports(SLOT, CAM, {CAS});
  cycle(BAD);
  EXPECT_FALSE(semaphoreIsGiven());
  EXPECT_EQ(platform.sent.size(), 1u);
}

TEST_F(Scheduling, NothingIsSentToAnAbsentCam) {
  platform.ciLibGetInsertCard = 0x100;
  platform.giveFlag(INDEX);
  EXPECT_EQ(cycle(BAD), (Calls{"ciLibGetCardIndex(2, 0)", "GetProgDesc(2)",
                               "ciLibGetCardIndex(2, 0)", "ciLibGetInsertCard(2, 0)"}));
  EXPECT_TRUE(semaphoreIsGiven());
}

TEST_F(Scheduling, CamUnknownToTheLibraryIsReported) {
  platform.ciLibGetCardIndex = 12;
  EXPECT_EQ(cycle(BAD),
            (Calls{"ciLibGetCardIndex(2, 0)", "GetProgDesc(2)", "ciLibGetCardIndex(2, 0)",
                   printed("slotNo2 camNo0 casidMatch get ci_index=12 error! \n")}));
}

TEST_F(Scheduling, LowByteOfTheIndexSelectsTheSemaphore) {
  platform.ciLibGetCardIndex = 0x10B;
  platform.ciLibCaSysIdMatch.when(11, CAS) = 0;
  platform.giveFlag(11);
  EXPECT_EQ(
      only(cycle(CLEAN), {"semTake", "qm_ci_ca_pmt_clr"}),
      (Calls{"semTake(CaPMTFlag[11], 0)", "qm_ci_ca_pmt_clr(11, 0x500)", "semTake(CaPmtSem, -1)"}));
}

TEST_F(Scheduling, EveryCamHasItsOwnSemaphore) {
  for (uint8_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (slot != SLOT) {
      prepareCard(slot);
    }
  }
  for (uint32_t index = 0; index < 12; ++index) {
    platform.giveFlag(index);
    for (uint8_t cam = 0; cam < 12; ++cam) {
      cycle(CLEAN, cam / 2, cam % 2);
    }
    ASSERT_EQ(platform.sent.size(), index + 1);
    EXPECT_EQ(platform.sent.back().slotNo, index / 2);
    EXPECT_EQ(platform.sent.back().camSlot, index % 2);
  }
}

TEST_F(Scheduling, CamBIsNamedInTheMessages) {
  platform.giveFlag(INDEX + 1);
  EXPECT_EQ(only(cycle(CLEAN, SLOT, 1), {"printf"}),
            (Calls{printed("card 3 cam 1 capmtVerNum=1\n"),
                   printed("send 1 PMT to Card 3 CAM B,time 1001000\n\r ")}));
  platform.now = START + 11001;
  EXPECT_EQ(only(cycle(BAD, SLOT, 1), {"printf"}),
            (Calls{printed("send CAPMT_QUERY info \n"), printed("card 3 cam 1 capmtVerNum=2\n"),
                   printed("second send 1 PMT query to Card 3 CAM B,time 1011001\n\r ")}));
}

// --- the query -----------------------------------------------------------------------------------

constexpr uint32_t SENT = START;

TEST_F(Scheduling, CallsOfAQuery) {
  sendCaPmt(SENT);
  EXPECT_EQ(cycleAt(SENT + 4000, CLEAN), joined({POLLING, {"OSTimeGet()", stampRead(0)}}));
  EXPECT_EQ(cycleAt(SENT + 9000, BAD), joined({POLLING, {"OSTimeGet()", stampRead(SENT + 4000)}}));
  EXPECT_EQ(cycleAt(SENT + 10000, BAD),
            joined({POLLING, {"OSTimeGet()", stampRead(SENT + 4000), stampRead(SENT)}}));
  EXPECT_EQ(cycleAt(SENT + 10001, BAD),
            joined({POLLING,
                    {"OSTimeGet()", stampRead(SENT + 4000), stampRead(SENT), stampRead(0),
                     "GetProgDesc(2)", printed("send CAPMT_QUERY info \n"),
                     "ciLibGetCardIndex(2, 0)", printed("card 3 cam 0 capmtVerNum=2\n"),
                     "semTake(CaPmtSem, -1)", "ciLibCaSysIdMatch(4, 0x500)",
                     "ciLibSendCaPmt(2, 0, 1)", "semGive(CaPmtSem)", "OSTimeGet()", "OSTimeGet()",
                     printed("second send 1 PMT query to Card 3 CAM A,time 1010001\n\r ")}}));
  EXPECT_EQ(cycleAt(SENT + 10002, BAD), joined({POLLING, {"OSTimeGet()", stampRead(SENT + 4000)}}));
  ASSERT_EQ(platform.sent.size(), 2u);
  EXPECT_EQ(platform.sent[1].records[0].cmdId, 3);
  EXPECT_EQ(platform.sent[1].records[0].listMgmt, 4);
}

TEST_F(Scheduling, QueryAsksForTheProgramsThatFailOnTheCamsSide) {
  sendCaPmt(SENT);
  DescStatus[SLOT][0].progStatus = DESC_STAT_NO_ECM;
  std::memset(&caPmtReplyInfo[INDEX], 0xA5, sizeof caPmtReplyInfo[INDEX]);
  EXPECT_EQ(only(cycleAt(SENT + 20000, BAD), {"ciLibSendCaPmt", "printf"}),
            (Calls{printed("send CAPMT_QUERY info \n"), printed("card 3 cam 0 capmtVerNum=2\n"),
                   "ciLibSendCaPmt(2, 0, 0)",
                   printed("second send 0 PMT query to Card 3 CAM A,time 1020000\n\r ")}));
  EXPECT_EQ(caPmtReplyInfo[INDEX].progNum, 0);
}

TEST_F(Scheduling, ResultOfTheQueryIsPrintedOnly) {
  sendCaPmt(SENT);
  platform.ciLibSendCaPmt = -1;
  const Calls calls = only(cycleAt(SENT + 20000, BAD), {"printf"});
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[2], printed("second send -1 PMT query to Card 3 CAM A,time 1020000\n\r "));
  EXPECT_FALSE(queries(SENT + 40000));
}

TEST_F(Scheduling, UncheckedCycleTouchesNoStamp) {
  EXPECT_EQ(cycle(UNCHECKED), POLLING);
}

TEST_F(Scheduling, UncheckedCycleKeepsBothDurations) {
  sendCaPmt(SENT);
  cycleAt(SENT + 10000, CLEAN);
  cycleAt(SENT + 12000, UNCHECKED);
  EXPECT_FALSE(queries(SENT + 15000));
  EXPECT_TRUE(queries(SENT + 15001));
}

// Bit 0 of the summary alone tells that a PID is scrambled.
struct Summary {
  uint8_t descStat;
  bool scrambled;
};

std::ostream &operator<<(std::ostream &out, const Summary &summary) {
  return out << "descStat " << +summary.descStat;
}

class SummaryCodes : public Scheduling, public testing::WithParamInterface<Summary> {};

TEST_P(SummaryCodes, LeadToAQueryWhenAPidIsScrambled) {
  sendCaPmt(SENT);
  EXPECT_EQ(!only(cycleAt(SENT + 20000, GetParam().descStat), {"ciLibSendCaPmt"}).empty(),
            GetParam().scrambled);
}

TEST_P(SummaryCodes, CountAsCleanWhenNoPidIsScrambled) {
  cycleAt(START, BAD);
  cycleAt(START + 5001, GetParam().descStat);
  cycleAt(START + 5002, GetParam().descStat);
  EXPECT_EQ(queries(START + 30000), !GetParam().scrambled);
}

INSTANTIATE_TEST_SUITE_P(Codes, SummaryCodes,
                         testing::Values(Summary{0x00, false}, Summary{0x10, false},
                                         Summary{0x20, false}, Summary{0x01, true},
                                         Summary{0x11, true}, Summary{0x21, true}));

// --- courses of observations ---------------------------------------------------------------------

enum class Sent { nothing, caPmt, query };

struct Step {
  uint32_t after;  // the step before
  uint8_t descStat;
  Sent sent;
};

struct Course {
  const char *name;
  std::vector<Step> steps;
};

std::ostream &operator<<(std::ostream &out, const Course &course) {
  return out << course.name;
}

constexpr Sent NOTHING = Sent::nothing;
constexpr Sent CA_PMT = Sent::caPmt;  // the semaphore is given; takes 1000 ms
constexpr Sent QUERY = Sent::query;

const Course COURSES[] = {
    {"scrambled without a CA PMT: no query",
     {{0, BAD, NOTHING}, {6000, BAD, NOTHING}, {60000, BAD, NOTHING}}},
    {"scrambled for longer than its limit after a CA PMT",
     {{0, UNCHECKED, CA_PMT},
      {20000, CLEAN, NOTHING},
      {5000, BAD, NOTHING},
      {1, BAD, QUERY},
      {60000, BAD, NOTHING}}},
    {"quiet time after the CA PMT",
     {{0, CLEAN, NOTHING},
      {20000, BAD, CA_PMT},
      {10000, BAD, NOTHING},
      {1, BAD, QUERY},
      {60000, BAD, NOTHING}}},
    {"CA PMT and scrambled in one cycle: the CA PMT only",
     {{0, UNCHECKED, CA_PMT}, {20000, BAD, CA_PMT}, {10001, BAD, QUERY}}},
    {"clean spell of exactly its limit allows no query",
     {{0, BAD, NOTHING}, {5000, CLEAN, NOTHING}, {20000, BAD, NOTHING}}},
    {"longer clean spell allows one query",
     {{0, BAD, NOTHING},
      {5001, CLEAN, NOTHING},
      {5000, BAD, NOTHING},
      {1, BAD, QUERY},
      {20000, BAD, NOTHING},
      {4999, CLEAN, NOTHING},
      {20000, BAD, NOTHING}}},
    {"query again after the next clean spell",
     {{0, UNCHECKED, CA_PMT},
      {20000, BAD, QUERY},
      {5001, CLEAN, NOTHING},
      {5001, BAD, QUERY},
      {20000, BAD, NOTHING}}},
    {"quiet time after a query",
     {{0, UNCHECKED, CA_PMT},
      {20000, BAD, QUERY},
      {4000, CLEAN, NOTHING},
      {1001, CLEAN, NOTHING},
      {4999, BAD, NOTHING},
      {1, BAD, NOTHING},
      {1, BAD, QUERY}}},
    {"query again after the next CA PMT",
     {{0, UNCHECKED, CA_PMT},
      {20000, BAD, QUERY},
      {20000, BAD, NOTHING},
      {1, BAD, CA_PMT},
      {10000, BAD, NOTHING},
      {1, BAD, QUERY}}},
    {"one query spends the CA PMT and the clean spell",
     {{0, UNCHECKED, CA_PMT},
      {6000, CLEAN, NOTHING},
      {6000, CLEAN, NOTHING},
      {6000, BAD, QUERY},
      {60000, BAD, NOTHING}}},
    {"two CA PMTs at once",
     {{0, UNCHECKED, CA_PMT}, {0, UNCHECKED, CA_PMT}, {10000, BAD, NOTHING}, {1, BAD, QUERY}}},
};

class QueryCourse : public Scheduling,
                    public testing::WithParamInterface<std::tuple<Course, uint32_t>> {
 protected:
  static Sent sentBy(const Step &step) {
    if (step.sent == CA_PMT) {
      platform.giveFlag(INDEX);
    }
    const size_t before = platform.sent.size();
    const Calls calls = cycle(step.descStat);
    if (platform.sent.size() == before) {
      return NOTHING;
    }
    return only(calls, {"qm_ci_ca_pmt_clr"}).empty() ? QUERY : CA_PMT;
  }
};

TEST_P(QueryCourse, SendsThese) {
  const auto &[course, start] = GetParam();
  sendCaPmt(start - 30000);
  ASSERT_TRUE(queries(start - 15000));
  platform.now = start;
  for (size_t i = 0; i < course.steps.size(); ++i) {
    platform.advance(course.steps[i].after);
    EXPECT_EQ(sentBy(course.steps[i]), course.steps[i].sent) << "step " << i;
  }
}

// The clock runs on, past half of its range and past its end. Both stamps are recent, since one of
// zero would look recent after the end.
INSTANTIATE_TEST_SUITE_P(FromStart, QueryCourse,
                         testing::Combine(testing::ValuesIn(COURSES),
                                          testing::Values(1000000u, 0x80000000u - 8000u,
                                                          0u - 500u)));

TEST_F(Scheduling, AlternatingEvery3SecondsNeverQueries) {
  for (uint32_t i = 0; i < 1000; ++i) {
    ASSERT_TRUE(
        only(cycleAt(START + 3000 * i, i % 2 == 0 ? BAD : CLEAN), {"ciLibSendCaPmt"}).empty())
        << i;
  }
  EXPECT_FALSE(queries(START + 3000 * 1000 + 20000));
}

struct AtStart {
  uint32_t now;
  bool clean;
};

std::ostream &operator<<(std::ostream &out, const AtStart &start) {
  return out << "at " << start.now;
}

class FirstCleanCycle : public Scheduling, public testing::WithParamInterface<AtStart> {};

TEST_P(FirstCleanCycle, IsJudgedAgainstTimeZero) {
  cycleAt(GetParam().now, CLEAN);
  EXPECT_EQ(queries(GetParam().now + 20000), GetParam().clean);
}

INSTANTIATE_TEST_SUITE_P(Times, FirstCleanCycle,
                         testing::Values(AtStart{5000, false}, AtStart{5001, true}));

TEST_F(Scheduling, FirstScrambledCycleIsJudgedAgainstTimeZero) {
  TIME_CAPMT = 0;
  sendCaPmt(4000);
  EXPECT_FALSE(queries(5000));
  EXPECT_TRUE(queries(5001));
}

TEST_F(Scheduling, QuietTimeIsReadAtEachUse) {
  sendCaPmt(SENT);
  TIME_CAPMT = 30000;
  EXPECT_FALSE(queries(SENT + 30000));
  TIME_CAPMT = 29999;
  EXPECT_TRUE(queries(SENT + 30000));
}

TEST_F(Scheduling, DurationsDoNotFollowTheLimitOfTheResetPolicy) {
  TIME_NO_RESET = 100;
  sendCaPmt(SENT);
  cycleAt(SENT + 20000, CLEAN);
  EXPECT_FALSE(queries(SENT + 25000));
  TIME_NO_RESET = 1000000;
  EXPECT_TRUE(queries(SENT + 25001));
}

TEST_F(Scheduling, CleanSpellDoesNotFollowTheLimitOfTheResetPolicy) {
  TIME_NO_RESET = 100;
  cycleAt(START, BAD);
  cycleAt(START + 5000, CLEAN);
  EXPECT_FALSE(queries(START + 20000));
  TIME_NO_RESET = 1000000;
  cycleAt(START + 25001, CLEAN);
  EXPECT_TRUE(queries(START + 40000));
}

TEST_F(Scheduling, CamsQueryIndependently) {
  sendCaPmt(SENT);
  platform.now = SENT + 20000;
  EXPECT_EQ(only(cycle(BAD, SLOT, 1), {"ciLibSendCaPmt"}), Calls{});
  EXPECT_EQ(only(cycle(BAD, SLOT, 0), {"ciLibSendCaPmt"}), (Calls{"ciLibSendCaPmt(2, 0, 1)"}));
}

TEST_F(Scheduling, StampsAreApartFromThoseOfTheResetPolicy) {
  sendCaPmt(SENT);
  cycleAt(SENT + 20000, CLEAN);
  pCiData[SLOT]->descStat[CAM] = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;
  platform.now = SENT + 22000;
  camReset(SLOT, CAM);
  cycleAt(SENT + 26000, CLEAN);
  cycleAt(SENT + 27000, BAD);
  EXPECT_TRUE(queries(SENT + 31001));
}

}  // namespace
