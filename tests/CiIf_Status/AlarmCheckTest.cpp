// The delay filter of the five alarm kinds and the records they raise.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "AlarmKinds.h"
#include "CiIf_Status/CiIf_Status.h"

namespace {

constexpr uint32_t SLOT = 3;
constexpr uint32_t NEVER_OK = 0;  // the stamp before the first fault-free check

// Every test runs for each kind and each CAM. A check of the card-level kind acts on the same state
// and prints the same texts for both CAMs.
class AlarmCheck : public testing::TestWithParam<std::tuple<AlarmKind, uint32_t>> {
 protected:
  AlarmCheck() { registerCard(SLOT); }
  void SetUp() override { ciAlarmDlyTimeInit(); }

  const AlarmKind &kind() const { return std::get<0>(GetParam()); }
  uint32_t raiseDelay() const { return kind().delays.raise; }
  uint32_t clearDelay() const { return kind().delays.clear; }
  int32_t pastDelay() const { return kind().delays.answerPast; }

  // One check and all that it calls behind its front.
  void expectCheck(int32_t result, const Calls &calls) const {
    EXPECT_EQ(alarm.check(), result);
    EXPECT_EQ(platform.take(), alarm.checked(calls));
  }

  void expectRaise(uint32_t okStamp) const {
    expectCheck(pastDelay(), joined({{TIME, since(okStamp)}, alarm.raising()}));
  }

  const Alarm alarm{kind(), SLOT, std::get<1>(GetParam())};
};

std::string kindAndCam(const testing::TestParamInfo<AlarmCheck::ParamType> &info) {
  return std::string(std::get<0>(info.param).name) + "Cam" + "AB"[std::get<1>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Kinds, AlarmCheck,
                         testing::Combine(testing::ValuesIn(alarmKinds), testing::Values(0u, 1u)),
                         kindAndCam);

// --- clear ---------------------------------------------------------------------------------------

TEST_P(AlarmCheck, ClearAndMaskedMovesTheOkStamp) {
  alarm.fault();
  alarm.mask();
  expectCheck(0, {TIME});
  const uint32_t ok = platform.now;
  platform.advance(raiseDelay());
  alarm.unmask();
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

TEST_P(AlarmCheck, ClearWithoutFaultMovesTheOkStamp) {
  alarm.noFault();
  expectCheck(0, {TIME});
  platform.advance(17);
  expectCheck(0, {TIME});
  const uint32_t ok = platform.now;
  platform.advance(1);
  alarm.fault();
  expectCheck(0, {TIME, since(ok)});
}

TEST_P(AlarmCheck, RaisesOnlyPastTheRaiseDelay) {
  const uint32_t ok = alarm.markOk();
  alarm.fault();
  expectCheck(0, {TIME, since(ok)});
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

TEST_P(AlarmCheck, FaultFreeCheckRestartsTheRaiseDelay) {
  alarm.markOk();
  alarm.fault();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(platform.now - raiseDelay())});
  platform.advance(500);
  const uint32_t ok = alarm.markOk();
  alarm.fault();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

TEST_P(AlarmCheck, FailedRaiseIsTriedAgainOnEveryCheck) {
  const uint32_t ok = alarm.markOk();
  alarm.fault();
  platform.advance(raiseDelay() + 1);
  for (int32_t failure : {-1, -2, INT_MIN}) {
    platform.AlarmAdd = failure;
    expectCheck(
        -1, joined({{TIME, since(ok)}, alarm.raising(), {alarm.message(kind().failures.raise)}}));
    platform.advance(1);
  }
  platform.AlarmAdd = 0;
  expectRaise(ok);
}

TEST_P(AlarmCheck, FailedRaiseLeavesNothingToClear) {
  alarm.markOk();
  alarm.fault();
  platform.advance(raiseDelay() + 1);
  platform.AlarmAdd = -1;
  alarm.check();
  platform.take();

  platform.advance(clearDelay() + 1);
  alarm.noFault();
  expectCheck(0, {TIME});
  alarm.mask();
  expectCheck(0, {TIME});
}

TEST_P(AlarmCheck, FaultOfTheFirstCheckIsMeasuredFromTimeZero) {
  platform.now = raiseDelay();
  alarm.fault();
  expectCheck(0, {TIME, since(NEVER_OK)});
  platform.advance(1);
  expectRaise(NEVER_OK);
}

TEST_P(AlarmCheck, FaultOfTheFirstCheckIsRaisedAtOnceLaterThanTheDelay) {
  platform.now = raiseDelay() + 1;
  alarm.fault();
  expectRaise(NEVER_OK);
}

// --- raised --------------------------------------------------------------------------------------

TEST_P(AlarmCheck, StandingAlarmIsNotRaisedAgain) {
  const uint32_t raised = alarm.raise();
  const uint32_t ok = raised - raiseDelay() - 1;
  expectCheck(pastDelay(), {TIME, since(ok)});
  platform.advance(raiseDelay());
  expectCheck(pastDelay(), {TIME, since(ok)});
}

TEST_P(AlarmCheck, StandingAlarmClearsOnlyPastTheClearDelay) {
  const uint32_t err = alarm.raise(42);
  alarm.noFault();
  expectCheck(0, {TIME, since(err)});
  platform.advance(clearDelay());
  expectCheck(0, {TIME, since(err)});
  platform.advance(1);
  expectCheck(0, {TIME, since(err), alarmDel(42)});
  platform.advance(clearDelay() + 1);
  expectCheck(0, {TIME});
}

TEST_P(AlarmCheck, FaultyCheckRestartsTheClearDelay) {
  alarm.raise(42);
  platform.advance(clearDelay());
  alarm.fault();
  alarm.check();
  platform.take();
  const uint32_t err = platform.now;

  alarm.noFault();
  platform.advance(clearDelay());
  expectCheck(0, {TIME, since(err)});
  platform.advance(1);
  expectCheck(0, {TIME, since(err), alarmDel(42)});
}

TEST_P(AlarmCheck, FaultFreeCheckOfAStandingAlarmRestartsTheRaiseDelay) {
  const uint32_t raised = alarm.raise();
  alarm.noFault();
  expectCheck(0, {TIME, since(raised)});
  const uint32_t ok = platform.now;

  alarm.fault();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectCheck(pastDelay(), {TIME, since(ok)});
}

TEST_P(AlarmCheck, MaskClearsAtOnceAndMovesTheOkStamp) {
  alarm.raise(42);
  alarm.mask();
  expectCheck(0, {TIME, alarmDel(42)});
  platform.advance(1);
  expectCheck(0, {TIME});
  const uint32_t ok = platform.now;

  alarm.unmask();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

TEST_P(AlarmCheck, MaskThatClearsMovesTheOkStamp) {
  alarm.raise();
  platform.advance(5);
  alarm.mask();
  expectCheck(0, {TIME, alarmDel(1)});
  const uint32_t ok = platform.now;
  alarm.unmask();
  platform.advance(1);
  expectCheck(0, {TIME, since(ok)});
}

TEST_P(AlarmCheck, DelayedClearMovesTheOkStamp) {
  const uint32_t err = alarm.raise();
  platform.advance(clearDelay() + 1);
  alarm.noFault();
  expectCheck(0, {TIME, since(err), alarmDel(1)});
  const uint32_t ok = platform.now;
  alarm.fault();
  platform.advance(1);
  expectCheck(0, {TIME, since(ok)});
}

TEST_P(AlarmCheck, FailedClearOnMaskIsTriedAgain) {
  alarm.raise(42);
  alarm.mask();
  for (int32_t failure : {-1, -2, INT_MIN}) {
    platform.AlarmDel = failure;
    expectCheck(-1, {TIME, alarmDel(42), alarm.message(kind().failures.maskedClear)});
  }
  platform.AlarmDel = 0;
  expectCheck(0, {TIME, alarmDel(42)});
  expectCheck(0, {TIME});
}

TEST_P(AlarmCheck, AlarmStandsAfterAFailedClearOnMask) {
  const uint32_t err = alarm.raise(42);
  platform.advance(1);
  alarm.mask();
  platform.AlarmDel = -1;
  alarm.check();
  platform.take();
  const uint32_t ok = platform.now;

  alarm.unmask();
  platform.advance(raiseDelay() + 1);
  expectCheck(pastDelay(), {TIME, since(ok)});
  const uint32_t again = platform.now;
  EXPECT_NE(again, err);

  alarm.noFault();
  platform.advance(clearDelay() + 1);
  platform.AlarmDel = 0;
  expectCheck(0, {TIME, since(again), alarmDel(42)});
}

TEST_P(AlarmCheck, MaskedChecksLeaveTheErrStamp) {
  const uint32_t err = alarm.raise(42);
  platform.advance(clearDelay());
  alarm.mask();
  platform.AlarmDel = -1;
  alarm.check();
  platform.take();

  alarm.unmask();
  alarm.noFault();
  platform.AlarmDel = 0;
  platform.advance(1);
  expectCheck(0, {TIME, since(err), alarmDel(42)});
}

TEST_P(AlarmCheck, FailedDelayedClearIsTriedAgain) {
  const uint32_t err = alarm.raise(42);
  alarm.noFault();
  platform.advance(clearDelay() + 1);
  for (int32_t failure : {-1, -2, INT_MIN}) {
    platform.AlarmDel = failure;
    expectCheck(-1, {TIME, since(err), alarmDel(42), alarm.message(kind().failures.clear)});
    platform.advance(1);
  }
  platform.AlarmDel = 0;
  expectCheck(0, {TIME, since(err), alarmDel(42)});
  expectCheck(0, {TIME});
}

TEST_P(AlarmCheck, AlarmStandsAfterAFailedDelayedClear) {
  const uint32_t err = alarm.raise(42);
  alarm.noFault();
  platform.advance(clearDelay() + 1);
  platform.AlarmDel = -1;
  alarm.check();
  platform.take();
  const uint32_t ok = platform.now;

  alarm.fault();
  platform.advance(raiseDelay() + 1);
  expectCheck(pastDelay(), {TIME, since(ok)});
  const uint32_t again = platform.now;
  EXPECT_NE(again, err);

  alarm.noFault();
  platform.advance(clearDelay());
  expectCheck(0, {TIME, since(again)});
}

TEST_P(AlarmCheck, FailedDelayedClearIsFinishedByAMask) {
  alarm.raise(42);
  alarm.noFault();
  platform.advance(clearDelay() + 1);
  platform.AlarmDel = -1;
  alarm.check();
  platform.take();

  alarm.mask();
  platform.AlarmDel = 0;
  expectCheck(0, {TIME, alarmDel(42)});
}

TEST_P(AlarmCheck, PositiveResultsOfAlarmDelAreSuccess) {
  for (int32_t result : {1, 7, INT_MAX}) {
    alarm.raise(42);
    platform.AlarmDel = result;
    alarm.mask();
    expectCheck(0, {TIME, alarmDel(42)});
    expectCheck(0, {TIME});
    alarm.unmask();

    const uint32_t err = alarm.raise(43);
    alarm.noFault();
    platform.advance(clearDelay() + 1);
    expectCheck(0, {TIME, since(err), alarmDel(43)});
    expectCheck(0, {TIME});
  }
}

TEST_P(AlarmCheck, EveryRaiseHasItsOwnIndex) {
  for (int32_t index : {0, 7, 0, INT_MAX, 256}) {
    alarm.raise(index);
    alarm.mask();
    expectCheck(0, {TIME, alarmDel(index)});
    alarm.unmask();
  }
}

// --- delays and the clock ------------------------------------------------------------------------

TEST_P(AlarmCheck, SecondSettingOfTheDelaysChangesNothing) {
  ciAlarmDlyTimeInit();
  const uint32_t ok = alarm.markOk();
  alarm.fault();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
  const uint32_t err = platform.now;
  alarm.noFault();
  platform.advance(clearDelay());
  expectCheck(0, {TIME, since(err)});
  platform.advance(1);
  expectCheck(0, {TIME, since(err), alarmDel(1)});
}

// The stamp stands so far before the wrap that the limit falls on either side of it and onto it.
TEST_P(AlarmCheck, RaiseDelayRunsAcrossTheWrapOfTheClock) {
  for (uint32_t before : {1u, raiseDelay() / 2, raiseDelay(), raiseDelay() + 1}) {
    SCOPED_TRACE(before);
    platform.now = 0 - before;
    const uint32_t ok = alarm.markOk();
    alarm.fault();
    platform.advance(raiseDelay());
    expectCheck(0, {TIME, since(ok)});
    platform.advance(1);
    expectRaise(ok);
    alarm.clear();
  }
}

TEST_P(AlarmCheck, ClearDelayRunsAcrossTheWrapOfTheClock) {
  for (uint32_t before : {1u, clearDelay() / 2, clearDelay(), clearDelay() + 1}) {
    SCOPED_TRACE(before);
    platform.now = 0 - before - raiseDelay() - 1;
    const uint32_t err = alarm.raise(42);
    EXPECT_EQ(err, 0 - before);
    alarm.noFault();
    platform.advance(clearDelay());
    expectCheck(0, {TIME, since(err)});
    platform.advance(1);
    expectCheck(0, {TIME, since(err), alarmDel(42)});
  }
}

TEST_P(AlarmCheck, ElapsedTimesAreUnsigned) {
  for (uint32_t elapsed : {0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(elapsed);
    const uint32_t ok = alarm.markOk();
    alarm.fault();
    platform.advance(elapsed);
    expectRaise(ok);
    const uint32_t err = platform.now;
    alarm.noFault();
    platform.advance(elapsed);
    expectCheck(0, {TIME, since(err), alarmDel(1)});
  }
}

// --- masks ---------------------------------------------------------------------------------------

TEST_P(AlarmCheck, EveryNonZeroMaskHoldsClear) {
  const std::vector<uint32_t> values = {0, 1, 2, 0x100, 0x80000000, 0xFFFFFFFF};
  for (uint32_t camA : values) {
    for (uint32_t camB : values) {
      SCOPED_TRACE(testing::Message() << "masks " << camA << " and " << camB);
      const uint32_t own = std::get<1>(GetParam()) == 0 ? camA : camB;
      const bool masked = kind().perCard ? camA != 0 && camB != 0 : own != 0;
      const uint32_t raised = alarm.raise(42);
      alarm.masks(camA, camB);
      if (masked) {
        expectCheck(0, {TIME, alarmDel(42)});
      } else {
        expectCheck(pastDelay(), {TIME, since(raised - raiseDelay() - 1)});
      }
      alarm.clear();
    }
  }
}

// --- records -------------------------------------------------------------------------------------

template <typename T>
void append(std::vector<uint8_t> &bytes, T value) {
  uint8_t raw[sizeof value];
  std::memcpy(raw, &value, sizeof value);
  bytes.insert(bytes.end(), raw, raw + sizeof value);
}

std::vector<uint8_t> expectedRecord(const AlarmKind &kind, uint32_t slotNo, uint32_t camSlot) {
  std::vector<uint8_t> bytes;
  append<uint32_t>(bytes, 1);
  bytes.insert(bytes.end(), {0, 0, 0, static_cast<uint8_t>(2 + kind.ids.reasons.size())});
  append<uint32_t>(bytes, 1);
  append<uint32_t>(bytes, slotNo + 1);
  append<uint32_t>(bytes, kind.ids.objects[camSlot]);
  append<int32_t>(bytes, -1);
  for (uint32_t reason : kind.ids.reasons) {
    append<uint32_t>(bytes, reason);
    append<int32_t>(bytes, -1);
  }
  return bytes;
}

// Without the reserved bytes, which mean nothing, and whatever stands behind the pairs.
std::vector<uint8_t> meaningfulBytes(const AlarmRecord &record) {
  std::vector<uint8_t> bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  bytes[4] = bytes[5] = bytes[6] = 0;
  bytes.resize(8 + size_t{8} * bytes[7]);
  return bytes;
}

TEST_P(AlarmCheck, RecordNamesTheCardTheObjectAndTheFault) {
  const uint32_t camSlot = std::get<1>(GetParam());
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    SCOPED_TRACE(slotNo);
    if (slotNo != SLOT) {
      registerCard(slotNo);
    }
    Alarm(kind(), slotNo, camSlot).raise();
    ASSERT_EQ(platform.alarms.size(), slotNo + 1);
    EXPECT_EQ(meaningfulBytes(platform.alarms.back()), expectedRecord(kind(), slotNo, camSlot));
  }
}

TEST_P(AlarmCheck, CardRecordIsLeftAlone) {
  const CiData before = *pCiData[SLOT];
  alarm.raise();
  alarm.field(0x5A);
  CiData expected = before;
  kind().set(expected, std::get<1>(GetParam()), 0x5A);
  alarm.check();
  alarm.mask();
  alarm.check();
  EXPECT_EQ(std::memcmp(pCiData[SLOT], &expected, sizeof expected), 0);
}

// --- before the delays are set -------------------------------------------------------------------

class AlarmCheckBeforeStart : public AlarmCheck {
 protected:
  void SetUp() override {}
};

INSTANTIATE_TEST_SUITE_P(Kinds, AlarmCheckBeforeStart,
                         testing::Combine(testing::ValuesIn(alarmKinds), testing::Values(0u, 1u)),
                         kindAndCam);

TEST_P(AlarmCheckBeforeStart, AnyLastingFaultIsRaised) {
  const uint32_t ok = alarm.markOk();
  alarm.fault();
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

TEST_P(AlarmCheckBeforeStart, AnyLastingAbsenceOfAFaultClears) {
  const uint32_t err = alarm.raise(42);
  alarm.noFault();
  expectCheck(0, {TIME, since(err)});
  platform.advance(1);
  expectCheck(0, {TIME, since(err), alarmDel(42)});
}

TEST_P(AlarmCheckBeforeStart, FaultOfTheFirstCheckIsRaisedAfterTimeZero) {
  platform.now = 0;
  alarm.fault();
  expectCheck(0, {TIME, since(NEVER_OK)});
  platform.advance(1);
  expectRaise(NEVER_OK);
}

TEST_P(AlarmCheckBeforeStart, DelaysHoldFromTheNextCheckOn) {
  const uint32_t ok = alarm.markOk();
  ciAlarmDlyTimeInit();
  alarm.fault();
  platform.advance(raiseDelay());
  expectCheck(0, {TIME, since(ok)});
  platform.advance(1);
  expectRaise(ok);
}

// --- fault values --------------------------------------------------------------------------------

struct FieldValue {
  AlarmKind kind;
  uint32_t value;
  bool fault;
};

std::ostream &operator<<(std::ostream &out, const FieldValue &value) {
  return out << value.kind << " field 0x" << std::hex << value.value << std::dec;
}

std::vector<FieldValue> fieldValues() {
  std::vector<FieldValue> values;
  for (const AlarmKind &kind : alarmKinds) {
    for (uint32_t value : kind.values.faults) {
      values.push_back({kind, value, true});
    }
    for (uint32_t value : kind.values.harmless) {
      values.push_back({kind, value, false});
    }
  }
  return values;
}

std::string kindAndValue(const testing::TestParamInfo<FieldValue> &info) {
  return std::string(info.param.kind.name) + "_" + std::to_string(info.param.value);
}

class AlarmField : public testing::TestWithParam<FieldValue> {
 protected:
  AlarmField() {
    registerCard(SLOT);
    ciAlarmDlyTimeInit();
  }
};

INSTANTIATE_TEST_SUITE_P(Values, AlarmField, testing::ValuesIn(fieldValues()), kindAndValue);

TEST_P(AlarmField, RaisesOnlyAsAFault) {
  for (uint32_t camSlot : {0u, 1u}) {
    const Alarm alarm(GetParam().kind, SLOT, camSlot);
    alarm.markOk();
    alarm.field(GetParam().value);
    platform.advance(GetParam().kind.delays.raise + 1);
    EXPECT_EQ(alarm.check(), GetParam().fault ? GetParam().kind.delays.answerPast : 0);
    EXPECT_EQ(platform.count("AlarmAdd"), GetParam().fault ? 1u : 0u);
    alarm.clear();
  }
}

TEST_P(AlarmField, ClearsUnlessAFault) {
  for (uint32_t camSlot : {0u, 1u}) {
    const Alarm alarm(GetParam().kind, SLOT, camSlot);
    alarm.raise();
    alarm.field(GetParam().value);
    platform.advance(GetParam().kind.delays.clear + 1);
    EXPECT_EQ(alarm.check(), GetParam().fault ? GetParam().kind.delays.answerPast : 0);
    EXPECT_EQ(platform.count("AlarmDel"), GetParam().fault ? 0u : 1u);
    alarm.clear();
  }
}

// --- independence --------------------------------------------------------------------------------

// One alarm of every state that the module keeps, and the registered cards behind them.
std::vector<Alarm> everyAlarm() {
  std::vector<Alarm> alarms;
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
    for (const AlarmKind &kind : alarmKinds) {
      for (uint32_t camSlot = 0; camSlot < (kind.perCard ? 1u : 2u); ++camSlot) {
        alarms.emplace_back(kind, slotNo, camSlot);
      }
    }
  }
  return alarms;
}

TEST(AlarmStates, StampsBelongToOneCardCamAndKind) {
  const std::vector<Alarm> alarms = everyAlarm();
  std::vector<uint32_t> stamps;
  for (const Alarm &alarm : alarms) {
    platform.advance(1);
    stamps.push_back(alarm.markOk());
    alarm.fault();
  }
  platform.advance(1);
  for (size_t i = 0; i < alarms.size(); ++i) {
    alarms[i].check();
    EXPECT_EQ(platform.take(),
              alarms[i].checked(joined({{TIME, since(stamps[i])}, alarms[i].raising()})));
  }
}

TEST(AlarmStates, FaultStampsBelongToOneCardCamAndKind) {
  const std::vector<Alarm> alarms = everyAlarm();
  std::vector<uint32_t> stamps;
  for (const Alarm &alarm : alarms) {
    stamps.push_back(alarm.raise());
    alarm.noFault();
  }
  platform.advance(1);
  for (size_t i = 0; i < alarms.size(); ++i) {
    EXPECT_EQ(alarms[i].check(), 0);
    EXPECT_EQ(platform.take(), alarms[i].checked({TIME, since(stamps[i]), alarmDel(1)}));
  }
}

TEST(AlarmStates, IndexesBelongToOneCardCamAndKind) {
  const std::vector<Alarm> alarms = everyAlarm();
  for (size_t i = 0; i < alarms.size(); ++i) {
    alarms[i].raise(static_cast<int32_t>(100 + i));
  }
  for (size_t i = 0; i < alarms.size(); ++i) {
    alarms[i].mask();
    EXPECT_EQ(alarms[i].check(), 0);
    EXPECT_EQ(platform.take(), alarms[i].checked({TIME, alarmDel(static_cast<int32_t>(100 + i))}));
  }
}

// An alarm stands while all others of its card come and go.
TEST(AlarmStates, AlarmsOfACardDoNotTouchEachOther) {
  const std::vector<Alarm> alarms = everyAlarm();
  for (const Alarm &standing : alarms) {
    standing.raise(42);
    for (const Alarm &other : alarms) {
      if (&other != &standing) {
        other.raise(43);
        other.clear();
      }
    }
    standing.mask();
    standing.check();
    EXPECT_EQ(platform.take(), standing.checked({TIME, alarmDel(42)}));
    standing.unmask();
  }
}

TEST(AlarmStates, CardAlarmIsOneForBothCams) {
  registerCard(SLOT);
  const Alarm byCamA(alarmKind(ALARM_KIND_CI_INPUT), SLOT, 0);
  const Alarm byCamB(alarmKind(ALARM_KIND_CI_INPUT), SLOT, 1);
  byCamA.raise(42);
  EXPECT_EQ(byCamB.check(), 0);
  EXPECT_EQ(platform.count("AlarmAdd"), 0u);
  byCamB.mask();
  platform.take();
  EXPECT_EQ(byCamB.check(), 0);
  EXPECT_EQ(platform.take(), byCamB.checked({TIME, alarmDel(42)}));
  EXPECT_EQ(byCamA.check(), 0);
  EXPECT_EQ(platform.take(), byCamA.checked({TIME}));
}

// --- raise action of the absent CAM --------------------------------------------------------------

TEST(CamAbsentRaise, PassesTheLowByteOfTheCamIndex) {
  registerCard(SLOT);
  const Alarm alarm(alarmKind(ALARM_KIND_CAM_ABSENT), SLOT, 1);
  for (auto [index, lowByte] : {std::pair{0x123u, "35"}, {0xFFFFFFFFu, "255"}, {0x100u, "0"}}) {
    platform.ciLibGetCardIndex = index;
    alarm.markOk();
    alarm.fault();
    platform.advance(1);
    EXPECT_EQ(alarm.check(), 1);
    EXPECT_EQ(platform.take({"EXT_Clear_Ca_Sys_Id"}),
              (Calls{std::string("EXT_Clear_Ca_Sys_Id(") + lowByte + ")"}));
    alarm.clear();
  }
}

TEST(CamAbsentRaise, PrintsTheCardFromOneAndTheCamAsALetter) {
  for (uint32_t slotNo : {0u, 5u}) {
    registerCard(slotNo);
  }
  for (auto [slotNo, camSlot, text] : {std::tuple{0u, 0u, "clear ca sys id, slotNo 1,CAM A! \n"},
                                       {0u, 1u, "clear ca sys id, slotNo 1,CAM B! \n"},
                                       {5u, 0u, "clear ca sys id, slotNo 6,CAM A! \n"},
                                       {5u, 1u, "clear ca sys id, slotNo 6,CAM B! \n"}}) {
    pCiData[slotNo]->camInsert[camSlot] = 0;
    camAlarmCheck(slotNo, camSlot, ALARM_KIND_CAM_ABSENT);
    EXPECT_EQ(platform.take({"printf", "bbPrintf"}), (Calls{printed(text)}));
  }
}

// A CAM that is not checked any more does not count as absent.
TEST(CamAbsentRaise, UncheckedCamClears) {
  registerCard(SLOT);
  ciAlarmDlyTimeInit();
  const Alarm alarm(alarmKind(ALARM_KIND_CAM_ABSENT), SLOT, 0);
  const uint32_t err = alarm.raise(42);
  alarm.field(0xFF);
  platform.advance(1000);
  EXPECT_EQ(alarm.check(), 0);
  EXPECT_EQ(platform.take(), alarm.checked({TIME, since(err)}));
  platform.advance(1);
  EXPECT_EQ(alarm.check(), 0);
  EXPECT_EQ(platform.take(), alarm.checked({TIME, since(err), alarmDel(42)}));
}

}  // namespace
