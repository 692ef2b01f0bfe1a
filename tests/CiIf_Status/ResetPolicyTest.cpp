// When a CAM is reset, and when it is left alone.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "OneProgramCard.h"

namespace {

constexpr uint8_t ALL = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;
constexpr uint8_t SOME = DESC_SUM_PART | DESC_SUM_SCRAMBLED;

const std::string NOTHING;
const std::string FIRST = "all programs error, first reset! \n";
const std::string REPEAT = "all programs error, repeat reset! \n";
const std::string PARTIAL = "partial programs error, reset! \n";

const Calls READY_TEST{"GetCardOnline(2)", "GetCardBusy(2)", "GetCardReady(2)"};

class ResetPolicy : public testing::Test {
 protected:
  ResetPolicy() { prepareCard(SLOT); }

  static Calls reset(uint8_t descStat, uint8_t slot = SLOT, uint8_t cam = CAM) {
    return observed(camReset, descStat, slot, cam);
  }

  // The text of the reset that an observation leads to.
  static std::string observe(uint8_t descStat, uint8_t slot = SLOT, uint8_t cam = CAM) {
    const Calls calls = only(reset(descStat, slot, cam), {"printf", "resetCAM"});
    if (calls.empty()) {
      return NOTHING;
    }
    const std::string expected =
        "resetCAM(" + std::to_string(slot) + ", " + std::to_string(cam) + ")";
    for (const std::string &text : {FIRST, REPEAT, PARTIAL}) {
      if (calls == Calls{printed(text), expected}) {
        return text;
      }
    }
    return testing::PrintToString(calls);
  }

  static std::string observeAt(uint32_t time, uint8_t descStat) {
    platform.now = time;
    return observe(descStat);
  }

  // A CA PMT whose time stamp is `time`.
  static void sendCaPmt(uint32_t time) {
    platform.now = time - 1000;
    platform.giveFlag(SLOT * 2 + CAM);
    setCAM(SLOT, CAM);
    ASSERT_EQ(platform.now, time);
    ASSERT_EQ(platform.sent.back().records.size(), 1u);
  }

  // A query that follows a CA PMT.
  static void sendQuery(uint32_t time) {
    const size_t sent = platform.sent.size();
    const uint32_t quietTime = std::exchange(TIME_CAPMT, 0);
    platform.now = time;
    pCiData[SLOT]->descStat[CAM] = ALL;
    setCAM(SLOT, CAM);
    TIME_CAPMT = quietTime;
    ASSERT_EQ(platform.sent.size(), sent + 1);
  }

  static CiData &record() { return *pCiData[SLOT]; }
  Card &card = platform.card[SLOT];
};

TEST(ResetPolicyLimits, HaveTheirDefaults) {
  EXPECT_EQ(TIME_CAPMT, 10000u);
  EXPECT_EQ(TIME_FIRST_RESET, 30000u);
  EXPECT_EQ(TIME_RESET, 300000u);
  EXPECT_EQ(TIME_PART_RESET, 30000u);
  EXPECT_EQ(TIME_NO_RESET, 5000u);
}

TEST(ResetPolicyWithoutCard, IsReported) {
  camReset(SLOT, CAM);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted("../../CiIf_Status", "pCiData[slotNo]")}));
}

// --- what counts as which fault ------------------------------------------------------------------

struct Observation {
  uint8_t descStat;
  uint8_t cimaxStat;
  uint32_t pllLock;
  std::string reset;
};

std::ostream &operator<<(std::ostream &out, const Observation &observation) {
  return out << std::hex << "descStat " << +observation.descStat << " cimaxStat "
             << +observation.cimaxStat << " PllLock " << observation.pllLock;
}

class Classification : public ResetPolicy, public testing::WithParamInterface<Observation> {};

TEST_P(Classification, FirstMatchWins) {
  record().cimaxStat = GetParam().cimaxStat;
  card.PllLock = GetParam().pllLock;
  EXPECT_EQ(observe(GetParam().descStat), GetParam().reset);
}

INSTANTIATE_TEST_SUITE_P(
    DescStat, Classification,
    testing::Values(Observation{0x21, 0, 1, FIRST}, Observation{0x11, 0, 1, PARTIAL},
                    Observation{0x00, 0, 1, NOTHING}, Observation{0x01, 0, 1, NOTHING},
                    Observation{0x10, 0, 1, NOTHING}, Observation{0x20, 0, 1, NOTHING},
                    Observation{0x31, 0, 1, NOTHING}, Observation{0xFF, 0, 1, NOTHING}));

INSTANTIATE_TEST_SUITE_P(
    CimaxStat, Classification,
    testing::Values(Observation{0x00, 1, 1, FIRST}, Observation{0xFF, 1, 1, FIRST},
                    Observation{0x10, 1, 1, FIRST}, Observation{0x11, 1, 1, FIRST},
                    Observation{0x21, 1, 1, FIRST}, Observation{0x00, 2, 1, NOTHING},
                    Observation{0x00, 0xFF, 1, NOTHING}, Observation{0x11, 0xFF, 1, PARTIAL},
                    Observation{0x21, 0xFF, 1, FIRST}));

INSTANTIATE_TEST_SUITE_P(
    PllLock, Classification,
    testing::Values(Observation{0x00, 0, 0, FIRST}, Observation{0xFF, 0xFF, 0, FIRST},
                    Observation{0x11, 0, 0, FIRST}, Observation{0x00, 0, 0x100, FIRST},
                    Observation{0x00, 0, 0xFFFFFF00, FIRST}, Observation{0x00, 0, 0x101, NOTHING},
                    Observation{0x00, 0, 2, NOTHING}, Observation{0x00, 0, 0xFF, NOTHING},
                    Observation{0x11, 0, 0xFF, PARTIAL}));

// The clock counts only while the card is ready.
struct Readiness {
  uint32_t online;
  uint32_t busy;
  uint32_t ready;
  Calls calls;
};

std::ostream &operator<<(std::ostream &out, const Readiness &readiness) {
  return out << "online " << readiness.online << " busy " << readiness.busy << " ready "
             << readiness.ready;
}

class ClockOfUnreadyCard : public ResetPolicy, public testing::WithParamInterface<Readiness> {};

TEST_P(ClockOfUnreadyCard, IsNotRead) {
  card.GetCardOnline = GetParam().online;
  card.GetCardBusy = GetParam().busy;
  card.GetCardReady = GetParam().ready;
  card.PllLock = 0;
  const Calls calls = reset(CLEAN);
  EXPECT_EQ(except(calls, {"OSTimeGet", "get_inc_of_time"}), GetParam().calls);
}

INSTANTIATE_TEST_SUITE_P(
    Conditions, ClockOfUnreadyCard,
    testing::Values(Readiness{0, 0, 1, {"GetCardOnline(2)"}},
                    Readiness{2, 0, 1, {"GetCardOnline(2)"}},
                    Readiness{0x101, 0, 1, {"GetCardOnline(2)"}},
                    Readiness{1, 1, 1, {"GetCardOnline(2)", "GetCardBusy(2)"}},
                    Readiness{1, 0x100, 1, {"GetCardOnline(2)", "GetCardBusy(2)"}},
                    Readiness{1, 0, 0, READY_TEST}, Readiness{1, 0, 2, READY_TEST},
                    Readiness{1, 0, 0x101, READY_TEST}));

TEST(ResetPolicyWithoutClock, MissingPllLockIsAnAllProgramsFaultOfBothCams) {
  registerCard(SLOT, {52});
  for (uint8_t cam = 0; cam < MAX_CAM_NUM; ++cam) {
    pCiData[SLOT]->descStat[cam] = UNCHECKED;
    camReset(SLOT, cam);
    EXPECT_EQ(platform.take({"printf", "resetCAM"}),
              (Calls{printed("pcidata[2]->PllLock == NULL!! \n"), printed(FIRST),
                     "resetCAM(2, " + std::to_string(cam) + ")"}));
  }
}

// --- what is asked and called, in order ----------------------------------------------------------

constexpr uint32_t SENT = 500000;
constexpr uint32_t QUERIED = 511000;
constexpr uint32_t FAULT_FREE = 520000;

// A CAM with three known time stamps: of its CA PMT, its query and its last fault-free cycle.
class ResetCalls : public ResetPolicy {
 protected:
  ResetCalls() {
    sendCaPmt(SENT);
    sendQuery(QUERIED);
    observeAt(FAULT_FREE, CLEAN);
  }

  static Calls resetAt(uint32_t time, uint8_t descStat) {
    platform.now = time;
    return reset(descStat);
  }

  static Calls withReadyTest(const Calls &calls) {
    return joined({READY_TEST, {"PllLock(2)", "OSTimeGet()", "OSTimeGet()"}, calls});
  }
};

TEST_F(ResetCalls, OfACleanCycle) {
  EXPECT_EQ(resetAt(FAULT_FREE + 1, CLEAN), withReadyTest({stampRead(0)}));
  observeAt(FAULT_FREE + 2, ALL);
  EXPECT_EQ(resetAt(FAULT_FREE + 3, CLEAN), withReadyTest({stampRead(FAULT_FREE + 2)}));
}

TEST_F(ResetCalls, OfANeutralCycle) {
  for (uint8_t neutral : {0x01, 0x10, 0x20, 0xFF}) {
    EXPECT_EQ(resetAt(FAULT_FREE + 1, neutral), withReadyTest({})) << +neutral;
  }
}

TEST_F(ResetCalls, OfAFirstReset) {
  EXPECT_EQ(resetAt(FAULT_FREE + 30000, ALL), withReadyTest({stampRead(FAULT_FREE)}));
  EXPECT_EQ(resetAt(FAULT_FREE + 30001, ALL),
            withReadyTest({stampRead(FAULT_FREE), stampRead(SENT), stampRead(QUERIED),
                           printed(FIRST), "resetCAM(2, 0)", "OSTimeGet()"}));
}

TEST_F(ResetCalls, OfARepeatedReset) {
  const uint32_t first = FAULT_FREE + 40000;
  ASSERT_EQ(observeAt(first, ALL), FIRST);
  EXPECT_EQ(resetAt(first + 300000, ALL), withReadyTest({stampRead(first)}));
  EXPECT_EQ(resetAt(first + 300001, ALL),
            withReadyTest({stampRead(first), stampRead(SENT), stampRead(QUERIED), printed(REPEAT),
                           "resetCAM(2, 0)", "OSTimeGet()"}));
  EXPECT_EQ(resetAt(first + 300002, ALL), withReadyTest({stampRead(first + 300001)}));
}

TEST_F(ResetCalls, OfAPartialReset) {
  EXPECT_EQ(resetAt(FAULT_FREE + 30000, SOME), withReadyTest({stampRead(FAULT_FREE)}));
  EXPECT_EQ(resetAt(FAULT_FREE + 30001, SOME),
            withReadyTest({stampRead(FAULT_FREE), stampRead(SENT), stampRead(QUERIED),
                           printed(PARTIAL), "resetCAM(2, 0)"}));
  EXPECT_EQ(resetAt(FAULT_FREE + 30002, SOME), withReadyTest({}));
}

TEST_F(ResetCalls, StopAtTheFirstQuietTimeThatHasNotPassed) {
  TIME_FIRST_RESET = TIME_PART_RESET = 0;
  for (uint8_t fault : {ALL, SOME}) {
    TIME_CAPMT = 0xFFFFFFFF;
    EXPECT_EQ(resetAt(FAULT_FREE + 2, fault),
              withReadyTest({stampRead(FAULT_FREE), stampRead(SENT)}));
    TIME_CAPMT = FAULT_FREE + 2 - QUERIED;
    EXPECT_EQ(resetAt(FAULT_FREE + 2, fault),
              withReadyTest({stampRead(FAULT_FREE), stampRead(SENT), stampRead(QUERIED)}));
    observeAt(FAULT_FREE, CLEAN);
  }
}

// --- the quiet time after a CA PMT and a query ---------------------------------------------------

struct Quiet {
  uint32_t limit;
  uint32_t sinceCaPmt;
  uint32_t sinceQuery;
  bool due;
};

std::ostream &operator<<(std::ostream &out, const Quiet &quiet) {
  return out << "CA PMT " << quiet.sinceCaPmt << " ago, query " << quiet.sinceQuery
             << " ago, limit " << quiet.limit;
}

class QuietTime : public ResetPolicy, public testing::WithParamInterface<Quiet> {
 protected:
  static constexpr uint32_t NOW = 3000000;

  static std::string afterCaPmtAndQuery(uint8_t descStat) {
    const uint32_t sent = NOW - GetParam().sinceCaPmt;
    const uint32_t queried = NOW - GetParam().sinceQuery;
    sendCaPmt(sent < queried ? sent : queried - 5000);
    sendQuery(queried);
    if (queried <= sent) {
      sendCaPmt(sent);
    }
    TIME_CAPMT = GetParam().limit;
    return observeAt(NOW, descStat);
  }
};

TEST_P(QuietTime, HoldsTheFirstResetBack) {
  EXPECT_EQ(afterCaPmtAndQuery(ALL), GetParam().due ? FIRST : NOTHING);
}

TEST_P(QuietTime, HoldsTheRepeatedResetBack) {
  ASSERT_EQ(observeAt(1000000, ALL), FIRST);
  EXPECT_EQ(afterCaPmtAndQuery(ALL), GetParam().due ? REPEAT : NOTHING);
}

TEST_P(QuietTime, HoldsThePartialResetBack) {
  EXPECT_EQ(afterCaPmtAndQuery(SOME), GetParam().due ? PARTIAL : NOTHING);
}

INSTANTIATE_TEST_SUITE_P(
    Ages, QuietTime,
    testing::Values(Quiet{10000, 10001, 10001, true}, Quiet{10000, 10000, 10001, false},
                    Quiet{10000, 10001, 10000, false}, Quiet{10000, 0, 60000, false},
                    Quiet{10000, 60000, 0, false}, Quiet{10000, 60000, 10001, true},
                    Quiet{10000, 10001, 60000, true}, Quiet{50, 51, 51, true},
                    Quiet{50, 50, 51, false}, Quiet{50, 51, 50, false}, Quiet{0, 1, 1, true},
                    Quiet{0, 0, 1, false}, Quiet{20000, 20000, 20001, false}));

TEST_F(ResetPolicy, ResetFollowsOnceTheQuietTimeHasPassed) {
  observeAt(1000000, CLEAN);
  sendCaPmt(1025000);
  EXPECT_EQ(observeAt(1030001, ALL), NOTHING);
  EXPECT_EQ(observeAt(1035000, ALL), NOTHING);
  EXPECT_EQ(observeAt(1035001, ALL), FIRST);
}

// --- courses of observations ---------------------------------------------------------------------

struct Step {
  uint32_t after;  // the step before
  uint8_t descStat;
  std::string reset;
};

struct Course {
  const char *name;
  std::vector<Step> steps;
};

std::ostream &operator<<(std::ostream &out, const Course &course) {
  return out << course.name;
}

const Course COURSES[] = {
    {"first reset past its limit only",
     {{0, CLEAN, NOTHING}, {1, ALL, NOTHING}, {29999, ALL, NOTHING}, {1, ALL, FIRST}}},
    {"repeated resets past their limit only",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {1, ALL, NOTHING},
      {299999, ALL, NOTHING},
      {1, ALL, REPEAT},
      {300000, ALL, NOTHING},
      {1, ALL, REPEAT},
      {300001, ALL, REPEAT}}},
    {"partial reset past its limit only and once only",
     {{0, CLEAN, NOTHING},
      {30000, SOME, NOTHING},
      {1, SOME, PARTIAL},
      {30001, SOME, NOTHING},
      {300001, SOME, NOTHING},
      {10000000, SOME, NOTHING}}},
    {"some-programs fault after a first reset",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {1, SOME, NOTHING},
      {29999, SOME, NOTHING},
      {1, SOME, PARTIAL},
      {1, ALL, NOTHING},
      {269998, ALL, NOTHING},
      {1, ALL, REPEAT},
      {30001, SOME, NOTHING}}},
    {"all-programs fault after a partial reset",
     {{0, CLEAN, NOTHING},
      {30001, SOME, PARTIAL},
      {1, ALL, NOTHING},
      {29999, ALL, NOTHING},
      {1, ALL, FIRST},
      {30001, SOME, NOTHING},
      {269999, ALL, NOTHING},
      {1, ALL, REPEAT}}},
    {"clean for exactly the limit does not arm again",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {1, CLEAN, NOTHING},
      {4999, CLEAN, NOTHING},
      {30001, ALL, NOTHING},
      {264999, ALL, NOTHING},
      {1, ALL, REPEAT}}},
    {"clean for longer arms the first reset again",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {5001, CLEAN, NOTHING},
      {30000, ALL, NOTHING},
      {1, ALL, FIRST}}},
    {"clean for exactly the limit does not arm the partial reset again",
     {{0, CLEAN, NOTHING}, {30001, SOME, PARTIAL}, {5000, CLEAN, NOTHING}, {30001, SOME, NOTHING}}},
    {"clean for longer arms the partial reset again",
     {{0, CLEAN, NOTHING},
      {30001, SOME, PARTIAL},
      {5001, CLEAN, NOTHING},
      {30000, SOME, NOTHING},
      {1, SOME, PARTIAL}}},
    {"both resets are armed again together",
     {{0, CLEAN, NOTHING},
      {30001, SOME, PARTIAL},
      {30001, ALL, FIRST},
      {5001, CLEAN, NOTHING},
      {30001, SOME, PARTIAL},
      {30001, ALL, FIRST}}},
    {"a fault in between starts the clean spell anew",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {3000, CLEAN, NOTHING},
      {1, SOME, NOTHING},
      {5000, CLEAN, NOTHING},
      {30001, ALL, NOTHING}}},
    {"clean cycles alone start no clean spell",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {2000, CLEAN, NOTHING},
      {2000, CLEAN, NOTHING},
      {1001, CLEAN, NOTHING},
      {30001, ALL, FIRST}}},
    {"one fault starts the duration of the other anew",
     {{0, CLEAN, NOTHING},
      {20000, SOME, NOTHING},
      {5000, ALL, NOTHING},
      {30000, SOME, NOTHING},
      {1, SOME, PARTIAL}}},
    {"and the other way round",
     {{0, CLEAN, NOTHING},
      {20000, ALL, NOTHING},
      {5000, SOME, NOTHING},
      {30000, ALL, NOTHING},
      {1, ALL, FIRST}}},
    {"a partial reset leaves the time of the first one",
     {{0, CLEAN, NOTHING},
      {30001, ALL, FIRST},
      {200000, SOME, PARTIAL},
      {100000, ALL, NOTHING},
      {1, ALL, REPEAT}}},
    {"a clean cycle that does not arm leaves the repeat interval",
     {{0, CLEAN, NOTHING}, {30001, ALL, FIRST}, {5000, CLEAN, NOTHING}, {295001, ALL, REPEAT}}},
};

class ResetCourse : public ResetPolicy,
                    public testing::WithParamInterface<std::tuple<Course, uint32_t>> {};

TEST_P(ResetCourse, LeadsToTheseResets) {
  const auto &[course, start] = GetParam();
  platform.now = start;
  for (size_t i = 0; i < course.steps.size(); ++i) {
    platform.advance(course.steps[i].after);
    EXPECT_EQ(observe(course.steps[i].descStat), course.steps[i].reset) << "step " << i;
  }
}

// The clock runs on, past half of its range and past its end.
INSTANTIATE_TEST_SUITE_P(FromStart, ResetCourse,
                         testing::Combine(testing::ValuesIn(COURSES),
                                          testing::Values(1000000u, 0x80000000u - 15000u,
                                                          0u - 15000u, 0u - 45000u)));

class NeutralObservation : public ResetPolicy, public testing::WithParamInterface<uint8_t> {};

TEST_P(NeutralObservation, RestartsTheDurationOfBothFaults) {
  const uint8_t neutral = GetParam();
  observeAt(1000000, CLEAN);
  EXPECT_EQ(observeAt(1020000, ALL), NOTHING);
  EXPECT_EQ(observeAt(1025000, neutral), NOTHING);
  EXPECT_EQ(observeAt(1055000, ALL), NOTHING);
  EXPECT_EQ(observeAt(1055001, ALL), FIRST);
  EXPECT_EQ(observeAt(1060000, neutral), NOTHING);
  EXPECT_EQ(observeAt(1090000, SOME), NOTHING);
  EXPECT_EQ(observeAt(1090001, SOME), PARTIAL);
}

TEST_P(NeutralObservation, DoesNotArmAgain) {
  const uint8_t neutral = GetParam();
  ASSERT_EQ(observeAt(1000000, SOME), PARTIAL);
  ASSERT_EQ(observeAt(1030001, ALL), FIRST);
  EXPECT_EQ(observeAt(1100000, neutral), NOTHING);
  EXPECT_EQ(observeAt(1110000, neutral), NOTHING);
  EXPECT_EQ(observeAt(1140001, SOME), NOTHING);
  EXPECT_EQ(observeAt(1180001, ALL), NOTHING);
  EXPECT_EQ(observeAt(1330002, ALL), REPEAT);
}

TEST_P(NeutralObservation, CountsForTheCleanSpell) {
  const uint8_t neutral = GetParam();
  ASSERT_EQ(observeAt(1000000, ALL), FIRST);
  EXPECT_EQ(observeAt(1005000, neutral), NOTHING);
  EXPECT_EQ(observeAt(1005001, CLEAN), NOTHING);
  EXPECT_EQ(observeAt(1035002, ALL), FIRST);
}

TEST_P(NeutralObservation, DoesNotStopTheRepeatInterval) {
  ASSERT_EQ(observeAt(1000000, ALL), FIRST);
  EXPECT_EQ(observeAt(1300000, GetParam()), NOTHING);
  EXPECT_EQ(observeAt(1300001, ALL), REPEAT);
}

INSTANTIATE_TEST_SUITE_P(Summaries, NeutralObservation, testing::Values(0xFF, 0x10, 0x20, 0x01));

struct AtStart {
  uint32_t now;
  uint8_t descStat;
  std::string reset;
};

std::ostream &operator<<(std::ostream &out, const AtStart &start) {
  return out << "at " << start.now << " descStat " << +start.descStat;
}

class FirstObservation : public ResetPolicy, public testing::WithParamInterface<AtStart> {};

TEST_P(FirstObservation, IsJudgedAgainstTimeZero) {
  EXPECT_EQ(observeAt(GetParam().now, GetParam().descStat), GetParam().reset);
}

INSTANTIATE_TEST_SUITE_P(Times, FirstObservation,
                         testing::Values(AtStart{30000, ALL, NOTHING}, AtStart{30001, ALL, FIRST},
                                         AtStart{30000, SOME, NOTHING},
                                         AtStart{30001, SOME, PARTIAL},
                                         AtStart{0xFFFFFFFF, ALL, FIRST}));

TEST_F(ResetPolicy, AlternatingFaultsNeverReset) {
  observeAt(1000000, CLEAN);
  for (uint32_t second = 1; second <= 3600; ++second) {
    ASSERT_EQ(observeAt(1000000 + second * 1000, second % 2 == 0 ? ALL : SOME), NOTHING) << second;
  }
}

TEST_F(ResetPolicy, LimitsAreReadAtEachUse) {
  observeAt(1000000, CLEAN);
  TIME_FIRST_RESET = 100;
  TIME_RESET = 200;
  TIME_PART_RESET = 300;
  TIME_NO_RESET = 400;
  EXPECT_EQ(observeAt(1000100, ALL), NOTHING);
  EXPECT_EQ(observeAt(1000101, ALL), FIRST);
  EXPECT_EQ(observeAt(1000301, ALL), NOTHING);
  EXPECT_EQ(observeAt(1000302, ALL), REPEAT);
  EXPECT_EQ(observeAt(1000602, SOME), NOTHING);
  EXPECT_EQ(observeAt(1000603, SOME), PARTIAL);
  EXPECT_EQ(observeAt(1001003, CLEAN), NOTHING);
  EXPECT_EQ(observeAt(1001004, SOME), NOTHING);
  EXPECT_EQ(observeAt(1001405, CLEAN), NOTHING);
  EXPECT_EQ(observeAt(1001706, SOME), PARTIAL);
}

TEST_F(ResetPolicy, ResultOfTheResetIsIgnored) {
  platform.resetCAM = -1;
  observeAt(1000000, CLEAN);
  EXPECT_EQ(observeAt(1030001, ALL), FIRST);
  EXPECT_EQ(observeAt(1030002, ALL), NOTHING);
  EXPECT_EQ(observeAt(1330002, ALL), REPEAT);
}

TEST_F(ResetPolicy, EveryCamHasItsOwnTimers) {
  for (uint8_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (slot != SLOT) {
      prepareCard(slot);
    }
  }
  std::map<int, std::vector<uint32_t>> resets;
  for (uint32_t second = 0; second <= 60; ++second) {
    platform.now = 1000000 + second * 1000;
    for (uint8_t cam = 0; cam < 12; ++cam) {
      if (observe(second > cam ? ALL : CLEAN, cam / 2, cam % 2) == FIRST) {
        resets[cam].push_back(second);
      }
    }
  }
  for (uint32_t cam = 0; cam < 12; ++cam) {
    EXPECT_EQ(resets[static_cast<int>(cam)], std::vector<uint32_t>{cam + 31}) << cam;
  }
}

TEST_F(ResetPolicy, ControllerFaultResetsBothCamsOnTheirOwnTimers) {
  platform.ciLibGetInsertCard = 0;
  card.setTable({});
  platform.now = 1000000;
  observe(UNCHECKED, SLOT, 0);
  platform.now = 1010000;
  observe(UNCHECKED, SLOT, 1);
  record().cimaxStat = 1;
  platform.now = 1030001;
  EXPECT_EQ(observe(UNCHECKED, SLOT, 0), FIRST);
  EXPECT_EQ(observe(UNCHECKED, SLOT, 1), NOTHING);
  platform.now = 1040001;
  EXPECT_EQ(observe(UNCHECKED, SLOT, 0), NOTHING);
  EXPECT_EQ(observe(UNCHECKED, SLOT, 1), FIRST);
}

// A fault that lasts for a day, from half a day before the clock starts again at zero.
TEST_F(ResetPolicy, LastingFaultIsResetAtTheRepeatInterval) {
  const uint32_t start = 0u - 43200000u;
  observeAt(start, CLEAN);
  std::vector<uint32_t> resets;
  std::vector<uint32_t> expected;
  for (uint32_t second = 10; second <= 86400; second += 10) {
    const std::string text = observeAt(start + second * 1000, ALL);
    if (text != NOTHING) {
      EXPECT_EQ(text, resets.empty() ? FIRST : REPEAT);
      resets.push_back(second);
    }
  }
  for (uint32_t second = 40; second <= 86400; second += 310) {
    expected.push_back(second);
  }
  EXPECT_EQ(resets, expected);
}

}  // namespace
