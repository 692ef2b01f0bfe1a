#include "cilib/CiLibrary.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "EventLog.h"
#include "Records.h"
#include "chassis/LibraryMemory.h"

namespace chassis {
namespace {

constexpr std::uint32_t slot = 2;
constexpr std::uint32_t camB = 1;
constexpr std::uint8_t index = 5;
constexpr std::uint8_t query = 3;
constexpr std::uint8_t okDescrambling = 1;

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
    library.load();
    library.insert(slot, camB, &cam);
    play(4000);
    ASSERT_EQ(library.insertStatus(slot, camB), 1u);
    memory.flags[index].take();
  }

  std::int32_t send(std::uint16_t program, std::uint8_t cmdId, std::uint32_t count = 1) {
    std::vector<CaPmtProg> programs(count);
    std::vector<CaPmtProg *> records;
    for (CaPmtProg &record : programs) {
      const std::size_t k = records.size();
      records.push_back(&record);
      fillRecord(record, static_cast<std::uint16_t>(program + k), cmdId, cmdId == query ? 4 : 3,
                 0x0500);
    }
    return library.send(slot, camB, records.data(), count);
  }

  EventLog events;
  Cam cam{{{0x0500, 0x0B01}}, {static_cast<int>(slot), static_cast<int>(camB)}, events, 0};
  LibraryMemory memory;
  CiLibrary library{events, memory.shared()};
  std::uint64_t nowMs = 0;
};

TEST(CiLibraryIndex, IsTwoPerCardAndNoneOutside) {
  for (std::uint32_t card = 0; card < 6; ++card) {
    EXPECT_EQ(CiLibrary::indexOf(card, 0), card * 2);
    EXPECT_EQ(CiLibrary::indexOf(card, 1), card * 2 + 1);
  }
  EXPECT_EQ(CiLibrary::indexOf(6, 0), 0xFFu);
  EXPECT_EQ(CiLibrary::indexOf(0, 2), 0xFFu);
  EXPECT_EQ(CiLibrary::indexOf(0xFFFFFFFF, 0xFFFFFFFF), 0xFFu);
}

TEST_F(CiLibraryTest, PlacesOutsideTheChassisHaveNothing) {
  makeUsable();
  CaPmtProg *const none = nullptr;
  library.insert(6, 0, &cam);
  library.insert(0, 2, &cam);
  library.remove(6, 0);
  library.programsChanged(6);
  EXPECT_EQ(library.insertStatus(6, 0), 0u);
  EXPECT_EQ(library.insertStatus(0, 2), 0u);
  EXPECT_EQ(library.insertStatus(1, 3), 0u);
  EXPECT_FALSE(library.supports(12, 0x0500));
  EXPECT_FALSE(library.supports(255, 0x0500));
  EXPECT_EQ(library.send(6, 0, &none, 1), 0);
  EXPECT_FALSE(library.reset(6, 1));
  library.forgetCaPmt(12, 0x0500);
  library.forgetCaSystems(12);
  EXPECT_FALSE(library.history(6, 0).sent);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
}

TEST_F(CiLibraryTest, NothingIsExchangedBeforeItIsLoaded) {
  library.insert(slot, camB, &cam);
  play(20000);
  EXPECT_EQ(library.insertStatus(slot, camB), 2u);
  EXPECT_FALSE(memory.flags[index].take());
  library.load();
  play(1000);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
}

TEST_F(CiLibraryTest, CamComesUpAndAsksForACaPmt) {
  library.load();
  EXPECT_EQ(library.insertStatus(slot, camB), 0u);
  library.insert(slot, camB, &cam);
  EXPECT_EQ(library.insertStatus(slot, camB), 2u);
  play(2500);
  EXPECT_EQ(library.insertStatus(slot, camB), 2u);
  EXPECT_FALSE(library.supports(index, 0x0500));
  play(1500);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
  EXPECT_TRUE(library.supports(index, 0x0500));
  EXPECT_TRUE(library.supports(index, 0x0B01));
  EXPECT_FALSE(library.supports(index, 0x0B02));
  for (std::uint8_t other = 0; other < 12; ++other) {
    EXPECT_EQ(memory.flags[other].take(), other == index);
    EXPECT_EQ(library.supports(other, 0x0500), other == index);
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
  EXPECT_EQ(memory.replies[index].progNum, 1);
  EXPECT_EQ(memory.replies[index].prog[0].progNum, 101);
  EXPECT_EQ(events.count("reply: program 101: descrambling possible (0x01)"), 1);
}

TEST_F(CiLibraryTest, QueryTellsWhyTheCamDoesNotDescramble) {
  makeUsable();
  cam.entitle(101, false);
  cam.refuse(102, true);
  EXPECT_EQ(send(101, query, 2), 2);
  play(1000);
  const CaPmtReply &record = memory.replies[index];
  ASSERT_EQ(record.progNum, 2);
  EXPECT_EQ(record.prog[0].progNum, 101);
  EXPECT_EQ(record.prog[0].ele[0].pid, 0x100 + 101);
  EXPECT_EQ(record.prog[0].ele[0].caEnable, 0x71);
  EXPECT_EQ(record.prog[1].ele[0].caEnable, 0x73);
  const CaPmtReply empty{};
  for (std::uint8_t other = 0; other < 12; ++other) {
    const bool same = std::memcmp(&memory.replies[other], &empty, sizeof empty) == 0;
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
  EXPECT_EQ(memory.replies[index].progNum, 0);
}

TEST_F(CiLibraryTest, ClearingTheCaPmtForgetsItsAnswers) {
  makeUsable();
  send(101, query);
  play(1000);
  library.forgetCaPmt(index, 0x0500);
  EXPECT_EQ(memory.replies[index].progNum, 0);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
}

TEST_F(CiLibraryTest, ResetCamComesBackAndAsksForACaPmt) {
  makeUsable();
  send(101, query);
  play(1000);
  EXPECT_TRUE(library.reset(slot, camB));
  EXPECT_EQ(library.insertStatus(slot, camB), 2u);
  EXPECT_FALSE(library.supports(index, 0x0500));
  EXPECT_EQ(memory.replies[index].progNum, 0);
  EXPECT_TRUE(library.history(slot, camB).reset);
  EXPECT_EQ(library.history(slot, camB).resetMs, nowMs);
  EXPECT_EQ(library.history(slot, camB).resets, 1u);
  EXPECT_EQ(send(101, okDescrambling), 0);
  play(4000);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
  EXPECT_TRUE(memory.flags[index].take());
}

TEST_F(CiLibraryTest, DeafCamIsUsableAgainAfterItsReset) {
  makeUsable();
  cam.setFault(CamFault::Deaf, true);
  EXPECT_EQ(send(101, query), 1);
  play(8000);
  EXPECT_EQ(memory.replies[index].progNum, 0);
  EXPECT_EQ(events.why("CAM does not answer"), "no reply to the query within 5 s");
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
  library.reset(slot, camB);
  play(4000);
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
  send(101, query);
  play(1000);
  EXPECT_EQ(memory.replies[index].progNum, 1);
}

TEST_F(CiLibraryTest, CamThatAnswersGarbageIsNeverUsable) {
  cam.setFault(CamFault::Garbage, true);
  library.load();
  library.insert(slot, camB, &cam);
  play(30000);
  EXPECT_EQ(library.insertStatus(slot, camB), 2u);
  EXPECT_FALSE(library.supports(index, 0x0500));
  EXPECT_FALSE(memory.flags[index].take());
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
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
  EXPECT_EQ(memory.replies[index].progNum, 1);
  EXPECT_EQ(memory.replies[index - 1].progNum, 0);
  EXPECT_FALSE(memory.flags[index].take());
  library.remove(slot, 0);
}

TEST_F(CiLibraryTest, ForgottenCaSystemsAreAskedForAgain) {
  makeUsable();
  library.forgetCaSystems(index);
  EXPECT_FALSE(library.supports(index, 0x0500));
  play(1000);
  EXPECT_TRUE(library.supports(index, 0x0500));
  EXPECT_EQ(library.insertStatus(slot, camB), 1u);
}

TEST_F(CiLibraryTest, ChangedProgramsConcernTheCamsOfTheirCard) {
  makeUsable();
  library.programsChanged(slot + 1);
  EXPECT_FALSE(memory.flags[index].take());
  library.programsChanged(slot);
  for (std::uint8_t other = 0; other < 12; ++other) {
    EXPECT_EQ(memory.flags[other].take(), other == index);
  }
}

TEST_F(CiLibraryTest, RemovedCamIsGone) {
  makeUsable();
  library.insert(slot, camB, nullptr);
  EXPECT_EQ(library.insertStatus(slot, camB), 0u);
  EXPECT_FALSE(library.supports(index, 0x0500));
  EXPECT_EQ(send(101, okDescrambling), 0);
  EXPECT_FALSE(library.reset(slot, camB));
  play(1000);
}

TEST(CiLibraryLife, BeginsWithEmptyFlagsAndReplies) {
  EventLog events;
  LibraryMemory memory;
  memory.flags[3].give();
  memory.replies[3].progNum = 9;
  const CiLibrary library(events, memory.shared());
  EXPECT_FALSE(memory.flags[3].take());
  EXPECT_EQ(memory.replies[3].progNum, 0);
}

TEST_F(CiLibraryTest, RepliesAreThoseOfTheirCam) {
  memory.replies[index].progNum = 7;
  EXPECT_EQ(library.replies(slot, camB).progNum, 7);
  EXPECT_EQ(library.replies(slot, 0).progNum, 0);
  EXPECT_EQ(library.replies(6, 0).progNum, 0);
  EXPECT_EQ(library.replies(0, 2).progNum, 0);
}

}  // namespace
}  // namespace chassis
