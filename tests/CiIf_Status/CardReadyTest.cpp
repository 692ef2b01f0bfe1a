#include <gtest/gtest.h>

#include <vector>

#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

struct ReadyCase {
  const char *name;
  uint32_t online;
  uint32_t busy;
  uint32_t ready;
  size_t calls;  // made of Online, Busy, Ready before the test is decided
  bool passes;
};

const ReadyCase CASES[] = {
    {"Ready", 1, 0, 1, 3, true},
    {"Offline", 0, 0, 1, 1, false},
    {"OnlineIsTwo", 2, 0, 1, 1, false},
    {"OnlineHasAHighBit", 0x101, 0, 1, 1, false},
    {"Busy", 1, 1, 1, 2, false},
    {"BusyIsTwo", 1, 2, 1, 2, false},
    {"BusyHasAHighBit", 1, 0x100, 1, 2, false},
    {"NotReady", 1, 0, 0, 3, false},
    {"ReadyIsTwo", 1, 0, 2, 3, false},
    {"ReadyHasAHighBit", 1, 0, 0x10001, 3, false},
    {"AllFail", 0, 1, 0, 1, false},
};

class CardReady : public testing::TestWithParam<ReadyCase> {
 protected:
  void SetUp() override {
    registerCard(4);
    Card &card = platform.card[4];
    card.GetCardOnline = GetParam().online;
    card.GetCardBusy = GetParam().busy;
    card.GetCardReady = GetParam().ready;
    card.setTable({Program(1).cams(BOTH_CAMS).stream(0x1B, 0x100)});
  }
};
INSTANTIATE_TEST_SUITE_P(Cases, CardReady, testing::ValuesIn(CASES), ItsName());

TEST_P(CardReady, DecidesWhetherAStatusIsChecked) {
  camStatusCheck(4);
  EXPECT_EQ(pCiData[4]->camInsert[0], GetParam().passes ? 1 : 0xFF);
  EXPECT_EQ(pCiData[4]->camInsert[1], GetParam().passes ? 1 : 0xFF);
}

TEST_P(CardReady, AsksInOrderAndStopsAtTheFirstFailureEachTime) {
  const Calls order = {"GetCardOnline(4)", "GetCardBusy(4)", "GetCardReady(4)"};
  camStatusCheck(4);
  const Calls calls = platform.take({"GetCardOnline", "GetCardBusy", "GetCardReady"});
  ASSERT_GE(calls.size(), 2 * GetParam().calls);
  ASSERT_EQ(calls.size() % GetParam().calls, 0U);
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(calls[i], order[i % GetParam().calls]) << i;
  }
}

TEST(CardReadyAfresh, AsksAgainAtEveryUse) {
  registerCard(0);
  platform.card[0].setTable({Program(1).cams(BOTH_CAMS).stream(0x1B, 0x100)});
  platform.card[0].GetCardReady.then(1);
  platform.card[0].GetCardReady.does([] { return 0U; });
  camStatusCheck(0);
  EXPECT_EQ(pCiData[0]->camInsert[0], 1);
  EXPECT_EQ(pCiData[0]->casidStat[0], 0xFF);
  EXPECT_EQ(pCiData[0]->camInsert[1], 0xFF);
}

}  // namespace
