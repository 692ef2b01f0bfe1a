#include "platform/CardDriver.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "CiIf.h"
#include "chassis/StreamWriter.h"
#include "platform/Binding.h"

using namespace testing_streams;
using chassis::Card;
using chassis::CardFault;

namespace {

constexpr std::uint32_t slot = 4;
constexpr std::uint32_t kbit = 1504;

// A second of stream: 100 packets of PID 0x101, scrambled, among 1000.
Bytes secondOfStream() {
  StreamWriter stream;
  stream.psi({{7, 0x1007, 0x100, {{0x1B, 0x100, {}}, {0x06, 0x101, {}}}, {}, 0}});
  for (int i = 0; i < 100; ++i) {
    stream.payload(0x101, {}, false, 2);
  }
  while (stream.packets() < 1000) {
    stream.null();
  }
  return stream.bytes();
}

class Driver : public testing::Test {
 protected:
  Driver() {
    bind();
    chassis::registerCard(slot);
    record = pCiData[slot];
  }

  void bind() {
    chassis::Binding::Parts parts;
    parts.cards[slot] = &card;
    binding.emplace(parts);
  }
  void insert() {
    card.insert(file.path(), kbit * 1000, 0);
    card.tick(1000);
  }

  void fault(CardFault which) { card.setFault(which, true); }

  chassis::EventFan events;
  TemporaryFile file{secondOfStream()};
  chassis::Files files;
  Card card{slot, events, files};
  std::optional<chassis::Binding> binding;
  CiData *record = nullptr;
};

// Every figure that the driver answers with, by the accessors and fields of the module.
std::vector<std::uint64_t> allFigures(const CiData &record) {
  wrDesPid(slot, 0x101);
  return {record.GetCardOnline(slot),
          record.GetCardReady(slot),
          record.GetCardBusy(slot),
          record.GetProgDesc(slot) != nullptr,
          cimax_sync_ok(slot),
          cimax_pid_rate_pre(slot, 0x101, 0x101),
          cimax_sys_rate_pre(slot),
          cimax_vld_rate_pre(slot),
          GetPreCAMCC(slot, 0x101),
          GetPreCAMPidExist(slot, 0x101),
          cimax_pid_rate(slot, 0x101, 0x101),
          cimax_sys_rate(slot),
          cimax_vld_rate(slot),
          GetCAMCC(slot, 0x101),
          GetCAMPidExist(slot, 0x101),
          static_cast<std::uint64_t>(PllReg(slot, 0)),
          PllLock(slot),
          rdDescStat(slot, DESC_PID_TYPE_OTHER)};
}

}  // namespace

TEST_F(Driver, FillsTheWholeRecord) {
  ASSERT_NE(record, nullptr);
  EXPECT_STRNE(record->pCardName, "");
  EXPECT_NE(record->GetCardOnline, nullptr);
  EXPECT_NE(record->GetCardReady, nullptr);
  EXPECT_NE(record->GetProgDesc, nullptr);
  EXPECT_NE(record->CardFn14, nullptr);
  EXPECT_NE(record->CardFn15, nullptr);
  EXPECT_NE(record->CamAlarmMask, nullptr);
  EXPECT_NE(record->GetCardBusy, nullptr);
  // the twenty hardware functions stand in a row
  const auto *first =
      reinterpret_cast<const std::uint8_t *>(record) + offsetof(CiData, cimax_sync_ok);
  for (std::size_t i = 0; i < 20; ++i) {
    void *function = nullptr;
    std::memcpy(&function, first + i * sizeof function, sizeof function);
    EXPECT_NE(function, nullptr) << i;
  }
}

TEST_F(Driver, RegistersASlotOnce) {
  chassis::registerCard(slot);
  EXPECT_EQ(pCiData[slot], record);
  chassis::registerCard(MAX_BOARD_NUM);
}

TEST_F(Driver, AnswersNothingWithoutACard) {
  const std::vector<std::uint64_t> nothing(allFigures(*record).size(), 0);
  card.setFault(CardFault::Busy, true);
  EXPECT_EQ(allFigures(*record), nothing);
  insert();
  EXPECT_NE(allFigures(*record), nothing);
  binding.reset();
  EXPECT_EQ(allFigures(*record), nothing);
  SetPreCAMCC(slot, 0x101, 1);
  SetCAMCC(slot, 0x101, 1);
  ClrAllPreCAMPidExist(slot);
  ClrAllCAMPidExist(slot);
  SetCamFlit(slot, 0x101, 1);
  bind();
  card.remove();
  EXPECT_EQ(allFigures(*record), nothing);
}

TEST_F(Driver, AnswersNothingForASlotThatIsNone) {
  insert();
  for (const std::uint32_t none : {std::uint32_t{MAX_BOARD_NUM}, 0xFFFFFFFFu}) {
    EXPECT_EQ(record->GetCardOnline(none), 0U);
    EXPECT_EQ(record->GetCardReady(none), 0U);
  }
}

TEST_F(Driver, AnswersWithTheFiguresOfTheCard) {
  insert();
  EXPECT_EQ(allFigures(*record), (std::vector<std::uint64_t>{1, 1, 0, 1, 1, 150, kbit, 153, 0, 1,
                                                             150, kbit, 153, 0, 1, 0, 1, 1}));
  EXPECT_EQ(record->GetProgDesc(slot), card.descTable());
}

TEST_F(Driver, BothSidesAreCountedByThemselves) {
  insert();
  SetPreCAMCC(slot, 0x101, 3);
  EXPECT_EQ(GetPreCAMCC(slot, 0x101), 3);
  EXPECT_EQ(GetCAMCC(slot, 0x101), 0);
  SetCAMCC(slot, 0x101, 4);
  EXPECT_EQ(GetPreCAMCC(slot, 0x101), 3);
  EXPECT_EQ(GetCAMCC(slot, 0x101), 4);
  ClrAllPreCAMPidExist(slot);
  EXPECT_EQ(GetPreCAMPidExist(slot, 0x101), 0U);
  EXPECT_EQ(GetCAMPidExist(slot, 0x101), 1U);
  ClrAllCAMPidExist(slot);
  EXPECT_EQ(GetCAMPidExist(slot, 0x101), 0U);
  card.tick(2000);
  EXPECT_EQ(GetPreCAMPidExist(slot, 0x101), 1U);
  EXPECT_EQ(GetCAMPidExist(slot, 0x101), 1U);
}

TEST_F(Driver, TheSwitchTakesAnyPidThatTheModuleNames) {
  insert();
  for (std::uint32_t pid = 0; pid <= 0xFFFF; ++pid) {
    SetCamFlit(slot, pid, 0);
  }
  SetCamFlit(slot, 0x101, 2);
  card.tick(2000);
  EXPECT_EQ(card.behind(0x101).packets, 200U);
  EXPECT_EQ(cimax_sys_rate(slot), kbit);
}

TEST_F(Driver, ThePllRegisterHoldsWhatWasWritten) {
  insert();
  EXPECT_EQ(PllReg(slot, 0x12345678), 0x12345678);
  EXPECT_EQ(PllReg(slot, 0xFFFFFFFE), -2);
}

TEST_F(Driver, OfflineFault) {
  insert();
  fault(CardFault::Offline);
  EXPECT_EQ(record->GetCardOnline(slot), 0U);
  EXPECT_EQ(record->GetCardReady(slot), 1U);
  card.setFault(CardFault::Offline, false);
  EXPECT_EQ(record->GetCardOnline(slot), 1U);
}

TEST_F(Driver, BusyFault) {
  insert();
  fault(CardFault::Busy);
  EXPECT_EQ(record->GetCardBusy(slot), 1U);
}

TEST_F(Driver, NotReadyFault) {
  insert();
  fault(CardFault::NotReady);
  EXPECT_EQ(record->GetCardReady(slot), 0U);
  EXPECT_EQ(record->GetCardOnline(slot), 1U);
}

TEST_F(Driver, NoSyncFault) {
  insert();
  fault(CardFault::NoSync);
  EXPECT_EQ(cimax_sync_ok(slot), 0U);
}

TEST_F(Driver, PllLostFault) {
  insert();
  fault(CardFault::PllLost);
  EXPECT_EQ(PllLock(slot), 0U);
}

TEST_F(Driver, FpgaErrorFault) {
  insert();
  fault(CardFault::FpgaError);
  wrDesPid(slot, 0x101);
  EXPECT_EQ(rdDescStat(slot, DESC_PID_TYPE_OTHER), 0xFFU);
}

TEST_F(Driver, RateLowFault) {
  insert();
  fault(CardFault::RateLow);
  EXPECT_EQ(cimax_sys_rate(slot), kbit / 10);
  EXPECT_EQ(cimax_vld_rate(slot), 15U);
  EXPECT_EQ(cimax_pid_rate(slot, 0x101, 0x101), 15U);
  EXPECT_EQ(cimax_sys_rate_pre(slot), kbit / 10);
  EXPECT_EQ(cimax_vld_rate_pre(slot), 15U);
  EXPECT_EQ(cimax_pid_rate_pre(slot, 0x101, 0x101), 15U);
}

TEST_F(Driver, CardThatIsOutHoldsItsAlarmsClear) {
  insert();
  EXPECT_EQ(record->CamAlarmMask(slot, 0), 0U);
  card.remove();
  EXPECT_EQ(record->CamAlarmMask(slot, 0), 1U);
  EXPECT_EQ(record->CamAlarmMask(slot, 1), 1U);
}

TEST_F(Driver, AlarmMaskByCam) {
  insert();
  card.setAlarmMask(1, true);
  EXPECT_EQ(record->CamAlarmMask(slot, 0), 0U);
  EXPECT_EQ(record->CamAlarmMask(slot, 1), 1U);
  EXPECT_EQ(record->CamAlarmMask(slot, 2), 0U);
  fault(CardFault::Masked);
  EXPECT_EQ(record->CamAlarmMask(slot, 0), 1U);
  card.setAlarmMask(2, true);
  card.setFault(CardFault::Masked, false);
  EXPECT_EQ(record->CamAlarmMask(slot, 1), 0U);
}
