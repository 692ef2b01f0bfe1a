// The rules themselves: each is told, through the platform, what a module must not do, and has to
// complain of just that; and of nothing in what looks like it and is allowed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "invariants/Platform.h"
#include "platform/Names.h"

namespace {

constexpr uint32_t slot = 0;
constexpr uint8_t allScrambled = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;
constexpr int withoutLimit = -1;
constexpr int withoutWaiting = 0;

std::vector<std::string> complaints;

void complain(rules::Rule rule, uint32_t, uint32_t) {
  complaints.push_back(rules::text(rule));
}

struct OneProgram : Answers {
  OneProgram() {
    desc.descProgCnt = 1;
    desc.prog[0].camMask = 3;
    desc.prog[0].eleNum = 1;
    desc.prog[0].caLevel = 1;
    desc.prog[0].caList.caNum = 1;
    desc.prog[0].caList.ca[0] = {0x500, 0x1000};
  }
  CiDesc *table(uint32_t) override { return &desc; }
  uint32_t lock(uint32_t) override { return locked; }
  bool addFails() override { return failing; }
  bool deleteFails() override { return failing; }

  CiDesc desc = {};
  uint32_t locked = 1;
  bool failing = false;
};

OneProgram chassis;

// What a module does.

CiData &card() {
  return *pCiData[slot];
}

void endCycle() {
  rules::cycleEnded(slot, chassis.desc);
}

// A cycle that leaves a summary of CAM A.
void cycle(uint8_t summary) {
  rules::cycleBegins(slot);
  card().descStat[0] = summary;
  card().ClrAllPreCAMPidExist(slot);
  endCycle();
}

void prepare(uint8_t cmdId) {
  CaPmtInfo[0]->mark = 1;
  CaPmtInfo[0]->version = 1;
  CaPmtInfo[0]->cmdId = cmdId;
}

void handOver(uint32_t count = 1, uint32_t camSlot = 0) {
  semTake(CaPmtSem, withoutLimit);
  ciLibSendCaPmt(slot, camSlot, CaPmtInfo, count);
  semGive(CaPmtSem);
}

void send(uint8_t cmdId) {
  prepare(cmdId);
  handOver();
}

void sendInCycle(uint8_t cmdId) {
  rules::cycleBegins(slot);
  send(cmdId);
  endCycle();
}

constexpr uint8_t okDescrambling = 1;
constexpr uint8_t query = 3;

void sendOther(void (*change)(CaPmtProg &record)) {
  prepare(okDescrambling);
  change(*CaPmtInfo[0]);
  handOver();
}

void reset(const char *reason, uint32_t slotNo = slot, uint32_t camSlot = 0) {
  leanPrintf("%s", reason);
  resetCAM(slotNo, camSlot);
}

constexpr char partial[] = "partial programs error, reset! \n";
constexpr char first[] = "all programs error, first reset! \n";
constexpr char repeated[] = "all programs error, repeat reset! \n";

AlarmRecord alarm(uint32_t object, uint32_t fault) {
  AlarmRecord record = {};
  record.head = 1;
  record.pairCount = 3;
  record.pairs[0] = {1, slot + 1};
  record.pairs[1].id = object;
  record.pairs[2].id = fault;
  return record;
}

int32_t raise() {
  AlarmRecord record = alarm(0x705, 0x703);
  return AlarmAdd(&record);
}

void raiseOther(void (*change)(AlarmRecord &record)) {
  AlarmRecord record = alarm(0x705, 0x703);
  change(record);
  AlarmAdd(&record);
}

void take(size_t size) {
  std::free(leanMalloc(size));
}

// Lets the clock of a CAM be lost in a cycle without another fault.
void loseClock(uint32_t camSlot) {
  rules::cycleBegins(slot);
  card().ClrAllPreCAMPidExist(slot);
  for (uint32_t asked = 0; asked <= camSlot; ++asked) {
    card().GetCardOnline(slot);
  }
  chassis.locked = 0;
  card().PllLock(slot);
  endCycle();
}

class RulesTest : public testing::Test {
 protected:
  RulesTest() {
    complaints.clear();
    chassis = OneProgram();
    TIME_NO_RESET = 5000;
    lean::start(chassis, complain);
    lean::now = 1000000;
    getSlotDescPidInfo(slot);
  }
};

struct Case {
  const char *name;
  const char *complaint;
  void (*events)();
};

const Case forbidden[] = {
    {"DriverOfOtherCard", "another card is touched", [] { card().GetCardReady(1); }},
    {"LibraryOfOtherCard", "another card is touched", [] { ciLibGetInsertCard(1, 0); }},
    {"FlagOfOtherCard", "another card is touched",
     [] { semTake(CaPMTFlag[MAX_CAM_NUM], withoutWaiting); }},
    {"AlarmOfOtherCard", "another card is touched",
     [] { raiseOther([](AlarmRecord &record) { record.pairs[0].instance = 2; }); }},
    {"AlarmOfOtherCardCleared", "another card is touched",
     [] {
       const int32_t index = raise();
       rules::choose(1);
       AlarmDel(index, 0);
     }},
    {"ThirdCam", "a CAM is asked for that there is not", [] { ciLibGetInsertCard(slot, 2); }},
    // A CAM C has no place of its own: what is noted of it must not become the next card's CAM A.
    {"CaPmtToThirdCam", "a CAM is asked for that there is not",
     [] {
       rules::cycleBegins(slot);
       prepare(okDescrambling);
       handOver(1, 2);
       endCycle();
       rules::choose(1);
       reset(first, 1);
     }},
    {"ResetOfThirdCam", "a CAM is asked for that there is not",
     [] {
       reset(first, slot, 2);
       rules::choose(1);
       EXPECT_EQ(semTake(CaPMTFlag[MAX_CAM_NUM], withoutWaiting), -1);
       reset(first, 1);
     }},
    {"SelectionOfNoCard", "another card is touched", [] { card().wrDesPid(MAX_BOARD_NUM, 0x100); }},
    {"ResetOfNoCard", "another card is touched", [] { reset(first, MAX_BOARD_NUM); }},
    {"IndexNotGiven", "an index is used that the library did not give",
     [] { ciLibCaSysIdMatch(0, 0x500); }},
    {"IndexOfOtherCam", "an index is used that the library did not give",
     [] {
       ciLibGetCardIndex(slot, 0);
       qm_ci_ca_pmt_clr(1, 0x500);
     }},
    {"IndexOfOtherCard", "an index is used that the library did not give",
     [] {
       ciLibGetCardIndex(slot, 0);
       rules::choose(1);
       EXT_Clear_Ca_Sys_Id(0);
     }},
    {"LockTakenWithLimit", "lock taken with a limit", [] { semTake(CaPmtSem, 100); }},
    {"LockTakenTwice", "lock taken twice",
     [] {
       semTake(CaPmtSem, withoutLimit);
       semTake(CaPmtSem, withoutLimit);
     }},
    {"LockGivenUntaken", "lock given untaken", [] { semGive(CaPmtSem); }},
    {"LockGivenTwice", "lock given untaken",
     [] {
       semTake(CaPmtSem, withoutLimit);
       semGive(CaPmtSem);
       semGive(CaPmtSem);
     }},
    {"LockKept", "lock kept",
     [] {
       rules::cycleBegins(slot);
       semTake(CaPmtSem, withoutLimit);
       endCycle();
     }},
    {"FlagWaitedFor", "flag waited for", [] { semTake(CaPMTFlag[0], withoutLimit); }},
    {"FlagGiven", "flag given by the module", [] { semGive(CaPMTFlag[0]); }},
    {"SentUnlocked", "CA PMT sent without the lock",
     [] {
       CaPmtInfo[0]->mark = CaPmtInfo[0]->version = 1;
       ciLibSendCaPmt(slot, 0, CaPmtInfo, 1);
     }},
    {"TooManyRecords", "more CA PMT records sent than there are",
     [] {
       prepare(okDescrambling);
       handOver(33);
     }},
    {"RecordWithoutMark", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.mark = 0; }); }},
    {"RecordWithoutVersion", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.version = 0; }); }},
    {"RecordOfTooHighVersion", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.version = 31; }); }},
    {"RecordWithTooManyDescriptors", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.caNum = 33; }); }},
    {"RecordWithTooManyStreams", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.eleNum = 33; }); }},
    {"RecordOfOtherListManagement", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.listMgmt = 5; }); }},
    {"PrivateDataBeyondItsEnd", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.reserved2[0] = 1; }); }},
    {"StreamWithTooManyDescriptors", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.ele[31].caNum = 33; }); }},
    {"PrivateDataBeyondItsEndInStream", "CA PMT record out of its limits",
     [] { sendOther([](CaPmtProg &record) { record.ele[31].reserved = 1; }); }},
    {"QueryAtOnce", "query too soon behind a CA PMT",
     [] {
       sendInCycle(okDescrambling);
       lean::now += TIME_CAPMT;
       sendInCycle(query);
     }},
    {"ResetAtOnce", "reset too soon behind a CA PMT",
     [] {
       sendInCycle(okDescrambling);
       lean::now += TIME_CAPMT;
       reset(first);
     }},
    {"ResetAtOnceBehindQuery", "reset too soon behind a CA PMT",
     [] {
       sendInCycle(query);
       reset(partial);
     }},
    {"ResetWithoutText", "reset without a reason", [] { resetCAM(slot, 0); }},
    {"SecondResetOfOneText", "reset without a reason",
     [] {
       reset(first);
       resetCAM(slot, 0);
     }},
    {"SecondPartialReset", "second first or partial reset before re-arming",
     [] {
       reset(partial);
       reset(partial);
     }},
    {"SecondFirstReset", "second first or partial reset before re-arming",
     [] {
       reset(first);
       reset(first);
     }},
    {"ArmedTooSoon", "second first or partial reset before re-arming",
     [] {
       reset(partial);
       cycle(allScrambled);
       lean::now += TIME_NO_RESET;
       cycle(DESC_SUM_OK);
       reset(partial);
     }},
    {"ArmedByNothingMeasured", "second first or partial reset before re-arming",
     [] {
       reset(partial);
       cycle(DESC_SUM_ERROR);
       reset(partial);
     }},
    {"ArmedWithTheClockLost", "second first or partial reset before re-arming",
     [] {
       reset(partial);
       loseClock(0);
       reset(partial);
     }},
    {"RepeatedWithoutFirst", "reset repeated too soon", [] { reset(repeated); }},
    {"RepeatedTooSoon", "reset repeated too soon",
     [] {
       reset(first);
       lean::now += TIME_RESET;
       reset(repeated);
     }},
    {"ClockBeforeTheResets", "clock asked for no CAM",
     [] {
       rules::cycleBegins(slot);
       card().GetCardOnline(slot);
       card().PllLock(slot);
     }},
    {"ClockOfThirdCam", "clock asked for no CAM", [] { loseClock(2); }},
    {"AlarmOfNoCard", "unknown alarm",
     [] { raiseOther([](AlarmRecord &record) { record.pairs[0].instance = 0; }); }},
    {"AlarmWithOtherHead", "unknown alarm",
     [] { raiseOther([](AlarmRecord &record) { record.head = 0; }); }},
    {"AlarmOfOtherSize", "unknown alarm",
     [] { raiseOther([](AlarmRecord &record) { record.pairCount = 5; }); }},
    {"AlarmOfOtherFault", "unknown alarm",
     [] { raiseOther([](AlarmRecord &record) { record.pairs[2].id = 0x111; }); }},
    {"AlarmRaisedTwice", "alarm raised twice",
     [] {
       raise();
       raise();
     }},
    {"AlarmNeverRaised", "alarm cleared that does not stand", [] { AlarmDel(0, 0); }},
    {"AlarmWithoutIndex", "alarm cleared that does not stand", [] { AlarmDel(-1, 0); }},
    {"AlarmClearedTwice", "alarm cleared that does not stand",
     [] {
       const int32_t index = raise();
       AlarmDel(index, 0);
       AlarmDel(index, 0);
     }},
    {"OtherAnswer", "another answer of the alarm checks", [] { rules::checkAlarmAnswer(2); }},
    {"OtherFailure", "another answer of the alarm checks", [] { rules::checkAlarmAnswer(-2); }},
    {"OtherSummary", "finding that is no code", [] { cycle(DESC_SUM_PART | DESC_SUM_ALL); }},
    {"OtherFinding", "finding that is no code",
     [] {
       card().preCamPidStat[1] = 2;
       cycle(DESC_SUM_OK);
     }},
    {"OtherController", "finding that is no code",
     [] {
       card().cimaxStat = 2;
       cycle(DESC_SUM_OK);
     }},
    {"OtherCaSystem", "finding that is no code",
     [] {
       card().casidStat[1] = 2;
       cycle(DESC_SUM_OK);
     }},
    {"OtherStatus", "status that is no code",
     [] {
       DescStatus[slot][0].progStatus = 0x50;
       DescStatus[slot][0].pid[0].status = 0x50;
       cycle(DESC_SUM_OK);
     }},
    {"OtherStatusAnswered", "status that is no code",
     [] {
       DescStatus[slot][0].progStatus = 0x50;
       lean::askStatus(slot, 0);
     }},
    {"BetterThanItsWorst", "program status that is not its worst PID's",
     [] {
       DescStatus[slot][0].progStatus = DESC_STAT_OK;
       DescStatus[slot][0].pid[0].status = DESC_STAT_SCRAMBLED;
       cycle(DESC_SUM_OK);
     }},
    {"WorseThanNothing", "program status that is not its worst PID's",
     [] {
       chassis.desc.prog[0].eleNum = 0;
       DescStatus[slot][0].progStatus = DESC_STAT_SCRAMBLED;
       cycle(DESC_SUM_OK);
     }},
    {"MemoryTakenLater", "memory taken beside the cards' records", [] { take(sizeof(CiData)); }},
    {"MemoryOfOtherSize", "memory taken beside the cards' records",
     [] {
       rules::registrationBegins();
       take(sizeof(CiData) + 1);
     }},
    {"SecondRecord", "memory taken beside the cards' records",
     [] {
       rules::registrationBegins();
       take(sizeof(CiData));
       take(sizeof(CiData));
     }},
    {"LimitChanged", "limit changed by the module",
     [] {
       rules::cycleBegins(slot);
       ++TIME_NO_RESET;
       endCycle();
     }},
};

const Case allowed[] = {
    {"LockAgain", nullptr,
     [] {
       send(okDescrambling);
       send(okDescrambling);
     }},
    {"QueryInTime", nullptr,
     [] {
       sendInCycle(okDescrambling);
       lean::now += TIME_CAPMT + 1;
       sendInCycle(query);
     }},
    {"CaPmtBehindCaPmt", nullptr,
     [] {
       sendInCycle(okDescrambling);
       sendInCycle(okDescrambling);
     }},
    {"ResetInTime", nullptr,
     [] {
       sendInCycle(query);
       lean::now += TIME_CAPMT + 1;
       reset(first);
     }},
    {"ResetBehindConsole", nullptr,
     [] {
       send(okDescrambling);
       reset(first);
     }},
    {"OneResetOfEachKind", nullptr,
     [] {
       reset(partial);
       reset(first);
       lean::now += TIME_RESET + 1;
       reset(repeated);
     }},
    {"ArmedAgain", nullptr,
     [] {
       reset(partial);
       cycle(allScrambled);
       lean::now += TIME_NO_RESET + 1;
       cycle(DESC_SUM_OK);
       reset(partial);
     }},
    {"ClockOfOtherCamLost", nullptr,
     [] {
       reset(partial);
       loseClock(1);
       reset(partial);
     }},
    {"AlarmAgain", nullptr,
     [] {
       AlarmDel(raise(), 0);
       raise();
     }},
    {"AlarmAgainWhenItFailed", nullptr,
     [] {
       chassis.failing = true;
       EXPECT_LT(raise(), 0);
       chassis.failing = false;
       const int32_t index = raise();
       chassis.failing = true;
       EXPECT_LT(AlarmDel(index, 0), 0);
       AlarmDel(index, 0);
     }},
    {"IndexAsGiven", nullptr,
     [] { EXT_Clear_Ca_Sys_Id(static_cast<uint8_t>(ciLibGetCardIndex(slot, 1))); }},
    {"ProgramWithoutPids", nullptr,
     [] {
       chassis.desc.prog[0].eleNum = 0;
       DescStatus[slot][0].progStatus = DESC_STAT_OK;
       cycle(DESC_SUM_OK);
     }},
    {"CyclesOfTheModule", nullptr,
     [] {
       lean::wantCaPmt(slot, 0);
       lean::wantCaPmt(slot, 1);
       for (int i = 0; i < 3; ++i) {
         lean::supervise(slot, chassis.desc);
       }
       EXPECT_EQ(rules::counts.caPmts, 2U);
       EXPECT_EQ(rules::counts.pidsRead, 6U);
     }},
};

class Forbidden : public RulesTest, public testing::WithParamInterface<Case> {};
class Allowed : public RulesTest, public testing::WithParamInterface<Case> {};

TEST_P(Forbidden, IsComplainedOf) {
  GetParam().events();
  EXPECT_EQ(complaints, std::vector<std::string>{GetParam().complaint});
}

TEST_P(Allowed, IsNotComplainedOf) {
  GetParam().events();
  EXPECT_EQ(complaints, std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Rules, Forbidden, testing::ValuesIn(forbidden), ItsName());
INSTANTIATE_TEST_SUITE_P(Rules, Allowed, testing::ValuesIn(allowed), ItsName());

TEST_F(RulesTest, OneRecordPerCardIsTaken) {
  EXPECT_EQ(rules::counts.records, static_cast<uint64_t>(MAX_BOARD_NUM));
  EXPECT_TRUE(complaints.empty());
}

TEST_F(RulesTest, IndexOfThirdCamIsNotTheNextCards) {
  const uint32_t index = ciLibGetCardIndex(slot, 2);
  rules::choose(1);
  EXT_Clear_Ca_Sys_Id(static_cast<uint8_t>(index));
  const std::vector<std::string> both = {"a CAM is asked for that there is not",
                                         "an index is used that the library did not give"};
  EXPECT_EQ(complaints, both);
}

TEST_F(RulesTest, ResetOfThirdCamIsNotTheNextCards) {
  rules::camReset(slot, 2, first);
  rules::camReset(1, 0, first);
  EXPECT_TRUE(complaints.empty());
}

TEST_F(RulesTest, StandingAlarmsAreKnown) {
  EXPECT_FALSE(rules::anyAlarm(slot));
  const int32_t index = raise();
  EXPECT_TRUE(rules::anyAlarm(slot));
  EXPECT_FALSE(rules::anyAlarm(1));
  AlarmDel(index, 0);
  EXPECT_FALSE(rules::anyAlarm(slot));
}

TEST(Rules, EachHasACaseThatBreaksIt) {
  for (int i = 0; i < static_cast<int>(rules::Rule::count); ++i) {
    const std::string text = rules::text(static_cast<rules::Rule>(i));
    const auto breaks = [&text](const Case &each) { return text == each.complaint; };
    EXPECT_TRUE(std::any_of(std::begin(forbidden), std::end(forbidden), breaks)) << text;
  }
}

}  // namespace
