#include "platform/Binding.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "chassis/StreamWriter.h"
#include "chassis/cilib/Records.h"
#include "platform/LibraryData.h"

using testing_streams::oneProgram;
using testing_streams::TemporaryFile;

namespace chassis {
namespace {

constexpr std::uint32_t slot = 2;
constexpr std::uint32_t camSlot = 1;
constexpr std::uint8_t index = 5;
constexpr std::uint16_t caSystem = 0x0500;
constexpr std::uint8_t query = 3;

bool take(SEM_ID flag) {
  return semTake(flag, 0) == 0;
}

AlarmRecord camAbsent() {
  AlarmRecord record{};
  record.pairCount = 3;
  record.pairs[0] = {1, 3};
  record.pairs[1] = {0x706, -1};
  record.pairs[2] = {0x703, -1};
  return record;
}

// All parts of a chassis, with a CAM that is up.
class BindingTest : public testing::Test {
 protected:
  BindingTest() {
    card_.insert(file_.path(), 1504000, 0);
    card_.publishTables();
    library_.insert(slot, camSlot, &cam_);
  }
  Binding::Parts parts() {
    Binding::Parts all{&clock_, &library_, &alarms_, {}};
    all.cards[slot] = &card_;
    return all;
  }
  void play(std::uint64_t ms) {
    for (const std::uint64_t end = nowMs_ + ms; nowMs_ < end;) {
      nowMs_ += Clock::msPerTick;
      cam_.tick(nowMs_);
      library_.tick(nowMs_);
    }
  }

  TemporaryFile file_{oneProgram()};
  EventFan events_;
  Files files_;
  Clock clock_{1000};
  Card card_{slot, events_, files_};
  Cam cam_{{{caSystem}}, {static_cast<int>(slot), static_cast<int>(camSlot)}, events_, 0};
  CiLibrary library_{events_, libraryData()};
  AlarmService alarms_{clock_, events_};
  std::uint64_t nowMs_ = 0;
};

// As an empty chassis; forms and time are those of nothing.
void expectNothing() {
  EXPECT_LT(ciLibLoad(), 0);
  EXPECT_EQ(ciLibGetInsertCard(slot, camSlot), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(index, caSystem), 0u);
  EXPECT_EQ(ciLibSendCaPmt(slot, camSlot, CaPmtInfo, 1), 0);
  EXPECT_LT(resetCAM(slot, camSlot), 0);
  qm_ci_ca_pmt_clr(index, caSystem);
  EXT_Clear_Ca_Sys_Id(index);
  AlarmRecord record = camAbsent();
  EXPECT_EQ(AlarmAdd(&record), -1);
  EXPECT_EQ(AlarmDel(0, 0), -1);
  EXPECT_EQ(GetInPortFormList(slot, 0), nullptr);
  EXPECT_EQ(GetMuxCardFormList(slot), nullptr);
  EXPECT_EQ(OSTimeGet(), 0u);
  EXPECT_EQ(is_all_card_loaded, 0u);
}

TEST(BindingData, ExistsBeforeAnythingIsBound) {
  for (CaPmtProg *record : CaPmtInfo) {
    ASSERT_NE(record, nullptr);
    std::memset(record, 0xFF, sizeof *record);
  }
  for (int k = 0; k < 32; ++k) {
    for (int other = 0; other < k; ++other) {
      EXPECT_NE(CaPmtInfo[k], CaPmtInfo[other]);
    }
  }
  EXPECT_EQ(semTake(CaPmtSem, 0), 0);
  EXPECT_NE(semTake(CaPmtSem, 0), 0);
  EXPECT_EQ(semGive(CaPmtSem), 0);
  for (int k = 0; k < 12; ++k) {
    EXPECT_FALSE(take(CaPMTFlag[k])) << k;
    semGive(CaPMTFlag[k]);
    for (int other = 0; other < 12; ++other) {
      EXPECT_EQ(take(CaPMTFlag[other]), other == k);
    }
  }
}

TEST(BindingNone, AnswersAsAnEmptyChassis) {
  expectNothing();
  for (std::uint32_t card = 0; card < MAX_BOARD_NUM; ++card) {
    EXPECT_EQ(ciLibGetCardIndex(card, 0), card * 2);
    EXPECT_EQ(ciLibGetCardIndex(card, 1), card * 2 + 1);
  }
  EXPECT_EQ(ciLibGetCardIndex(6, 0), 0xFFu);
}

TEST_F(BindingTest, PartsThatThereAreNotAnswerAsAnEmptyChassis) {
  const Binding binding({});
  expectNothing();
}

TEST_F(BindingTest, EveryFunctionReachesItsPart) {
  const Binding binding(parts());
  EXPECT_EQ(ciLibGetInsertCard(slot, camSlot), 2u);
  EXPECT_EQ(ciLibLoad(), 0);
  EXPECT_EQ(ciLibLoad(), 0);
  play(4000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camSlot), 1u);
  EXPECT_EQ(ciLibCaSysIdMatch(index, caSystem), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(index, caSystem + 1), 0u);
  EXPECT_TRUE(take(CaPMTFlag[index]));
  fillRecord(*CaPmtInfo[0], 101, query, 3, caSystem);
  EXPECT_EQ(ciLibSendCaPmt(slot, camSlot, CaPmtInfo, 1), 1);
  play(1000);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 1);
  EXPECT_EQ(&library_.replies(slot, camSlot), &caPmtReplyInfo[index]);
  qm_ci_ca_pmt_clr(index, caSystem);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
  EXT_Clear_Ca_Sys_Id(index);
  EXPECT_NE(ciLibCaSysIdMatch(index, caSystem), 0u);
  EXPECT_EQ(resetCAM(slot, camSlot), 0);
  EXPECT_EQ(library_.history(slot, camSlot).resets, 1u);
}

TEST_F(BindingTest, AlarmsTimeAndFormsAreThoseOfTheParts) {
  const Binding binding(parts());
  AlarmRecord record = camAbsent();
  EXPECT_EQ(AlarmAdd(&record), 0);
  EXPECT_EQ(alarms_.active().size(), 1u);
  EXPECT_EQ(AlarmDel(0, 0), 0);
  EXPECT_TRUE(alarms_.active().empty());
  EXPECT_EQ(OSTimeGet(), 1000u);
  EXPECT_NE(GetInPortFormList(slot, 0), nullptr);
  EXPECT_EQ(GetInPortFormList(slot, 0), card_.inPortForm());
  EXPECT_EQ(GetMuxCardFormList(slot), card_.muxForm());
  for (const std::uint32_t none : {1U, 6U, 0xFFFFFFFFU}) {
    EXPECT_EQ(GetInPortFormList(none, 0), nullptr);
    EXPECT_EQ(GetMuxCardFormList(none), nullptr);
  }
}

TEST_F(BindingTest, CardsAreLoadedWhenTheOneThatCountsSaysSo) {
  Binding first({});
  EXPECT_EQ(is_all_card_loaded, 0u);
  first.allCardsLoaded();
  EXPECT_EQ(is_all_card_loaded, 1u);
  {
    Binding second({});
    EXPECT_EQ(is_all_card_loaded, 0u);
    first.allCardsLoaded();
    EXPECT_EQ(is_all_card_loaded, 0u);
    second.allCardsLoaded();
  }
  EXPECT_EQ(is_all_card_loaded, 0u);
}

// The second time the newer one is likely to stand before the older one in memory.
TEST_F(BindingTest, OneThatGoesLeavesTheNewerOneBound) {
  auto older = std::make_unique<Binding>(Binding::Parts{});
  auto newer = std::make_unique<Binding>(parts());
  for (int turn = 0; turn < 2; ++turn) {
    older = nullptr;
    EXPECT_EQ(ciLibLoad(), 0) << turn;
    older = std::exchange(newer, std::make_unique<Binding>(parts()));
  }
}

TEST_F(BindingTest, NoneComesBackWhenTheNewerOneGoes) {
  const Binding older(parts());
  {
    const Binding newer({});
    expectNothing();
  }
  expectNothing();
}

TEST_F(BindingTest, ALineThatWasBegunEndsWithItsBinding) {
  std::vector<std::string> lines;
  const PrintListener listener = [&lines](ConsolePort, const std::string &line) {
    lines.push_back(line);
  };
  {
    Binding older({});
    const Printing printing = older.onPrinted(listener);
    modulePrintf("begun");
  }
  Binding newer({});
  const Printing printing = newer.onPrinted(listener);
  modulePrintf("new\n");
  EXPECT_EQ(lines, std::vector<std::string>{"new"});
}

}  // namespace
}  // namespace chassis
