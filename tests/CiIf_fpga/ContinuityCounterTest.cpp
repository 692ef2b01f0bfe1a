// Clearing and showing the continuity counts of every supervised PID of a card.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 4;
constexpr char UNIT[] = "../../CiIf_fpga";

// What a command calls for one PID whose counts are 0.
Calls cleared(uint32_t slotNo, uint32_t pid) {
  const std::string arguments = "(" + std::to_string(slotNo) + ", " + hexName(pid) + ", 0)";
  return {"SetPreCAMCC" + arguments, "SetCAMCC" + arguments,
          printed("PID " + hexName(pid) + " clr cc!!\n")};
}

Calls shown(uint32_t slotNo, uint32_t pid) {
  const std::string arguments = "(" + std::to_string(slotNo) + ", " + hexName(pid) + ")";
  return {"GetPreCAMCC" + arguments, "GetCAMCC" + arguments,
          printed("PID " + hexName(pid) + " Pre_CC = 0,CAM_CC = 0 \n")};
}

struct Command {
  const char *name;
  void (*run)(uint32_t slotNo);
  Calls (*calls)(uint32_t slotNo, uint32_t pid);
};

std::ostream &operator<<(std::ostream &out, const Command &command) {
  return out << command.name;
}

class ContinuityCounters : public testing::TestWithParam<Command> {
 protected:
  ContinuityCounters() { registerCard(SLOT); }

  void expectWalk(uint32_t slotNo, const std::vector<uint32_t> &pids) const {
    GetParam().run(slotNo);
    Calls expected = {"GetProgDesc(" + std::to_string(slotNo) + ")"};
    for (uint32_t pid : pids) {
      const Calls calls = GetParam().calls(slotNo, pid);
      expected.insert(expected.end(), calls.begin(), calls.end());
    }
    EXPECT_EQ(platform.take(), expected);
  }

  Card &card = platform.card[SLOT];
};

INSTANTIATE_TEST_SUITE_P(Commands, ContinuityCounters,
                         testing::Values(Command{"Clear", ClrAllDescCC, cleared},
                                         Command{"Show", CheckDescCC, shown}),
                         ItsName());

TEST_P(ContinuityCounters, OfTheStatusTable) {
  card.setTable({Program(1).stream(2, 0x100).stream(4, 0x101), Program(2).stream(2, 0x200)});
  DescStatus[SLOT][0].pid[0].pid = 0x1ABC;
  DescStatus[SLOT][0].pid[1].pid = 0;
  DescStatus[SLOT][0].pid[2].pid = 0x300;
  DescStatus[SLOT][1].pid[0].pid = 0xFFFF;
  DescStatus[SLOT][2].pid[0].pid = 0x301;
  expectWalk(SLOT, {0x1ABC, 0, 0xFFFF});
}

TEST_P(ContinuityCounters, OfAStatusTableNeverFilled) {
  card.setTable({Program(1).stream(2, 0x100).stream(4, 0x101)});
  expectWalk(SLOT, {0, 0});
}

TEST_P(ContinuityCounters, OfAllCamsInTheOrderOfTheTable) {
  card.setTable({Program(1).cams(CAM_B).stream(2, 0x300).stream(4, 0x100),
                 Program(2).cams(CAM_A).stream(2, 0x200), Program(3).cams(BOTH_CAMS),
                 Program(4).cams(NO_CAM).stream(2, 0x400),
                 Program(5).cams(BOTH_CAMS).stream(2, 0x300)});
  getSlotDescPidInfo(SLOT);
  platform.take();
  expectWalk(SLOT, {0x300, 0x100, 0x200, 0x1FFF, 0x300});
}

TEST_P(ContinuityCounters, OfNoProgram) {
  expectWalk(SLOT, {});
  card.setTable({Program(1), Program(2)});
  expectWalk(SLOT, {});
}

TEST_P(ContinuityCounters, OfAFullTable) {
  std::vector<Program> programs;
  std::vector<uint32_t> pids;
  for (uint16_t i = 0; i < 32; ++i) {
    programs.push_back(Program(i).streams(2, static_cast<uint16_t>(0x1000 + 32 * i), 32));
    for (uint32_t e = 0; e < 32; ++e) {
      pids.push_back(0x1000 + 32 * i + e);
    }
  }
  card.setTable(programs);
  getSlotDescPidInfo(SLOT);
  platform.take();
  expectWalk(SLOT, pids);
}

TEST_P(ContinuityCounters, OfEverySlot) {
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    if (slotNo != SLOT) {
      registerCard(slotNo);
    }
    platform.card[slotNo].setTable({Program(1).stream(2, 0)});
    DescStatus[slotNo][0].pid[0].pid = static_cast<uint16_t>(0x100 + slotNo);
  }
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    expectWalk(slotNo, {0x100 + slotNo});
  }
}

TEST_P(ContinuityCounters, GuardTheSlotTheRecordAndTheTable) {
  for (uint32_t slotNo : {6u, 0x100u + SLOT, 0xFFFFFFFFu}) {
    GetParam().run(slotNo);
    EXPECT_EQ(anyLine(platform.take()), (Calls{asserted(UNIT, "slotNo<MAX_BOARD_NUM")}));
  }
  GetParam().run(SLOT + 1);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted(UNIT, "pCiData[slotNo]")}));
  card.GetProgDesc = nullptr;
  GetParam().run(SLOT);
  EXPECT_EQ(anyLine(platform.take()), (Calls{"GetProgDesc(4)", asserted(UNIT, "pdesc")}));
}

TEST_P(ContinuityCounters, LeaveTheStatusTable) {
  card.setTable({Program(1).stream(2, 0x100)});
  getSlotDescPidInfo(SLOT);
  GetParam().run(SLOT);
  EXPECT_EQ(DescStatus[SLOT][0].progStatus, DESC_STAT_UNKNOWN);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].pid, 0x100);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].status, DESC_STAT_UNKNOWN);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].type, DESC_PID_TYPE_AV);
}

TEST(ContinuityCountersClear, GoesOnWithoutTheFunctions) {
  registerCard(SLOT, {34, 44});
  platform.card[SLOT].setTable({Program(1).streams(2, 0x100, 2)});
  getSlotDescPidInfo(SLOT);
  platform.take();
  ClrAllDescCC(SLOT);
  const std::string before = asserted(UNIT, "pCiData[slotNo]->SetPreCAMCC");
  const std::string behind = asserted(UNIT, "pCiData[slotNo]->SetCAMCC");
  EXPECT_EQ(anyLine(platform.take()),
            (Calls{"GetProgDesc(4)", before, behind, printed("PID 0x100 clr cc!!\n"), before,
                   behind, printed("PID 0x101 clr cc!!\n")}));
}

TEST(ContinuityCountersShow, PrintsBothCountsOfEveryPid) {
  registerCard(SLOT);
  Card &card = platform.card[SLOT];
  card.setTable({Program(1).streams(2, 0x100, 3)});
  card.GetPreCAMCC.when(0x100) = 1;
  card.GetCAMCC.when(0x100) = 2;
  card.GetPreCAMCC.when(0x101) = 0xFFFF;
  card.GetCAMCC.when(0x101) = 0x8000;
  card.GetCAMCC.when(0x102) = 10;
  getSlotDescPidInfo(SLOT);
  platform.take();
  CheckDescCC(SLOT);
  EXPECT_EQ(platform.take({"printf"}), (Calls{printed("PID 0x100 Pre_CC = 1,CAM_CC = 2 \n"),
                                              printed("PID 0x101 Pre_CC = 65535,CAM_CC = 32768 \n"),
                                              printed("PID 0x102 Pre_CC = 0,CAM_CC = 10 \n")}));
}

// A card without one of the functions, and a count of 7 by the other.
Calls shownWithout(uint32_t vid) {
  registerCard(SLOT, {vid});
  Card &card = platform.card[SLOT];
  card.setTable({Program(1).stream(2, 0x100)});
  card.GetPreCAMCC = 7;
  card.GetCAMCC = 7;
  getSlotDescPidInfo(SLOT);
  platform.take();
  CheckDescCC(SLOT);
  return platform.take();
}

TEST(ContinuityCountersShow, PrintsZeroForACountBeforeThatCannotBeRead) {
  EXPECT_EQ(shownWithout(35),
            (Calls{"GetProgDesc(4)", printed("pcidata[4]->GetPreCAMCC == NULL!! \n"),
                   "GetCAMCC(4, 0x100)", printed("PID 0x100 Pre_CC = 0,CAM_CC = 7 \n")}));
}

TEST(ContinuityCountersShow, PrintsZeroForACountBehindThatCannotBeRead) {
  EXPECT_EQ(shownWithout(45), (Calls{"GetProgDesc(4)", "GetPreCAMCC(4, 0x100)",
                                     printed("pcidata[4]->GetCAMCC == NULL!! \n"),
                                     printed("PID 0x100 Pre_CC = 7,CAM_CC = 0 \n")}));
}

}  // namespace
