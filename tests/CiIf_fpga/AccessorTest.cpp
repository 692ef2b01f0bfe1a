#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CiIf.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr char UNIT[] = "../../CiIf_fpga";
constexpr uint32_t SLOT = 3;

enum Style { REPORT, ASSERT };
enum Range { CHECKED, UNCHECKED };

// What an accessor is called with behind the slot; those without arguments ignore them.
struct Arguments {
  uint32_t first;
  uint32_t second;
};

struct Accessor {
  const char *name;
  uint32_t vid;
  Style style;
  Range range;
  int64_t failure;  // of the report style
  int64_t (*call)(uint32_t slotNo, Arguments arguments);
  // How the card sees arguments of 0x12345678 and 0x9ABCDEF0.
  const char *passed;
};

constexpr Arguments WIDE = {0x12345678, 0x9ABCDEF0};

template <auto FUNCTION>
int64_t plain(uint32_t slotNo, Arguments) {
  return FUNCTION(slotNo);
}

template <auto FUNCTION>
int64_t one(uint32_t slotNo, Arguments arguments) {
  return FUNCTION(slotNo, arguments.first);
}

template <auto FUNCTION>
int64_t two(uint32_t slotNo, Arguments arguments) {
  return FUNCTION(slotNo, arguments.first, arguments.second);
}

template <auto FUNCTION>
int64_t plainVoid(uint32_t slotNo, Arguments) {
  FUNCTION(slotNo);
  return 0;
}

template <auto FUNCTION>
int64_t oneVoid(uint32_t slotNo, Arguments arguments) {
  FUNCTION(slotNo, arguments.first);
  return 0;
}

template <auto FUNCTION>
int64_t twoVoid(uint32_t slotNo, Arguments arguments) {
  FUNCTION(slotNo, arguments.first, arguments.second);
  return 0;
}

#define ACCESSOR(vid, name, style, range, failure, shape, passed) \
  { #name, vid, style, range, failure, shape < name>, passed }
const Accessor ACCESSORS[] = {
    ACCESSOR(30, cimax_sync_ok, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(31, cimax_pid_rate_pre, REPORT, CHECKED, 0, two, "3, 0x5678, 0xdef0"),
    ACCESSOR(32, cimax_sys_rate_pre, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(33, cimax_vld_rate_pre, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(34, SetPreCAMCC, ASSERT, UNCHECKED, 0, twoVoid, "3, 0x5678, 57072"),
    ACCESSOR(35, GetPreCAMCC, REPORT, CHECKED, 0, one, "3, 0x5678"),
    ACCESSOR(36, ClrAllPreCAMPidExist, ASSERT, CHECKED, 0, plainVoid, "3"),
    ACCESSOR(37, GetPreCAMPidExist, REPORT, CHECKED, 0, one, "3, 0x5678"),
    ACCESSOR(41, cimax_pid_rate, REPORT, CHECKED, 0, two, "3, 0x5678, 0xdef0"),
    ACCESSOR(42, cimax_sys_rate, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(43, cimax_vld_rate, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(44, SetCAMCC, ASSERT, UNCHECKED, 0, twoVoid, "3, 0x5678, 57072"),
    ACCESSOR(45, GetCAMCC, REPORT, CHECKED, 0, one, "3, 0x5678"),
    ACCESSOR(46, ClrAllCAMPidExist, ASSERT, UNCHECKED, 0, plainVoid, "3"),
    ACCESSOR(47, GetCAMPidExist, REPORT, CHECKED, 0, one, "3, 0x5678"),
    ACCESSOR(51, PllReg, REPORT, CHECKED, -1, one, "3, 0x12345678"),
    ACCESSOR(52, PllLock, REPORT, CHECKED, 0, plain, "3"),
    ACCESSOR(53, SetCamFlit, ASSERT, CHECKED, 0, twoVoid, "3, 0x5678, 2596069104"),
    ACCESSOR(54, wrDesPid, ASSERT, CHECKED, 0, oneVoid, "3, 0x5678"),
    ACCESSOR(55, rdDescStat, REPORT, CHECKED, 0, one, "3, 305419896"),
};
#undef ACCESSOR

std::vector<Accessor> accessors(bool (*wanted)(const Accessor &)) {
  std::vector<Accessor> result;
  for (const Accessor &accessor : ACCESSORS) {
    if (wanted(accessor)) {
      result.push_back(accessor);
    }
  }
  return result;
}

class AccessorTest : public testing::TestWithParam<Accessor> {
 protected:
  int64_t call(uint32_t slotNo) { return GetParam().call(slotNo, WIDE); }

  std::string reported(const std::string &text) const {
    return printed("pcidata[" + std::to_string(SLOT) + "]" + text + " == NULL!! \n");
  }

  // One line, printed instead of calling the card.
  void expectFailure(uint32_t slotNo, const std::string &report, const std::string &condition) {
    EXPECT_EQ(call(slotNo), GetParam().failure);
    EXPECT_EQ(anyLine(platform.take()),
              (Calls{GetParam().style == REPORT ? report : asserted(UNIT, condition)}));
  }
};

// --- every accessor ------------------------------------------------------------------------------

class EveryAccessor : public AccessorTest {};
INSTANTIATE_TEST_SUITE_P(Accessors, EveryAccessor, testing::ValuesIn(ACCESSORS), ItsName());

TEST_P(EveryAccessor, CallsTheCardOnceWithItsArgumentsCut) {
  registerCard(SLOT);
  call(SLOT);
  EXPECT_EQ(platform.take(), (Calls{std::string(GetParam().name) + "(" + GetParam().passed + ")"}));
}

TEST_P(EveryAccessor, ReachesTheCardOfEverySlot) {
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
  }
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    call(slotNo);
    const Calls calls = platform.take();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].find(std::string(GetParam().name) + "(" + std::to_string(slotNo)), 0U);
  }
}

TEST_P(EveryAccessor, FailsWithoutARecord) {
  expectFailure(SLOT, reported(""), "pCiData[slotNo]");
}

TEST_P(EveryAccessor, FailsWithoutItsEntry) {
  registerCard(SLOT, {GetParam().vid});
  expectFailure(SLOT, reported(std::string("->") + GetParam().name),
                std::string("pCiData[slotNo]->") + GetParam().name);
}

TEST_P(EveryAccessor, FailsOnACardThatRegisteredNothing) {
  descIfRegist(SLOT, nullptr, 0);
  platform.take();
  expectFailure(SLOT, reported(std::string("->") + GetParam().name),
                std::string("pCiData[slotNo]->") + GetParam().name);
}

TEST_P(EveryAccessor, NeedsNoOtherEntry) {
  const std::vector<DescIfItem> all = cardItems(SLOT);
  for (const DescIfItem &item : all) {
    if (item.vid == GetParam().vid) {
      descIfRegist(SLOT, &item, 1);
    }
  }
  platform.take();
  call(SLOT);
  EXPECT_EQ(platform.take(), (Calls{std::string(GetParam().name) + "(" + GetParam().passed + ")"}));
}

TEST_P(EveryAccessor, LatchesNoFailure) {
  call(SLOT);
  registerCard(SLOT);
  platform.take();
  call(SLOT);
  EXPECT_EQ(platform.take(), (Calls{std::string(GetParam().name) + "(" + GetParam().passed + ")"}));
}

// --- the range check -----------------------------------------------------------------------------

class RangeCheck : public AccessorTest {
 protected:
  void expectOutOfRange(uint32_t slotNo) {
    expectFailure(slotNo, printed("slotNo == " + std::to_string(slotNo) + " error!! \n"),
                  "slotNo<MAX_BOARD_NUM");
  }
};
INSTANTIATE_TEST_SUITE_P(Accessors, RangeCheck, testing::ValuesIn(accessors([](const Accessor &a) {
                           return a.range == CHECKED;
                         })),
                         ItsName());

TEST_P(RangeCheck, StopsOneSlotPastTheLast) {
  registerCard(5);
  expectOutOfRange(6);
}

TEST_P(RangeCheck, ComparesAllThirtyTwoBitsUnsigned) {
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
  }
  for (uint32_t slotNo : {7U, 0xFFU, 0x100U, 0x103U, 0x10000U, 0x80000000U, 0xFFFFFFFFU}) {
    expectOutOfRange(slotNo);
  }
}

TEST_P(RangeCheck, ComesBeforeTheRecord) {
  expectOutOfRange(6);
}

TEST(Accessors, ThreeTrustTheSlotNumber) {
  EXPECT_EQ(accessors([](const Accessor &a) { return a.range == UNCHECKED; }).size(), 3U);
  EXPECT_EQ(std::size(ACCESSORS), 20U);
}

// --- results -------------------------------------------------------------------------------------

struct WideResult {
  const char *name;
  void (*program)(Card &card, uint32_t value);
  uint32_t (*read)();
};

#define WIDE_RESULT(name, ...)                                                                   \
  {                                                                                              \
#name, [](Card & card, uint32_t value) { card.name = value; },                               \
                                                                [] { return name(__VA_ARGS__); } \
  }
const WideResult WIDE_RESULTS[] = {
    WIDE_RESULT(cimax_sync_ok, SLOT),        WIDE_RESULT(cimax_pid_rate_pre, SLOT, 1, 2),
    WIDE_RESULT(cimax_sys_rate_pre, SLOT),   WIDE_RESULT(cimax_vld_rate_pre, SLOT),
    WIDE_RESULT(GetPreCAMPidExist, SLOT, 1), WIDE_RESULT(cimax_pid_rate, SLOT, 1, 2),
    WIDE_RESULT(cimax_sys_rate, SLOT),       WIDE_RESULT(cimax_vld_rate, SLOT),
    WIDE_RESULT(GetCAMPidExist, SLOT, 1),    WIDE_RESULT(PllLock, SLOT),
    WIDE_RESULT(rdDescStat, SLOT, 1),
};
#undef WIDE_RESULT

class AccessorResult : public testing::TestWithParam<WideResult> {};
INSTANTIATE_TEST_SUITE_P(Accessors, AccessorResult, testing::ValuesIn(WIDE_RESULTS), ItsName());

TEST_P(AccessorResult, HasThirtyTwoBitsUnchanged) {
  registerCard(SLOT);
  for (uint32_t value : {0U, 1U, 800U, 0x10000U, 0x80000000U, 0xFFFFFFFFU}) {
    GetParam().program(platform.card[SLOT], value);
    EXPECT_EQ(GetParam().read(), value);
  }
}

class PllResult : public testing::TestWithParam<int32_t> {};
INSTANTIATE_TEST_SUITE_P(Values, PllResult, testing::Values(0, 1, -1, INT32_MIN, INT32_MAX),
                         HexName());

TEST_P(PllResult, IsSignedAndUnchanged) {
  registerCard(SLOT);
  platform.card[SLOT].PllReg = GetParam();
  EXPECT_EQ(PllReg(SLOT, 0), GetParam());
}

class PllValue : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Values, PllValue, testing::Values(0, 0xFFFF, 0x10000, 0xFFFFFFFF),
                         HexName());

TEST_P(PllValue, IsPassedUnchanged) {
  registerCard(SLOT);
  platform.card[SLOT].PllReg.when(GetParam()) = 77;
  EXPECT_EQ(PllReg(SLOT, GetParam()), 77);
}

// A driver whose function leaves more than the sixteen bits that count.
uint32_t wideCount(uint32_t, uint16_t) {
  return 0x89ABCDEF;
}

struct CountCase {
  const char *name;
  uint32_t vid;
  uint16_t (*read)(uint32_t slotNo, uint32_t pid);
};

const CountCase COUNTS[] = {{"GetPreCAMCC", 35, GetPreCAMCC}, {"GetCAMCC", 45, GetCAMCC}};

class CountResult : public testing::TestWithParam<CountCase> {};
INSTANTIATE_TEST_SUITE_P(Accessors, CountResult, testing::ValuesIn(COUNTS), ItsName());

TEST_P(CountResult, IsCutToSixteenBits) {
  const DescIfItem item = {GetParam().vid, reinterpret_cast<void *>(wideCount)};
  descIfRegist(SLOT, &item, 1);
  const uint32_t count = GetParam().read(SLOT, 0x100);
  EXPECT_EQ(count, 0xCDEFU);
}

TEST_P(CountResult, IsTheCardsForThatPid) {
  registerCard(SLOT);
  Card &card = platform.card[SLOT];
  (GetParam().vid == 35 ? card.GetPreCAMCC : card.GetCAMCC).when(0x100) = 0xFFFF;
  EXPECT_EQ(GetParam().read(SLOT, 0x100), 0xFFFF);
  EXPECT_EQ(GetParam().read(SLOT, 0x101), 0);
}

// --- arguments at their limits -------------------------------------------------------------------

TEST(AccessorArguments, SixteenBitsAreKept) {
  registerCard(0);
  SetPreCAMCC(0, 0xFFFF, 0xFFFF);
  SetCAMCC(0, 0x10000, 0x10000);
  cimax_pid_rate(0, 0xFFFF, 0x1FFFF);
  SetCamFlit(0, 0x12000, 2);
  wrDesPid(0, 0x11FFF);
  EXPECT_EQ(platform.take(), (Calls{"SetPreCAMCC(0, 0xffff, 65535)", "SetCAMCC(0, 0x0, 0)",
                                    "cimax_pid_rate(0, 0xffff, 0xffff)", "SetCamFlit(0, 0x2000, 2)",
                                    "wrDesPid(0, 0x1fff)"}));
}

TEST(AccessorArguments, ThirtyTwoBitsAreKept) {
  registerCard(0);
  SetCamFlit(0, 1, 0xFFFFFFFF);
  rdDescStat(0, 0xFFFFFFFF);
  EXPECT_EQ(platform.take(),
            (Calls{"SetCamFlit(0, 0x1, 4294967295)", "rdDescStat(0, 4294967295)"}));
}

TEST(AccessorMessage, NamesTheSlotFromZero) {
  EXPECT_EQ(PllReg(6, 0), -1);
  EXPECT_EQ(PllLock(6), 0U);
  EXPECT_EQ(PllLock(0), 0U);
  EXPECT_EQ(PllReg(5, 0), -1);
  EXPECT_EQ(platform.take(),
            (Calls{printed("slotNo == 6 error!! \n"), printed("slotNo == 6 error!! \n"),
                   printed("pcidata[0] == NULL!! \n"), printed("pcidata[5] == NULL!! \n")}));
}

TEST(AccessorMessage, ReportsAnOutOfRangeSlotOnce) {
  EXPECT_EQ(GetPreCAMPidExist(6, 0x100), 0U);
  EXPECT_EQ(platform.take(), (Calls{printed("slotNo == 6 error!! \n")}));
}

TEST(AccessorMessage, AssertsWithTheSourceLine) {
  SetCamFlit(7, 0x100, 1);
  const Calls calls = platform.take();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].find("printf \"file[../../CiIf_fpga] line["), 0U);
  EXPECT_EQ(anyLine(calls), (Calls{asserted(UNIT, "slotNo<MAX_BOARD_NUM")}));
}

}  // namespace
