// The entry of the alarm checks: guards, masks, dispatch on the kind, and a card's nine checks.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "AlarmKinds.h"
#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"

namespace {

constexpr uint32_t SLOT = 2;

Calls masksOf(uint32_t slotNo) {
  const std::string slot = std::to_string(slotNo);
  return {"CamAlarmMask(" + slot + ", 0)", "CamAlarmMask(" + slot + ", 1)"};
}

// --- guards --------------------------------------------------------------------------------------

struct Guarded {
  uint32_t slotNo;
  uint32_t camSlot;
  const char *text;
};

std::ostream &operator<<(std::ostream &out, const Guarded &guarded) {
  return out << "slot " << guarded.slotNo << " CAM " << guarded.camSlot;
}

class AlarmGuard : public testing::TestWithParam<Guarded> {
 protected:
  // Slots 1 and 4 have no card.
  AlarmGuard() {
    for (uint32_t slotNo : {0u, 2u, 3u, 5u}) {
      registerCard(slotNo);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(
    Arguments, AlarmGuard,
    testing::Values(Guarded{6, 0, "camAlarmCheck slotNo=6 err! \n"},
                    Guarded{7, 1, "camAlarmCheck slotNo=7 err! \n"},
                    Guarded{0xFF, 0, "camAlarmCheck slotNo=255 err! \n"},
                    Guarded{0x106, 0, "camAlarmCheck slotNo=6 err! \n"},
                    Guarded{0xFFFFFF80, 0, "camAlarmCheck slotNo=128 err! \n"},
                    Guarded{0, 2, "camAlarmCheck camSlot=2 err! \n"},
                    Guarded{5, 0xFF, "camAlarmCheck camSlot=255 err! \n"},
                    Guarded{2, 0x102, "camAlarmCheck camSlot=2 err! \n"},
                    Guarded{0x103, 0xFFFFFF80, "camAlarmCheck camSlot=128 err! \n"},
                    Guarded{1, 0, "camAlarmCheck pCiData[1] == NULL!! \n"},
                    Guarded{4, 1, "camAlarmCheck pCiData[4] == NULL!! \n"},
                    Guarded{0x104, 0x101, "camAlarmCheck pCiData[4] == NULL!! \n"},
                    // the first failure is the one that is told
                    Guarded{6, 2, "camAlarmCheck slotNo=6 err! \n"},
                    Guarded{1, 2, "camAlarmCheck camSlot=2 err! \n"}));

TEST_P(AlarmGuard, PrintsAndFailsForEveryKind) {
  for (uint32_t kind : {0xA01u, 0xA02u, 0xA03u, 0xA04u, 0xA05u, 0u, 0xA06u}) {
    SCOPED_TRACE(kind);
    EXPECT_EQ(camAlarmCheck(GetParam().slotNo, GetParam().camSlot, kind), -1);
    EXPECT_EQ(platform.take(), (Calls{printed(GetParam().text)}));
  }
}

TEST(AlarmGuards, FailedGuardsLeaveAStandingAlarm) {
  registerCard(5);
  const Alarm alarm(alarmKind(ALARM_KIND_DESCRAMBLE), 5, 1);
  const uint32_t err = alarm.raise(42);
  alarm.noFault();
  platform.advance(1);
  for (auto [slotNo, camSlot] : {std::pair{6u, 1u}, {5u, 2u}, {4u, 1u}}) {
    EXPECT_EQ(camAlarmCheck(slotNo, camSlot, ALARM_KIND_DESCRAMBLE), -1);
  }
  platform.take();
  EXPECT_EQ(alarm.check(), 0);
  EXPECT_EQ(platform.take(), alarm.checked({TIME, since(err), alarmDel(42)}));
}

// --- dispatch ------------------------------------------------------------------------------------

// Every field in fault, or none.
void setFields(uint32_t slotNo, bool fault) {
  for (const AlarmKind &kind : alarmKinds) {
    for (uint32_t camSlot : {0u, 1u}) {
      kind.set(*pCiData[slotNo], camSlot,
               fault ? kind.values.faults.front() : kind.values.harmless.front());
    }
  }
}

class UnknownAlarmKind : public testing::TestWithParam<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Kinds, UnknownAlarmKind,
                         testing::Values(0, 1, 5, 0x01, 0xA00, 0xA06, 0xB01, 0x1A01, 0xFFFF,
                                         0xA010000, 0xFFFF0000));

TEST_P(UnknownAlarmKind, AsksForTheMasksAndNothingElse) {
  registerCard(0);
  setFields(0, true);
  EXPECT_EQ(camAlarmCheck(0, 0, GetParam()), 0);
  EXPECT_EQ(platform.take(), masksOf(0));
}

class AlarmDispatch : public testing::TestWithParam<AlarmKind> {
 protected:
  AlarmDispatch() { registerCard(SLOT); }
};

INSTANTIATE_TEST_SUITE_P(Kinds, AlarmDispatch, testing::ValuesIn(alarmKinds), ItsName());

TEST_P(AlarmDispatch, AsksForBothMasksFirstWhateverTheyAre) {
  for (uint32_t camSlot : {0u, 1u}) {
    for (auto [camA, camB] : {std::pair{0u, 0u}, {0u, 1u}, {1u, 0u}, {1u, 1u}}) {
      const Alarm alarm(GetParam(), SLOT, camSlot);
      alarm.noFault();
      alarm.masks(camA, camB);
      EXPECT_EQ(alarm.check(), 0);
      EXPECT_EQ(platform.take(), alarm.checked({TIME}));
    }
  }
}

TEST_P(AlarmDispatch, KnowsItsKindByTheLow16Bits) {
  for (uint32_t high : {0x10000u, 0xA010000u, 0xFFFF0000u}) {
    for (uint32_t camSlot : {0u, 1u}) {
      const Alarm alarm(GetParam(), SLOT, camSlot);
      const uint32_t ok = alarm.markOk();
      alarm.fault();
      platform.advance(1);
      EXPECT_EQ(camAlarmCheck(SLOT, camSlot, high + GetParam().code), GetParam().delays.answerPast);
      EXPECT_EQ(platform.take(), alarm.checked(joined({{TIME, since(ok)}, alarm.raising()})));
      alarm.clear();
    }
  }
}

TEST_P(AlarmDispatch, CutsSlotAndCamTo8Bits) {
  registerCard(0);
  for (uint32_t high : {0x100u, 0x10000u, 0xFFFFFF00u}) {
    for (uint32_t slotNo : {0u, SLOT}) {
      for (uint32_t camSlot : {0u, 1u}) {
        const Alarm alarm(GetParam(), slotNo, camSlot);
        const uint32_t ok = alarm.markOk();
        alarm.fault();
        platform.advance(1);
        EXPECT_EQ(camAlarmCheck(high + slotNo, high + camSlot, GetParam().code),
                  GetParam().delays.answerPast);
        EXPECT_EQ(platform.take(), alarm.checked(joined({{TIME, since(ok)}, alarm.raising()})));
        alarm.clear();
      }
    }
  }
}

TEST_P(AlarmDispatch, WatchesNothingButItsOwnField) {
  for (uint32_t camSlot : {0u, 1u}) {
    const Alarm alarm(GetParam(), SLOT, camSlot);
    alarm.markOk();
    platform.advance(1);
    setFields(SLOT, true);
    alarm.noFault();
    EXPECT_EQ(alarm.check(), 0);
    EXPECT_EQ(platform.take(), alarm.checked({TIME}));
  }
}

// --- a card's checks -----------------------------------------------------------------------------

// The nine checks of a card, in their order.
std::vector<Alarm> cardAlarms(uint32_t slotNo) {
  std::vector<Alarm> alarms;
  for (uint32_t kind : {0xA01u, 0xA03u, 0xA02u, 0xA04u, 0xA05u}) {
    for (uint32_t camSlot = 0; camSlot < (kind == 0xA04 ? 1u : 2u); ++camSlot) {
      alarms.emplace_back(alarmKind(kind), slotNo, camSlot);
    }
  }
  return alarms;
}

class CardAlarms : public testing::Test {
 protected:
  CardAlarms() { registerCard(SLOT); }

  const std::vector<Alarm> alarms = cardAlarms(SLOT);
};

TEST_F(CardAlarms, RunInOrder) {
  setFields(SLOT, true);
  EXPECT_EQ(camAlarm(SLOT), 1);
  Calls expected;
  for (const Alarm &alarm : alarms) {
    expected = joined({expected, alarm.front(), {TIME, since(0)}, alarm.raising()});
  }
  EXPECT_EQ(platform.take(), expected);
}

TEST_F(CardAlarms, TakeTheSlotFromTheLowByte) {
  setFields(SLOT, true);
  EXPECT_EQ(camAlarm(0x100 + SLOT), 1);
  Calls expected;
  for (const Alarm &alarm : alarms) {
    expected = joined({expected, alarm.raising()});
  }
  EXPECT_EQ(platform.take({"ciLibGetCardIndex", "EXT_Clear_Ca_Sys_Id", "printf", "AlarmAdd"}),
            expected);
}

TEST_F(CardAlarms, FailInOrder) {
  setFields(SLOT, true);
  platform.AlarmAdd = -1;
  EXPECT_EQ(camAlarm(SLOT), -1);
  EXPECT_EQ(
      platform.take({"bbPrintf"}),
      (Calls{
          bbPrinted("Card2 CAM0 AlarmAdd failed\r\n"), bbPrinted("Card2 CAM1 AlarmAdd failed\r\n"),
          bbPrinted("Card2 CAM0 AlarmAdd failed\r\n"), bbPrinted("Card2 CAM1 AlarmAdd failed\r\n"),
          bbPrinted("Card2 CAM0 AlarmAdd failed\r\n"), bbPrinted("Card2 CAM1 AlarmAdd failed\r\n"),
          bbPrinted("Card2 CAM0 AlarmAdd failed\r\n"), bbPrinted("Card2 CAM0 AlarmAdd failed\r\n"),
          bbPrinted("Card2 CAM1 AlarmAdd failed\r\n")}));
}

TEST_F(CardAlarms, ThatStandFailToClearInOrder) {
  setFields(SLOT, true);
  camAlarm(SLOT);
  setFields(SLOT, false);
  platform.advance(1);
  platform.take();
  platform.AlarmDel = -1;
  EXPECT_EQ(camAlarm(SLOT), -1);
  EXPECT_EQ(
      platform.take({"bbPrintf"}),
      (Calls{
          bbPrinted("Card2 port0AlarmDel failed\r\n"), bbPrinted("Card2 port1AlarmDel failed\r\n"),
          bbPrinted("Card2 Cam0 AlarmDel failed\r\n"), bbPrinted("Card2 Cam1 AlarmDel failed\r\n"),
          bbPrinted("Card2 CAM0 AlarmDel failed\r\n"), bbPrinted("Card2 CAM1 AlarmDel failed\r\n"),
          bbPrinted("Card2 CAM0 AlarmDel failed\r\n"), bbPrinted("Card2 CAM0 AlarmDel failed\r\n"),
          bbPrinted("Card2 CAM1 AlarmDel failed\r\n")}));
}

TEST_F(CardAlarms, ThatAreMaskedFailToClearInOrder) {
  setFields(SLOT, true);
  camAlarm(SLOT);
  platform.card[SLOT].CamAlarmMask = 1;
  platform.take();
  platform.AlarmDel = -1;
  EXPECT_EQ(camAlarm(SLOT), -1);
  EXPECT_EQ(platform.take({"bbPrintf"}), (Calls{bbPrinted("Card2 Cam0 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 Cam1 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 Cam0 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 Cam1 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 port0 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 port1 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 port0 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 port0 AlarmDel failed\r\n"),
                                                bbPrinted("Card2 port1 AlarmDel failed\r\n")}));
}

// With one CAM masked, its own alarms go and the card's stays.
TEST_F(CardAlarms, OfAMaskedCamClearAtOnce) {
  for (size_t i = 0; i < alarms.size(); ++i) {
    alarms[i].raise(static_cast<int32_t>(100 + i));
  }
  platform.card[SLOT].CamAlarmMask.when(0) = 1;
  camAlarm(SLOT);
  EXPECT_EQ(platform.take({"AlarmDel"}),
            (Calls{alarmDel(100), alarmDel(102), alarmDel(104), alarmDel(107)}));
  platform.card[SLOT].CamAlarmMask.when(1) = 1;
  camAlarm(SLOT);
  EXPECT_EQ(platform.take({"AlarmDel"}),
            (Calls{alarmDel(101), alarmDel(103), alarmDel(105), alarmDel(106), alarmDel(108)}));
}

TEST_F(CardAlarms, ReturnTheLastResult) {
  for (const Alarm &alarm : alarms) {
    alarm.markOk();
  }
  platform.advance(1);
  alarms.back().fault();
  EXPECT_EQ(camAlarm(SLOT), 1);
}

TEST_F(CardAlarms, ReturnNoResultBeforeTheLast) {
  setFields(SLOT, true);
  alarms.back().noFault();
  EXPECT_EQ(camAlarm(SLOT), 0);
  EXPECT_EQ(platform.count("AlarmAdd"), alarms.size() - 1);
}

TEST_F(CardAlarms, ReturnNoFailureBeforeTheLast) {
  setFields(SLOT, true);
  platform.AlarmAdd.does([] { return platform.count("AlarmAdd") < 9 ? -1 : 1; });
  EXPECT_EQ(camAlarm(SLOT), 1);
  EXPECT_EQ(platform.count("bbPrintf"), alarms.size() - 1);
}

TEST_F(CardAlarms, ReturnTheLastFailure) {
  for (const Alarm &alarm : alarms) {
    alarm.noFault();
  }
  camAlarm(SLOT);
  alarms.back().fault();
  platform.advance(1);
  platform.AlarmAdd = -1;
  EXPECT_EQ(camAlarm(SLOT), -1);
}

TEST(CardAlarmsOfNoCard, PrintNineGuardMessages) {
  for (auto [slotNo, text] : {std::pair{6u, "camAlarmCheck slotNo=6 err! \n"},
                              {0x1FFu, "camAlarmCheck slotNo=255 err! \n"},
                              {0u, "camAlarmCheck pCiData[0] == NULL!! \n"},
                              {0x105u, "camAlarmCheck pCiData[5] == NULL!! \n"}}) {
    EXPECT_EQ(camAlarm(slotNo), -1);
    EXPECT_EQ(platform.take(), Calls(9, printed(text)));
  }
}

// --- delays, as the start-up sets them -----------------------------------------------------------

TEST(AlarmDelays, AreSetByTheStartUp) {
  registerCard(SLOT);
  EXPECT_EQ(ciIfInit(), 0);
  for (const Alarm &alarm : cardAlarms(SLOT)) {
    const uint32_t ok = alarm.markOk();
    alarm.fault();
    platform.advance(alarm.kind().delays.raise);
    EXPECT_EQ(alarm.check(), 0);
    EXPECT_EQ(platform.take(), alarm.checked({TIME, since(ok)}));
    platform.advance(1);
    EXPECT_EQ(alarm.check(), alarm.kind().delays.answerPast);
    EXPECT_EQ(platform.count("AlarmAdd"), 1u);
    platform.take();
  }
}

TEST(AlarmDelays, CaPidsThatReturnForOneCheckStartAgain) {
  registerCard(SLOT);
  ciAlarmDlyTimeInit();
  const Alarm alarm(alarmKind(ALARM_KIND_CA_PID_ABSENT), SLOT, 0);
  alarm.markOk();
  auto faultFor = [&](uint32_t seconds) {
    alarm.fault();
    for (uint32_t i = 0; i < seconds; ++i) {
      platform.advance(1000);
      alarm.check();
    }
    return platform.count("AlarmAdd");
  };
  EXPECT_EQ(faultFor(59), 0u);
  alarm.markOk();
  EXPECT_EQ(faultFor(60), 0u);
  EXPECT_EQ(faultFor(1), 1u);
}

}  // namespace
