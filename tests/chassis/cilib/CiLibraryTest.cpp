#include "cilib/CiLibrary.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <utility>

#include "EventLog.h"
#include "Records.h"

namespace chassis {
namespace {

constexpr std::uint32_t slot = 2;
constexpr std::uint32_t camB = 1;
constexpr std::uint8_t index = 5;
constexpr std::uint8_t query = 3;
constexpr std::uint8_t okDescrambling = 1;

bool take(SEM_ID flag) {
  return semTake(flag, 0) == 0;
}

// The library with a software CAM as CAM 1 of slot 2.
class CiLibraryTest : public testing::Test {
 protected:
  void play(std::uint64_t ms) {
    for (const std::uint64_t end = nowMs + ms; nowMs < end;) {
      nowMs += 10;
      cam.tick(nowMs);
      library.tick(nowMs);
    }
  }

  void makeUsable() {
    ciLibLoad();
    library.insert(slot, camB, &cam);
    play(4000);
    ASSERT_EQ(ciLibGetInsertCard(slot, camB), 1u);
    take(CaPMTFlag[index]);
  }

  std::int32_t send(std::uint16_t program, std::uint8_t cmdId, std::uint32_t count = 1) {
    for (std::uint32_t k = 0; k < count && k < 32; ++k) {
      fillRecord(*CaPmtInfo[k], static_cast<std::uint16_t>(program + k), cmdId,
                 cmdId == query ? 4 : 3, 0x0500);
    }
    return ciLibSendCaPmt(slot, camB, CaPmtInfo, count);
  }

  EventLog events;
  Cam cam{{{0x0500, 0x0B01}}, {static_cast<int>(slot), static_cast<int>(camB)}, events, 0};
  CiLibrary library{events};
  std::uint64_t nowMs = 0;
};

TEST(CiLibraryData, ExistsBeforeTheLibraryDoes) {
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

TEST(CiLibraryUnbound, AnswersNeutrally) {
  CaPmtProg *records[] = {CaPmtInfo[0]};
  fillRecord(*CaPmtInfo[0], 1, okDescrambling, 3, 0x0500);
  EXPECT_LT(ciLibLoad(), 0);
  EXPECT_EQ(ciLibGetInsertCard(0, 0), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(0, 0x0500), 0u);
  EXPECT_EQ(ciLibSendCaPmt(0, 0, records, 1), 0);
  EXPECT_LT(resetCAM(0, 0), 0);
  qm_ci_ca_pmt_clr(0, 0x0500);
  EXT_Clear_Ca_Sys_Id(0);
}

TEST(CiLibraryIndex, IsTwoPerCardAndNoneOutside) {
  for (std::uint32_t card = 0; card < 6; ++card) {
    EXPECT_EQ(ciLibGetCardIndex(card, 0), card * 2);
    EXPECT_EQ(ciLibGetCardIndex(card, 1), card * 2 + 1);
  }
  EXPECT_EQ(ciLibGetCardIndex(6, 0), 0xFFu);
  EXPECT_EQ(ciLibGetCardIndex(0, 2), 0xFFu);
  EXPECT_EQ(ciLibGetCardIndex(0xFFFFFFFF, 0xFFFFFFFF), 0xFFu);
}

TEST_F(CiLibraryTest, PlacesOutsideTheChassisHaveNothing) {
  makeUsable();
  library.insert(6, 0, &cam);
  library.insert(0, 2, &cam);
  library.remove(6, 0);
  library.programsChanged(6);
  EXPECT_EQ(ciLibGetInsertCard(6, 0), 0u);
  EXPECT_EQ(ciLibGetInsertCard(0, 2), 0u);
  EXPECT_EQ(ciLibGetInsertCard(1, 3), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(12, 0x0500), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(255, 0x0500), 0u);
  EXPECT_EQ(ciLibSendCaPmt(6, 0, CaPmtInfo, 1), 0);
  EXPECT_LT(resetCAM(6, 1), 0);
  qm_ci_ca_pmt_clr(12, 0x0500);
  EXT_Clear_Ca_Sys_Id(12);
  EXPECT_FALSE(library.history(6, 0).sent);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
}

TEST_F(CiLibraryTest, NothingIsExchangedBeforeItIsLoaded) {
  library.insert(slot, camB, &cam);
  play(20000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 2u);
  EXPECT_FALSE(take(CaPMTFlag[index]));
  EXPECT_EQ(ciLibLoad(), 0);
  play(1000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
}

TEST_F(CiLibraryTest, CamComesUpAndAsksForACaPmt) {
  ciLibLoad();
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 0u);
  library.insert(slot, camB, &cam);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 2u);
  play(2500);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 2u);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0500), 0u);
  play(1500);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
  EXPECT_EQ(ciLibCaSysIdMatch(index, 0x0500), 0u);
  EXPECT_EQ(ciLibCaSysIdMatch(index, 0x0B01), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0B02), 0u);
  for (std::uint8_t other = 0; other < 12; ++other) {
    EXPECT_EQ(take(CaPMTFlag[other]), other == index);
    EXPECT_EQ(ciLibCaSysIdMatch(other, 0x0500) == 0, other == index);
  }
  EXPECT_EQ(events.count("CAM is up, CA systems 0x0500, 0x0B01"), 1);
}

TEST_F(CiLibraryTest, CaPmtReachesTheCamAndItsHistory) {
  makeUsable();
  EXPECT_EQ(send(101, okDescrambling, 3), 3);
  EXPECT_EQ(library.history(slot, camB).programs, 3u);
  EXPECT_EQ(library.history(slot, camB).sentMs, nowMs);
  EXPECT_FALSE(library.history(slot, 0).sent);
  EXPECT_EQ(send(101, okDescrambling, 0), 0);
  EXPECT_EQ(send(101, okDescrambling, 33), 0);
  EXPECT_EQ(library.history(slot, camB).programs, 3u);
}

TEST_F(CiLibraryTest, QueryOfAnEntitledProgramIsAnsweredPossible) {
  makeUsable();
  EXPECT_EQ(send(101, query), 1);
  play(1000);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 1);
  EXPECT_EQ(caPmtReplyInfo[index].prog[0].progNum, 101);
  EXPECT_EQ(events.count("reply: program 101: descrambling possible (0x01)"), 1);
}

TEST_F(CiLibraryTest, QueryTellsWhyTheCamDoesNotDescramble) {
  makeUsable();
  cam.entitle(101, false);
  cam.refuse(102, true);
  EXPECT_EQ(send(101, query, 2), 2);
  play(1000);
  const CaPmtReply &record = caPmtReplyInfo[index];
  ASSERT_EQ(record.progNum, 2);
  EXPECT_EQ(record.prog[0].progNum, 101);
  EXPECT_EQ(record.prog[0].ele[0].pid, 0x100 + 101);
  EXPECT_EQ(record.prog[0].ele[0].caEnable, 0x71);
  EXPECT_EQ(record.prog[1].ele[0].caEnable, 0x73);
  const CaPmtReply empty{};
  for (std::uint8_t other = 0; other < 12; ++other) {
    const bool same = std::memcmp(&caPmtReplyInfo[other], &empty, sizeof empty) == 0;
    EXPECT_EQ(same, other != index);
  }
  EXPECT_EQ(events.count("reply: program 101: no entitlement (0x71)"), 1);
  EXPECT_EQ(events.count("reply: program 102: technical reasons (0x73)"), 1);
}

TEST_F(CiLibraryTest, CaPmtWithoutQueryBringsNoReply) {
  makeUsable();
  cam.entitle(101, false);
  send(101, okDescrambling);
  play(1000);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
}

TEST_F(CiLibraryTest, ClearingTheCaPmtForgetsItsAnswers) {
  makeUsable();
  send(101, query);
  play(1000);
  qm_ci_ca_pmt_clr(index, 0x0500);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
}

TEST_F(CiLibraryTest, ResetCamComesBackAndAsksForACaPmt) {
  makeUsable();
  send(101, query);
  play(1000);
  EXPECT_EQ(resetCAM(slot, camB), 0);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 2u);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0500), 0u);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
  EXPECT_TRUE(library.history(slot, camB).reset);
  EXPECT_EQ(library.history(slot, camB).resetMs, nowMs);
  EXPECT_EQ(library.history(slot, camB).resets, 1u);
  EXPECT_EQ(send(101, okDescrambling), 0);
  play(4000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
  EXPECT_TRUE(take(CaPMTFlag[index]));
}

TEST_F(CiLibraryTest, DeafCamIsUsableAgainAfterItsReset) {
  makeUsable();
  cam.setFault(CamFault::Deaf, true);
  EXPECT_EQ(send(101, query), 1);
  play(8000);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
  EXPECT_EQ(events.why("CAM does not answer"), "no reply to the query within 5 s");
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
  resetCAM(slot, camB);
  play(4000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
  send(101, query);
  play(1000);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 1);
}

TEST_F(CiLibraryTest, CamThatAnswersGarbageIsNeverUsable) {
  cam.setFault(CamFault::Garbage, true);
  ciLibLoad();
  library.insert(slot, camB, &cam);
  play(30000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 2u);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0500), 0u);
  EXPECT_FALSE(take(CaPMTFlag[index]));
  EXPECT_LT(events.lines.size(), 10u);
}

TEST_F(CiLibraryTest, GarbageLeavesTheOtherCamsAlone) {
  makeUsable();
  Cam other({{0x0600}}, {static_cast<int>(slot), 0}, events, nowMs);
  library.insert(slot, 0, &other);
  other.setFault(CamFault::Garbage, true);
  for (int second = 0; second < 10; ++second) {
    other.tick(nowMs + 1000);
    play(1000);
  }
  send(101, query);
  play(1000);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 1);
  EXPECT_EQ(caPmtReplyInfo[index - 1].progNum, 0);
  EXPECT_FALSE(take(CaPMTFlag[index]));
  library.remove(slot, 0);
}

TEST_F(CiLibraryTest, ForgottenCaSystemsAreAskedForAgain) {
  makeUsable();
  EXT_Clear_Ca_Sys_Id(index);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0500), 0u);
  play(1000);
  EXPECT_EQ(ciLibCaSysIdMatch(index, 0x0500), 0u);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 1u);
}

TEST_F(CiLibraryTest, ChangedProgramsConcernTheCamsOfTheirCard) {
  makeUsable();
  library.programsChanged(slot + 1);
  EXPECT_FALSE(take(CaPMTFlag[index]));
  library.programsChanged(slot);
  for (std::uint8_t other = 0; other < 12; ++other) {
    EXPECT_EQ(take(CaPMTFlag[other]), other == index);
  }
}

TEST_F(CiLibraryTest, RemovedCamIsGone) {
  makeUsable();
  library.insert(slot, camB, nullptr);
  EXPECT_EQ(ciLibGetInsertCard(slot, camB), 0u);
  EXPECT_NE(ciLibCaSysIdMatch(index, 0x0500), 0u);
  EXPECT_EQ(send(101, okDescrambling), 0);
  EXPECT_LT(resetCAM(slot, camB), 0);
  play(1000);
}

TEST(CiLibraryLife, NewLibraryStartsWithEmptyFlagsAndAnswers) {
  EventLog events;
  semGive(CaPMTFlag[3]);
  caPmtReplyInfo[3].progNum = 9;
  {
    CiLibrary library(events);
    EXPECT_FALSE(take(CaPMTFlag[3]));
    EXPECT_EQ(caPmtReplyInfo[3].progNum, 0);
    EXPECT_EQ(ciLibLoad(), 0);
    EXPECT_EQ(ciLibLoad(), 0);
  }
  EXPECT_LT(ciLibLoad(), 0);
}

// The second time the newer one is likely to stand before the older one in memory.
TEST(CiLibraryLife, OneThatGoesLeavesTheNewerOneBound) {
  EventLog events;
  auto older = std::make_unique<CiLibrary>(events);
  auto newer = std::make_unique<CiLibrary>(events);
  for (int turn = 0; turn < 2; ++turn) {
    older = nullptr;
    EXPECT_EQ(ciLibLoad(), 0) << turn;
    older = std::exchange(newer, std::make_unique<CiLibrary>(events));
  }
}

}  // namespace
}  // namespace chassis
