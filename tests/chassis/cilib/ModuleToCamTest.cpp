// The road of a CA PMT: from a card's table through the module and the library to a CAM, and back.
#include <gtest/gtest.h>

#include "CiIf.h"
#include "EventLog.h"
#include "cilib/CiLibrary.h"
#include "kernel/Clock.h"
#include "platform/Binding.h"
#include "platform/LibraryData.h"

namespace chassis {
namespace {

constexpr std::uint32_t slot = 4;
constexpr std::uint8_t index = 9;  // CAM 1 of that slot

CiDesc table;

template <typename Function>
DescIfItem item(std::uint32_t id, Function *function) {
  return {id, reinterpret_cast<void *>(function)};
}

void registerTable() {
  const auto always = [](std::uint32_t) -> std::uint32_t { return 1; };
  const auto never = [](std::uint32_t) -> std::uint32_t { return 0; };
  const auto unmasked = [](std::uint32_t, std::uint32_t) -> std::uint32_t { return 0; };
  const auto describe = [](std::uint32_t) -> CiDesc * { return &table; };
  const DescIfItem items[] = {item(11, +always), item(12, +always), item(13, +describe),
                              item(16, +unmasked), item(21, +never)};
  descIfRegist(slot, items, 5);
}

// Adds a program with a video stream of PID 0x100 + number, its CA at program or stream level.
CiDescProg &addProgram(std::uint16_t number, std::uint8_t camMask, std::uint16_t caLevel,
                       std::uint16_t casid) {
  CiDescProg &program = table.prog[table.descProgCnt++];
  program.prog_num = number;
  program.camMask = camMask;
  program.caLevel = caLevel;
  program.eleNum = 1;
  program.ele[0].streamType = 2;
  program.ele[0].pid = static_cast<std::uint16_t>(0x100 + number);
  CiDescCaList &list = caLevel == 1 ? program.caList : program.ele[0].caList;
  list.caNum = 1;
  list.ca[0] = {casid, static_cast<std::uint16_t>(0x200 + number)};
  return program;
}

class ModuleToCamTest : public testing::Test {
 protected:
  ModuleToCamTest() {
    table = {};
    addProgram(101, 2, 1, 0x0500);
    addProgram(102, 2, 2, 0x0500);
    addProgram(103, 1, 2, 0x0500);
    ticking = clock.onTick([this](std::uint64_t nowMs) {
      cam.tick(nowMs);
      library.tick(nowMs);
    });
    static const bool registered = (registerTable(), true);  // once a run, as a driver does
    EXPECT_TRUE(registered);
    ciLibLoad();
    library.insert(slot, 1, &cam);
    clock.advance(4 * Clock::ticksPerSecond);
  }

  Clock clock;
  Clock::Listening ticking;
  EventLog events;
  Cam cam{{{0x0500}}, {static_cast<int>(slot), 1}, events, 0};
  CiLibrary library{events, libraryData()};
  Binding binding{{&clock, &library, nullptr, {}}};
};

TEST_F(ModuleToCamTest, StatusCycleSendsTheCaPmtThatTheFlagAsksFor) {
  camStatusCheck(slot);
  EXPECT_EQ(events.why("CA PMT sent: programs 101, 102"), "list management first, last");
  EXPECT_EQ(library.history(slot, 1).programs, 2u);
  EXPECT_EQ(library.history(slot, 1).sentMs, 5000u);
  camStatusCheck(slot);
  EXPECT_EQ(library.history(slot, 1).sentMs, 5000u);
  library.programsChanged(slot);
  camStatusCheck(slot);
  EXPECT_EQ(library.history(slot, 1).sentMs, 6000u);
}

TEST_F(ModuleToCamTest, SendingIsToldBeforeWhatTheCamDoesAboutIt) {
  cam.refuse(101, true);
  const std::size_t before = events.lines.size();
  caPMTSend(slot, 1, 0x0500, 0, 0);
  ASSERT_GE(events.lines.size(), before + 2);
  EXPECT_EQ(events.lines[before].what, "CA PMT sent: programs 101, 102");
  EXPECT_EQ(events.lines[before + 1].what, "does not descramble program 101");
}

TEST_F(ModuleToCamTest, CamWithoutItsCaInfoIsSentNothing) {
  EXPECT_EQ(resetCAM(slot, 1), 0);
  camStatusCheck(slot);
  EXPECT_EQ(pCiData[slot]->camInsert[1], 2);
  EXPECT_EQ(pCiData[slot]->casidStat[1], 0xFF);
  EXPECT_FALSE(library.history(slot, 1).sent);
  clock.advance(4 * Clock::ticksPerSecond);
  camStatusCheck(slot);
  EXPECT_EQ(pCiData[slot]->camInsert[1], 1);
  EXPECT_EQ(pCiData[slot]->casidStat[1], 1);
  EXPECT_TRUE(library.history(slot, 1).sent);
}

TEST_F(ModuleToCamTest, QueryComesBackAtTheLevelOfTheCaDescriptors) {
  cam.entitle(101, false);
  cam.entitle(102, false);
  EXPECT_EQ(caPMTSend(slot, 1, 0x0500, 0, 3), 2);
  clock.advance(Clock::ticksPerSecond);
  const CaPmtReply &record = caPmtReplyInfo[index];
  ASSERT_EQ(record.progNum, 2);
  EXPECT_EQ(record.prog[0].progNum, 101);
  EXPECT_EQ(record.prog[0].caEnable, 0x71);
  EXPECT_EQ(record.prog[1].progNum, 102);
  ASSERT_EQ(record.prog[1].eleNum, 1);
  EXPECT_EQ(record.prog[1].ele[0].pid, 0x100 + 102);
  EXPECT_EQ(record.prog[1].ele[0].caEnable, 0x71);
}

TEST_F(ModuleToCamTest, NextQueryStartsWithAnEmptyRecord) {
  caPMTSend(slot, 1, 0x0500, 0, 3);
  clock.advance(Clock::ticksPerSecond);
  ASSERT_EQ(caPmtReplyInfo[index].progNum, 2);
  EXPECT_EQ(caPMTSend(slot, 1, 0x0500, 102, 3), 1);
  EXPECT_EQ(caPmtReplyInfo[index].progNum, 0);
  clock.advance(Clock::ticksPerSecond);
  ASSERT_EQ(caPmtReplyInfo[index].progNum, 1);
  EXPECT_EQ(caPmtReplyInfo[index].prog[0].progNum, 102);
}

TEST_F(ModuleToCamTest, ProgramOfAnotherCaSystemIsSentWithoutDescriptors) {
  table = {};
  addProgram(104, 2, 2, 0x0600);
  EXPECT_EQ(caPMTSend(slot, 1, 0x0500, 0, 3), 1);
  clock.advance(10 * Clock::ticksPerSecond);
  EXPECT_EQ(events.count("CAM does not answer"), 0);
}

TEST_F(ModuleToCamTest, EmptyCamSlotIsSentNothing) {
  EXPECT_EQ(caPMTSend(slot, 0, 0x0500, 0, 0), 0);
  EXPECT_FALSE(library.history(slot, 0).sent);
}

}  // namespace
}  // namespace chassis
