#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 2;

uint32_t query(uint32_t program, uint32_t low) {
  return program << 16 | low;
}

class WebQuery : public testing::Test {
 protected:
  void SetUp() override {
    registerCard(SLOT);
    table({Program(1).cams(CAM_A).stream(0x1B, 0x100).stream(0x03, 0x101),
           Program(2).cams(CAM_B).stream(0x1B, 0x200),
           Program(3).cams(BOTH_CAMS).stream(0x1B, 0x300),
           Program(4).cams(NO_CAM).stream(0x1B, 0x400)});
    setRow(0, 0x20, {{0x100, 0x20, 1}, {0x101, 0xFF, 1}, {0x102, 0x40, 1}});
    setRow(1, 0x30, {{0x200, 0x31, 1}});
    setRow(2, 0x40, {{0x300, 0x41, 1}});
    setRow(3, 0x10, {{0x400, 0x11, 1}});
  }

  void table(std::initializer_list<Program> programs) { platform.card[SLOT].setTable(programs); }

  void setRow(size_t program, uint8_t status, std::initializer_list<DescPidStat> records) {
    DescProgStat &row = DescStatus[SLOT][program];
    row.progStatus = status;
    size_t e = 0;
    for (const DescPidStat &record : records) {
      row.pid[e++] = record;
    }
  }

  void expectAnswer(uint32_t word, uint8_t status, const Calls &calls) {
    platform.take();
    EXPECT_EQ(getDescStatWeb(SLOT, word), status);
    EXPECT_EQ(platform.take(), calls);
  }

  const Calls ready = {"GetProgDesc(2)", "GetCardOnline(2)", "GetCardReady(2)"};
  const Calls camA = joined({ready, {"ciLibGetInsertCard(2, 0)"}});
  const Calls camB = joined({ready, {"ciLibGetInsertCard(2, 1)"}});
};

TEST_F(WebQuery, NeedsTheRecord) {
  EXPECT_EQ(getDescStatWeb(5, 0), 0xEE);
  EXPECT_EQ(platform.take(), (Calls{printed("getDescStatWeb pCiData==NULL! \n")}));
}

TEST_F(WebQuery, NeedsTheTable) {
  platform.card[SLOT].GetProgDesc = nullptr;
  expectAnswer(0, 0xEE, {"GetProgDesc(2)", printed("getDescStatWeb pdesc==NULL! \n")});
}

class WebQueryOffline : public WebQuery, public testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Values, WebQueryOffline,
                         testing::Values(0, 2, 0x100, 0x101, 0x10001, 0xFFFFFFFF), HexName());

TEST_P(WebQueryOffline, IsUnknownUnlessOnlineIsExactlyOne) {
  platform.card[SLOT].GetCardOnline = GetParam();
  expectAnswer(0, 0xEE, {"GetProgDesc(2)", "GetCardOnline(2)"});
}

TEST_F(WebQuery, IsUnknownWhenTheCardIsNotReady) {
  platform.card[SLOT].GetCardReady = 0;
  expectAnswer(0, 0xEE, ready);
}

class WebQueryReady : public WebQuery, public testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Values, WebQueryReady,
                         testing::Values(1, 2, 0x100, 0x10000, 0x80000000, 0xFFFFFFFF), HexName());

TEST_P(WebQueryReady, TakesEveryReadyValueButZero) {
  platform.card[SLOT].GetCardReady = GetParam();
  expectAnswer(0, 0x20, camA);
}

TEST_F(WebQuery, DoesNotAskWhetherTheCardIsBusy) {
  platform.card[SLOT].GetCardBusy = 1;
  expectAnswer(0, 0x20, camA);
}

TEST_F(WebQuery, IsUnknownForAProgramWithoutCam) {
  expectAnswer(query(3, 0), 0xEE, ready);
  expectAnswer(query(3, 0x400), 0xEE, ready);
}

TEST_F(WebQuery, AsksForTheCamOfTheProgram) {
  expectAnswer(query(0, 0), 0x20, camA);
  expectAnswer(query(1, 0), 0x30, camB);
}

struct Inserted {
  uint32_t status;
  bool inserted;
};

class WebQueryInsert : public WebQuery, public testing::WithParamInterface<Inserted> {};
INSTANTIATE_TEST_SUITE_P(Statuses, WebQueryInsert,
                         testing::Values(Inserted{0, false}, Inserted{1, true}, Inserted{2, true},
                                         Inserted{0xFF, true}, Inserted{0x100, false},
                                         Inserted{0xFFFFFF00, false}, Inserted{0x101, true}),
                         HexOf<&Inserted::status>());

TEST_P(WebQueryInsert, LooksAtTheLowByteOnCamA) {
  platform.ciLibGetInsertCard.when(SLOT, 0) = GetParam().status;
  expectAnswer(query(0, 0), GetParam().inserted ? 0x20 : 0xEE, camA);
}

TEST_P(WebQueryInsert, LooksAtTheLowByteOnCamB) {
  platform.ciLibGetInsertCard.when(SLOT, 1) = GetParam().status;
  expectAnswer(query(1, 0x200), GetParam().inserted ? 0x31 : 0xEE, camB);
}

class WebQueryMask : public WebQuery, public testing::WithParamInterface<uint8_t> {};
INSTANTIATE_TEST_SUITE_P(Masks, WebQueryMask, testing::Values(3, 4, 5, 0x80, 0x81, 0xFF),
                         HexName());

TEST_P(WebQueryMask, IsAnsweredWithoutAnInsertTest) {
  platform.ciLibGetInsertCard = 0;
  table({Program(1).cams(GetParam()).stream(0x1B, 0x100)});
  expectAnswer(query(0, 0), 0x20, ready);
  expectAnswer(query(0, 0x100), 0x20, ready);
}

TEST_F(WebQuery, IsUnknownForAProgramWithoutStreams) {
  table({Program(1).cams(CAM_A), Program(2).cams(BOTH_CAMS)});
  expectAnswer(query(0, 0), 0xEE, camA);
  expectAnswer(query(0, 0x100), 0xEE, camA);
  expectAnswer(query(1, 0), 0xEE, ready);
}

TEST_F(WebQuery, PidZeroAsksForTheProgram) {
  DescStatus[SLOT][0].pid[0].pid = 0;
  expectAnswer(query(0, 0), 0x20, camA);
  setRow(0, 0x55, {{0, 0x66, 1}});
  expectAnswer(query(0, 0), 0x55, camA);
}

TEST_F(WebQuery, AnyOtherPidAsksForItsRecord) {
  expectAnswer(query(0, 0x100), 0x20, camA);
  expectAnswer(query(0, 0x101), 0xFF, camA);
  expectAnswer(query(1, 0x200), 0x31, camB);
  expectAnswer(query(2, 0x300), 0x41, ready);
}

TEST_F(WebQuery, SearchesNoFurtherThanTheStreams) {
  expectAnswer(query(0, 0x102), 0xEE, camA);
}

TEST_F(WebQuery, SearchesTheProgramOnly) {
  expectAnswer(query(0, 0x200), 0xEE, camA);
  expectAnswer(query(2, 0x100), 0xEE, ready);
}

TEST_F(WebQuery, TakesTheFirstOfTwoRecords) {
  setRow(0, 0x20, {{0x101, 0x21, 1}, {0x101, 0x10, 1}});
  expectAnswer(query(0, 0x101), 0x21, camA);
}

TEST_F(WebQuery, FindsTheLastOfThirtyTwo) {
  table({Program(1).cams(BOTH_CAMS).streams(0x1B, 0x100, 32)});
  for (uint16_t e = 0; e < 32; ++e) {
    DescStatus[SLOT][0].pid[e] = {static_cast<uint16_t>(0x1FDF + e), static_cast<uint8_t>(e), 1};
  }
  expectAnswer(query(0, 0x1FFE), 31, ready);
  expectAnswer(query(0, 0x1FDF), 0, ready);
  expectAnswer(query(0, 0x1FFF), 0xEE, ready);
}

class WebQueryIgnoredBits : public WebQuery, public testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Bits, WebQueryIgnoredBits,
                         testing::Values(0x2000, 0x4000, 0x8000, 0x6000, 0xE000), HexName());

TEST_P(WebQueryIgnoredBits, DoNotBelongToThePid) {
  expectAnswer(query(1, GetParam()), 0x30, camB);
  expectAnswer(query(1, GetParam() | 0x200), 0x31, camB);
}

TEST_F(WebQuery, HasNoIndexLimitOfItsOwn) {
  Program last = Program(32).cams(BOTH_CAMS).stream(0x1B, 0x500);
  platform.card[SLOT].desc.prog[31] = last.entry();
  setRow(31, 0x21, {{0x500, 0x22, 1}});
  ASSERT_EQ(platform.card[SLOT].desc.descProgCnt, 4U);
  expectAnswer(query(31, 0), 0x21, ready);
  expectAnswer(query(31, 0x500), 0x22, ready);
}

TEST_F(WebQuery, IsUnknownAfterTheSlotWasCleared) {
  table({Program(1), Program(2), Program(3), Program(4).cams(CAM_A).stream(0x1B, 0x100)});
  setRow(3, 0x20, {});
  clrSlotDescPID(SLOT);
  expectAnswer(query(3, 0), 0xEE, camA);
}

TEST(WebQueryAtStart, ReadsTheZeroedTable) {
  registerCard(0);
  platform.card[0].setTable({Program(1).cams(BOTH_CAMS).stream(0x1B, 0x100)});
  EXPECT_EQ(getDescStatWeb(0, 0), 0);
  EXPECT_EQ(getDescStatWeb(0, 0x100), 0xEE);
}

TEST_F(WebQuery, ChangesNothing) {
  const DescProgStat before = DescStatus[SLOT][0];
  getDescStatWeb(SLOT, query(0, 0x100));
  EXPECT_EQ(std::memcmp(&before, &DescStatus[SLOT][0], sizeof before), 0);
}

}  // namespace
