#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr char UNIT[] = "../../CiIf_Status";
constexpr uint16_t NO_PID = 0x1FFF;

using Rows = std::vector<DescProgStat>;

Rows rowsOf(uint32_t slotNo) {
  return {DescStatus[slotNo], DescStatus[slotNo] + 32};
}

// The bytes of a slot as a test wants them: what is expected where.
class Expected {
 public:
  explicit Expected(uint32_t slotNo) : slotNo_(slotNo), rows_(rowsOf(slotNo)) {}

  DescProgStat &operator[](size_t p) { return rows_[p]; }

  void holds() const {
    for (size_t p = 0; p < 32; ++p) {
      EXPECT_EQ(std::memcmp(&rows_[p], &DescStatus[slotNo_][p], sizeof(DescProgStat)), 0)
          << "slot " << slotNo_ << " program " << p;
    }
  }

 private:
  uint32_t slotNo_;
  Rows rows_;
};

DescProgStat emptyRow() {
  DescProgStat row;
  std::memset(&row, 0, sizeof row);
  row.progStatus = 0xEE;
  for (DescPidStat &record : row.pid) {
    record = {NO_PID, 0xEE, 0};
  }
  return row;
}

// Every byte of the whole table different from what any function writes.
void scribble() {
  std::memset(DescStatus, 0x5A, sizeof DescStatus);
}

std::vector<Expected> allSlots() {
  std::vector<Expected> slots;
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    slots.emplace_back(slotNo);
  }
  return slots;
}

void hold(const std::vector<Expected> &slots) {
  for (const Expected &slot : slots) {
    slot.holds();
  }
}

std::string logged(uint32_t card, uint16_t program, uint16_t type, uint16_t pid) {
  char text[80];
  std::snprintf(text, sizeof text, "card %u program 0x%x,streamType 0x%x Pid 0x%x\n", card, program,
                type, pid);
  return bbPrinted(text);
}

TEST(StatusTable, IsZeroAtStart) {
  const std::vector<uint8_t> zero(sizeof DescStatus, 0);
  EXPECT_EQ(std::memcmp(DescStatus, zero.data(), zero.size()), 0);
}

// --- clrSlotDescPID ------------------------------------------------------------------------------

class ClearSlot : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(LowByteCounts, ClearSlot,
                         testing::Values(0, 1, 2, 3, 4, 5, 0x100, 0x203, 0xFFFFFF05), HexName());

TEST_P(ClearSlot, EmptiesAllRowsOfTheSlotAndNoOther) {
  scribble();
  std::vector<Expected> slots = allSlots();
  for (size_t p = 0; p < 32; ++p) {
    slots[GetParam() & 0xFF][p] = emptyRow();
  }
  clrSlotDescPID(GetParam());
  hold(slots);
}

TEST_P(ClearSlot, NeedsNoCardAndCallsNothing) {
  clrSlotDescPID(GetParam());
  EXPECT_EQ(platform.take(), (Calls{}));
}

TEST(ClearSlot, SetsTheByteBetweenStatusAndRecordsToZero) {
  scribble();
  clrSlotDescPID(1);
  for (const DescProgStat &row : DescStatus[1]) {
    EXPECT_EQ(reinterpret_cast<const uint8_t *>(&row)[1], 0);
  }
}

// --- clrDescStat and getDescPidInfo: what they share ---------------------------------------------

struct PerCam {
  const char *name;
  void (*function)(uint32_t slotNo, uint32_t camSlot);
  int recordLine;
  int tableLine;
};

const PerCam PER_CAM[] = {
    {"clrDescStat", clrDescStat, 190, 192},
    {"getDescPidInfo", getDescPidInfo, 229, 231},
};

class PerCamFunction : public testing::TestWithParam<PerCam> {};
INSTANTIATE_TEST_SUITE_P(Functions, PerCamFunction, testing::ValuesIn(PER_CAM), ItsName());

TEST_P(PerCamFunction, AssertsTheRecord) {
  scribble();
  const std::vector<Expected> slots = allSlots();
  GetParam().function(4, 1);
  EXPECT_EQ(platform.take(), (Calls{asserted(UNIT, GetParam().recordLine, "pCiData[slotNo]")}));
  hold(slots);
}

TEST_P(PerCamFunction, AssertsTheTable) {
  registerCard(4);
  platform.card[4].GetProgDesc = nullptr;
  scribble();
  const std::vector<Expected> slots = allSlots();
  GetParam().function(4, 1);
  EXPECT_EQ(platform.take(),
            (Calls{"GetProgDesc(4)", asserted(UNIT, GetParam().tableLine, "pdesc")}));
  hold(slots);
}

TEST_P(PerCamFunction, UsesTheLowByteOfTheSlot) {
  registerCard(3);
  scribble();
  const std::vector<Expected> slots = allSlots();
  GetParam().function(0xABCDEF03, 0);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)"}));
  hold(slots);
}

TEST_P(PerCamFunction, FetchesTheTableOnceAndAfreshAtEveryCall) {
  registerCard(3);
  GetParam().function(3, 0);
  GetParam().function(3, 0);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)", "GetProgDesc(3)"}));
}

// --- clrDescStat ---------------------------------------------------------------------------------

struct CamChoice {
  uint32_t camSlot;
  std::vector<size_t> programs;  // of fourPrograms()
};

void fourPrograms(uint32_t slotNo) {
  platform.card[slotNo].setTable({
      Program(0x101).cams(CAM_A).streams(0x1B, 0x100, 3),
      Program(0x102).cams(CAM_B).streams(0x06, 0x200, 2),
      Program(0x103).cams(BOTH_CAMS).streams(0x03, 0x300, 32),
      Program(0x104).cams(NO_CAM).streams(0x02, 0x400, 4),
      Program(0x105).cams(0xFD).streams(0x02, 0x500, 1),
      Program(0x106).cams(BOTH_CAMS),
  });
}

const CamChoice CHOICES[] = {{0, {0, 2, 4, 5}}, {1, {1, 2, 5}}};

class OneCam : public testing::TestWithParam<CamChoice> {
 protected:
  void SetUp() override {
    registerCard(1);
    fourPrograms(1);
    // 0xFD is every bit but that of CAM B.
    for (size_t p : GetParam().programs) {
      ASSERT_TRUE(platform.card[1].desc.prog[p].camMask >> GetParam().camSlot & 1);
    }
    scribble();
  }
};
INSTANTIATE_TEST_SUITE_P(Cams, OneCam, testing::ValuesIn(CHOICES),
                         [](const auto &each) { return each.param.camSlot == 0 ? "A" : "B"; });

TEST_P(OneCam, ClearsTheStatusesOfItsProgramsAndKeepsPidsAndTypes) {
  std::vector<Expected> slots = allSlots();
  for (size_t p : GetParam().programs) {
    slots[1][p].progStatus = 0xEE;
    for (size_t e = 0; e < platform.card[1].desc.prog[p].eleNum; ++e) {
      slots[1][p].pid[e].status = 0xEE;
    }
  }
  clrDescStat(1, GetParam().camSlot);
  hold(slots);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(1)"}));
}

TEST_P(OneCam, FillsPidsAndTypesOfItsProgramsAndKeepsStatuses) {
  std::vector<Expected> slots = allSlots();
  Calls calls = {"GetProgDesc(1)"};
  for (size_t p : GetParam().programs) {
    const CiDescProg &program = platform.card[1].desc.prog[p];
    for (size_t e = 0; e < program.eleNum; ++e) {
      const CiDescElem &element = program.ele[e];
      slots[1][p].pid[e].pid = element.pid;
      slots[1][p].pid[e].type = element.streamType == 0x06 ? 4 : 1;
      calls.push_back(logged(2, program.prog_num, element.streamType, element.pid));
    }
  }
  getDescPidInfo(1, GetParam().camSlot);
  hold(slots);
  EXPECT_EQ(platform.take(), calls);
}

TEST(PerCamWalk, CoversThirtyTwoProgramsOfThirtyTwoStreams) {
  std::vector<Program> programs;
  for (uint16_t p = 0; p < 32; ++p) {
    programs.push_back(Program(p).cams(CAM_B).streams(0x02, static_cast<uint16_t>(p * 32), 32));
  }
  registerCard(5);
  platform.card[5].setTable(programs);
  scribble();
  std::vector<Expected> slots = allSlots();
  for (uint16_t p = 0; p < 32; ++p) {
    slots[5][p].progStatus = 0xEE;
    for (uint16_t e = 0; e < 32; ++e) {
      slots[5][p].pid[e] = {static_cast<uint16_t>(p * 32 + e), 0xEE, 1};
    }
  }
  getDescPidInfo(5, 1);
  EXPECT_EQ(platform.count("bbPrintf"), 1024U);
  clrDescStat(5, 1);
  hold(slots);
}

TEST(PerCamWalk, StopsAtTheProgramCount) {
  registerCard(0);
  fourPrograms(0);
  platform.card[0].desc.descProgCnt = 2;
  scribble();
  std::vector<Expected> slots = allSlots();
  slots[0][0].progStatus = 0xEE;
  for (uint16_t e = 0; e < 3; ++e) {
    slots[0][0].pid[e] = {static_cast<uint16_t>(0x100 + e), 0xEE, 1};
  }
  getDescPidInfo(0, 0);
  clrDescStat(0, 0);
  hold(slots);
}

// --- getDescPidInfo: the class of a stream -------------------------------------------------------

class StreamType : public testing::TestWithParam<uint16_t> {};

class AvStream : public StreamType {};
INSTANTIATE_TEST_SUITE_P(Types, AvStream, testing::Values(0x01, 0x02, 0x03, 0x04, 0x11, 0x1B),
                         HexName());

TEST_P(AvStream, IsOfClassOne) {
  registerCard(0);
  platform.card[0].setTable({Program(7).stream(GetParam(), 0x123)});
  getDescPidInfo(0, 0);
  EXPECT_EQ(DescStatus[0][0].pid[0].type, 1);
  EXPECT_EQ(platform.take({"bbPrintf"}), (Calls{logged(1, 7, GetParam(), 0x123)}));
}

class OtherStream : public StreamType {};
// Neighbours of the accepted types, types of newer codecs, and accepted low bytes in wider values.
INSTANTIATE_TEST_SUITE_P(Types, OtherStream,
                         testing::Values(0x00, 0x05, 0x06, 0x0B, 0x0F, 0x10, 0x12, 0x1A, 0x1C, 0x24,
                                         0x81, 0xFF, 0x0101, 0x021B, 0xFF02),
                         HexName());

TEST_P(OtherStream, IsOfClassFour) {
  registerCard(0);
  platform.card[0].setTable({Program(7).stream(GetParam(), 0x123)});
  getDescPidInfo(0, 0);
  EXPECT_EQ(DescStatus[0][0].pid[0].type, 4);
  EXPECT_EQ(platform.take({"bbPrintf"}), (Calls{logged(1, 7, GetParam(), 0x123)}));
}

TEST(StreamClass, AudioAndVideoAreExactlySixOfAllByteValues) {
  registerCard(0);
  int av = 0;
  for (uint16_t type = 0; type < 0x100; ++type) {
    platform.card[0].setTable({Program(1).stream(type, 0x100)});
    getDescPidInfo(0, 0);
    av += DescStatus[0][0].pid[0].type == 1;
  }
  EXPECT_EQ(av, 6);
}

class LoggedSlot : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Slots, LoggedSlot, testing::Values(0, 1, 2, 3, 4, 5, 0x104), HexName());

TEST_P(LoggedSlot, IsCountedFromOne) {
  const uint32_t slotNo = GetParam() & 0xFF;
  registerCard(slotNo);
  platform.card[slotNo].setTable({Program(0xFFFF).stream(0x1234, 0x1FFE)});
  getDescPidInfo(GetParam(), 0);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(" + std::to_string(slotNo) + ")",
                                    bbPrinted("card " + std::to_string(slotNo + 1) +
                                              " program 0xffff,streamType 0x1234 Pid 0x1ffe\n")}));
}

// --- getSlotDescPidInfo --------------------------------------------------------------------------

TEST(TakeOver, ClearsTheSlotAndFillsItForBothCams) {
  registerCard(2);
  platform.card[2].setTable({Program(1).cams(CAM_B).stream(0x1B, 0x100),
                             Program(2).cams(BOTH_CAMS).stream(0x06, 0x200).stream(0x03, 0x201),
                             Program(3).cams(NO_CAM).stream(0x1B, 0x300),
                             Program(4).cams(CAM_A).stream(0x04, 0x400)});
  scribble();
  std::vector<Expected> slots = allSlots();
  for (size_t p = 0; p < 32; ++p) {
    slots[2][p] = emptyRow();
  }
  slots[2][0].pid[0] = {0x100, 0xEE, 1};
  slots[2][1].pid[0] = {0x200, 0xEE, 4};
  slots[2][1].pid[1] = {0x201, 0xEE, 1};
  slots[2][3].pid[0] = {0x400, 0xEE, 1};
  getSlotDescPidInfo(2);
  hold(slots);
  EXPECT_EQ(platform.take(),
            (Calls{"GetProgDesc(2)", logged(3, 2, 0x06, 0x200), logged(3, 2, 0x03, 0x201),
                   logged(3, 4, 0x04, 0x400), "GetProgDesc(2)", logged(3, 1, 0x1B, 0x100),
                   logged(3, 2, 0x06, 0x200), logged(3, 2, 0x03, 0x201)}));
}

TEST(TakeOver, ForgetsTheOldTable) {
  registerCard(0);
  platform.card[0].setTable({Program(1).streams(0x1B, 0x100, 4), Program(2).stream(0x1B, 0x200)});
  getSlotDescPidInfo(0);
  platform.card[0].setTable({Program(9).stream(0x06, 0x900)});
  std::vector<Expected> slots = allSlots();
  for (size_t p = 0; p < 32; ++p) {
    slots[0][p] = emptyRow();
  }
  slots[0][0].pid[0] = {0x900, 0xEE, 4};
  getSlotDescPidInfo(0);
  hold(slots);
}

class TakeOverSlot : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(LowByteCounts, TakeOverSlot,
                         testing::Values(0, 1, 2, 3, 4, 5, 0x105, 0xFFFFFF00), HexName());

TEST_P(TakeOverSlot, IsTakenOver) {
  const uint32_t slotNo = GetParam() & 0xFF;
  registerCard(slotNo);
  platform.card[slotNo].setTable({Program(1).stream(0x1B, 0x100)});
  scribble();
  std::vector<Expected> slots = allSlots();
  for (size_t p = 0; p < 32; ++p) {
    slots[slotNo][p] = emptyRow();
  }
  slots[slotNo][0].pid[0] = {0x100, 0xEE, 1};
  getSlotDescPidInfo(GetParam());
  hold(slots);
}

TEST_P(TakeOverSlot, IsStillClearedWithoutACard) {
  scribble();
  std::vector<Expected> slots = allSlots();
  for (size_t p = 0; p < 32; ++p) {
    slots[GetParam() & 0xFF][p] = emptyRow();
  }
  getSlotDescPidInfo(GetParam());
  hold(slots);
  const std::string line = asserted(UNIT, 229, "pCiData[slotNo]");
  EXPECT_EQ(platform.take(), (Calls{line, line}));
}

TEST(TakeOver, ReportsAMissingTableOncePerCam) {
  registerCard(0);
  platform.card[0].GetProgDesc = nullptr;
  getSlotDescPidInfo(0);
  const std::string line = asserted(UNIT, 231, "pdesc");
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(0)", line, "GetProgDesc(0)", line}));
}

class TakeOverNowhere : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(LowByteCounts, TakeOverNowhere,
                         testing::Values(6, 7, 0xFF, 0x106, 0xFFFFFFFF), HexName());

TEST_P(TakeOverNowhere, IsAssertedAndTheTableStays) {
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
  }
  scribble();
  const std::vector<Expected> slots = allSlots();
  getSlotDescPidInfo(GetParam());
  EXPECT_EQ(platform.take(), (Calls{asserted(UNIT, 270, "slotNo<MAX_BOARD_NUM")}));
  hold(slots);
}

}  // namespace
