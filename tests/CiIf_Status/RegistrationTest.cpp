#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <tuple>
#include <vector>

#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

struct Field {
  uint32_t vid;
  size_t offset;
};

#define FIELD(vid, name) \
  { vid, offsetof(CiData, name) }
const Field FIELDS[] = {
    FIELD(1, pCardName),
    FIELD(11, GetCardOnline),
    FIELD(12, GetCardReady),
    FIELD(13, GetProgDesc),
    FIELD(14, CardFn14),
    FIELD(15, CardFn15),
    FIELD(16, CamAlarmMask),
    FIELD(21, GetCardBusy),
    FIELD(30, cimax_sync_ok),
    FIELD(31, cimax_pid_rate_pre),
    FIELD(32, cimax_sys_rate_pre),
    FIELD(33, cimax_vld_rate_pre),
    FIELD(34, SetPreCAMCC),
    FIELD(35, GetPreCAMCC),
    FIELD(36, ClrAllPreCAMPidExist),
    FIELD(37, GetPreCAMPidExist),
    FIELD(41, cimax_pid_rate),
    FIELD(42, cimax_sys_rate),
    FIELD(43, cimax_vld_rate),
    FIELD(44, SetCAMCC),
    FIELD(45, GetCAMCC),
    FIELD(46, ClrAllCAMPidExist),
    FIELD(47, GetCAMPidExist),
    FIELD(51, PllReg),
    FIELD(52, PllLock),
    FIELD(53, SetCamFlit),
    FIELD(54, wrDesPid),
    FIELD(55, rdDescStat),
};
#undef FIELD

bool isAccepted(uint32_t vid) {
  return std::any_of(std::begin(FIELDS), std::end(FIELDS),
                     [vid](const Field &field) { return field.vid == vid; });
}

void regist(uint32_t slotNo, const std::vector<DescIfItem> &items) {
  descIfRegist(slotNo, items.data(), static_cast<uint32_t>(items.size()));
}

// A pointer that the module has no business to follow.
void *marker(uintptr_t n) {
  return reinterpret_cast<void *>(0x1000 + n);
}

// A record with nothing but one pointer set.
std::vector<uint8_t> recordWith(size_t offset, void *ptr) {
  std::vector<uint8_t> bytes(sizeof(CiData), 0);
  std::memcpy(bytes.data() + offset, &ptr, sizeof ptr);
  return bytes;
}

std::vector<uint8_t> recordOf(uint32_t slotNo) {
  const uint8_t *begin = reinterpret_cast<const uint8_t *>(pCiData[slotNo]);
  return {begin, begin + sizeof(CiData)};
}

std::string mallocLine() {
  return "malloc(" + std::to_string(sizeof(CiData)) + ")";
}

std::string mallocError(uint32_t slotNo) {
  return printed("malloc pCiData[" + std::to_string(slotNo) + "] error!! \n");
}

std::string unknownId(uint32_t card, uint32_t vid) {
  return printed("card" + std::to_string(card) +
                 " descIfRegist unknown vid=" + std::to_string(vid) + "!! \n");
}

TEST(Registration, NoSlotHasARecordAtStart) {
  for (const CiData *record : pCiData) {
    EXPECT_EQ(record, nullptr);
  }
}

class RegistrationSlot : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Slots, RegistrationSlot, testing::Range(0U, uint32_t{MAX_BOARD_NUM}));

TEST_P(RegistrationSlot, GetsTheAllocatedRecordAndOnlyThatSlot) {
  regist(GetParam(), cardItems(GetParam()));
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    EXPECT_EQ(pCiData[slotNo], slotNo == GetParam() ? platform.allocated[0] : nullptr) << slotNo;
  }
}

TEST_P(RegistrationSlot, RetriesWithTheCardCountedFromZero) {
  platform.mallocWorks.then(false);
  regist(GetParam(), {});
  EXPECT_EQ(except(platform.take(), {"sysClkRateGet"}),
            (Calls{mallocLine(), mallocError(GetParam()), mallocLine(), "taskDelay(180)"}));
}

TEST_P(RegistrationSlot, ReportsAnUnknownIdWithTheCardCountedFromOne) {
  regist(GetParam(), {{22, marker(0)}});
  EXPECT_EQ(platform.take({"printf"}), (Calls{unknownId(GetParam() + 1, 22)}));
}

class AcceptedId : public testing::TestWithParam<Field> {};
INSTANTIATE_TEST_SUITE_P(Fields, AcceptedId, testing::ValuesIn(FIELDS),
                         [](const auto &each) { return std::to_string(each.param.vid); });

TEST_P(AcceptedId, StoresThePointerInItsFieldAndNothingElse) {
  regist(3, {{GetParam().vid, marker(GetParam().vid)}});
  EXPECT_EQ(recordOf(3), recordWith(GetParam().offset, marker(GetParam().vid)));
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
}

TEST_P(AcceptedId, TakesTheLastOfTwoItems) {
  const uint32_t vid = GetParam().vid;
  regist(0, {{vid, marker(1)}, {vid, marker(2)}});
  EXPECT_EQ(recordOf(0), recordWith(GetParam().offset, marker(2)));
}

TEST_P(AcceptedId, StoresANullPointerAsNull) {
  const uint32_t vid = GetParam().vid;
  regist(0, {{vid, marker(1)}, {vid, nullptr}});
  EXPECT_EQ(recordOf(0), std::vector<uint8_t>(sizeof(CiData), 0));
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
}

TEST(Registration, AcceptsTwentyEightIds) {
  EXPECT_EQ(std::size(FIELDS), 28U);
}

TEST(Registration, StoresAllIdsTogether) {
  std::vector<DescIfItem> items;
  for (const Field &field : FIELDS) {
    items.push_back({field.vid, marker(field.vid)});
  }
  regist(1, items);
  const std::vector<uint8_t> record = recordOf(1);
  for (const Field &field : FIELDS) {
    void *stored = nullptr;
    std::memcpy(&stored, record.data() + field.offset, sizeof stored);
    EXPECT_EQ(stored, marker(field.vid)) << field.vid;
  }
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
}

std::vector<uint32_t> unknownIds() {
  std::vector<uint32_t> ids;
  for (uint32_t vid = 0; vid < 80; ++vid) {
    if (!isAccepted(vid)) {
      ids.push_back(vid);
    }
  }
  // Accepted ids with one more bit: nothing is cut, and the top bit is no sign.
  for (uint32_t extra : {0x100U, 0x10000U, 0x80000000U}) {
    ids.insert(ids.end(), {1 + extra, 11 + extra, 55 + extra});
  }
  ids.push_back(0xFFFFFFFF);
  return ids;
}

class UnknownId : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Ids, UnknownId, testing::ValuesIn(unknownIds()), HexName());

TEST_P(UnknownId, IsReportedAndTheNextItemIsStored) {
  regist(2, {{GetParam(), marker(1)}, {13, marker(2)}});
  EXPECT_EQ(platform.take(), (Calls{mallocLine(), unknownId(3, GetParam())}));
  EXPECT_EQ(recordOf(2), recordWith(offsetof(CiData, GetProgDesc), marker(2)));
}

TEST(Registration, ReportsEveryUnknownIdInTheOrderOfTheItems) {
  regist(0, {{56, marker(1)}, {11, marker(2)}, {40, marker(3)}, {56, marker(4)}});
  EXPECT_EQ(platform.take({"printf"}),
            (Calls{unknownId(1, 56), unknownId(1, 40), unknownId(1, 56)}));
}

TEST(Registration, ReadsNoItemBeyondTheCount) {
  const DescIfItem items[] = {{11, marker(1)}, {12, marker(2)}, {99, marker(3)}};
  descIfRegist(0, items, 1);
  EXPECT_EQ(recordOf(0), recordWith(offsetof(CiData, GetCardOnline), marker(1)));
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
}

TEST(Registration, AnEmptyListLeavesAZeroedRecord) {
  const DescIfItem item = {11, marker(1)};
  descIfRegist(4, &item, 0);
  ASSERT_NE(pCiData[4], nullptr);
  EXPECT_EQ(recordOf(4), std::vector<uint8_t>(sizeof(CiData), 0));
}

TEST(Registration, AllStatusFieldsAreZeroAfterwards) {
  registerCard(0);
  const CiData &record = *pCiData[0];
  EXPECT_EQ(record.cimaxStat, 0);
  for (int camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    EXPECT_EQ(record.preCamPidStat[camSlot], 0);
    EXPECT_EQ(record.camInsert[camSlot], 0);
    EXPECT_EQ(record.casidStat[camSlot], 0);
    EXPECT_EQ(record.descStat[camSlot], 0);
  }
}

TEST(Registration, ASecondOneAbandonsTheOldRecord) {
  regist(0, {{11, marker(1)}, {12, marker(2)}});
  CiData *old = pCiData[0];
  const std::vector<uint8_t> before = recordOf(0);
  regist(0, {{13, marker(3)}});
  ASSERT_NE(pCiData[0], old);
  EXPECT_EQ(recordOf(0), recordWith(offsetof(CiData, GetProgDesc), marker(3)));
  EXPECT_EQ(std::memcmp(old, before.data(), before.size()), 0);
}

TEST(Registration, CallsNoneOfTheFunctionsItStores) {
  regist(0, cardItems(0));
  EXPECT_EQ(platform.take(), (Calls{mallocLine()}));
}

TEST(RegistrationWithoutMemory, WaitsAfterEveryRetryAlsoASuccessfulOne) {
  platform.mallocWorks.then(false).then(false).then(false);
  regist(5, {{11, marker(1)}});
  const Calls retry = {mallocError(5), mallocLine(), "taskDelay(180)"};
  EXPECT_EQ(except(platform.take(), {"sysClkRateGet"}),
            joined({{mallocLine()}, retry, retry, retry}));
  EXPECT_EQ(recordOf(5), recordWith(offsetof(CiData, GetCardOnline), marker(1)));
}

TEST(RegistrationWithoutMemory, HasNoLimitOfRetries) {
  for (int i = 0; i < 500; ++i) {
    platform.mallocWorks.then(false);
  }
  regist(0, {});
  EXPECT_EQ(platform.count("taskDelay"), 500U);
  EXPECT_EQ(platform.count("malloc"), 501U);
  EXPECT_NE(pCiData[0], nullptr);
}

class RetryPause : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Rates, RetryPause, testing::Values(1, 60, 100, 333, 1000));

TEST_P(RetryPause, LastsThreeSecondsAtEveryClockRate) {
  platform.sysClkRateGet = GetParam();
  platform.mallocWorks.then(false);
  regist(0, {});
  EXPECT_EQ(platform.take({"taskDelay"}),
            (Calls{"taskDelay(" + std::to_string(3 * GetParam()) + ")"}));
}

TEST(RegistrationWithoutMemory, PublishesEachResultBeforeItWaits) {
  registerCard(1);
  platform.allocated.clear();
  std::vector<void *> seen;
  platform.onTaskDelay = [&seen](int) { seen.push_back(pCiData[1]); };
  platform.mallocWorks.then(false).then(false);
  regist(1, {});
  ASSERT_EQ(platform.allocated.size(), 3U);
  EXPECT_EQ(seen, (std::vector<void *>{nullptr, platform.allocated[2]}));
}

TEST(RegistrationWithoutMemory, FillsTheRecordOnlyAfterThePause) {
  uint8_t name = 0;
  platform.onTaskDelay = [&name](int) { std::memcpy(&name, pCiData[0], 1); };
  platform.mallocWorks.then(false);
  regist(0, {});
  EXPECT_NE(name, 0);
  EXPECT_EQ(recordOf(0), std::vector<uint8_t>(sizeof(CiData), 0));
}

}  // namespace
