// One step beyond a rule: neighbours of a match, entries behind a count, stamps of one cycle.
#include <gtest/gtest.h>

#include <string>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint8_t SLOT = 2;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t NUMBER = 0x12;

class ScrambledCard : public testing::Test {
 protected:
  ScrambledCard() {
    registerCard(SLOT);
    platform.supports(SLOT, 0, {CAS});
    card.rdDescStat = 5;
  }

  Calls measure(const Program &program) {
    card.setTable({program});
    return measureTable();
  }

  Calls measureTable() {
    getSlotDescPidInfo(SLOT);
    platform.take();
    getFpgaDescPidSta(SLOT, 0);
    return platform.take({"GetPreCAMPidExist", "bbPrintf"});
  }

  Card &card = platform.card[SLOT];
};

// --- the reply -----------------------------------------------------------------------------------

class ReplyOfANeighbour : public ScrambledCard, public testing::WithParamInterface<uint16_t> {};

TEST_P(ReplyOfANeighbour, RefusesNothing) {
  CaPmtReply &reply = caPmtReplyInfo[SLOT * MAX_CAM_NUM];
  reply.progNum = 1;
  reply.prog[0].progNum = GetParam();
  reply.prog[0].caEnable = 0x71;
  measure(Program(NUMBER).ca(CAS, 0x1001).stream(0x02, 0x100));
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].status, DESC_STAT_SCRAMBLED);
}

INSTANTIATE_TEST_SUITE_P(Numbers, ReplyOfANeighbour,
                         testing::Values(0, NUMBER - 1, NUMBER + 1, 0xFFFF), HexName());

// --- ECM PIDs ------------------------------------------------------------------------------------

TEST_F(ScrambledCard, EcmPidZeroIsAPidLikeAnyOther) {
  EXPECT_EQ(measure(Program(NUMBER).ca(CAS, 0).stream(0x02, 0x100)),
            (Calls{"GetPreCAMPidExist(2, 0x0)"}));
}

TEST_F(ScrambledCard, EcmPidsMayComeInAnyOrder) {
  EXPECT_EQ(measure(Program(NUMBER)
                        .ca(CAS, 0x1003)
                        .ca(CAS, 0x1001)
                        .ca(CAS, 0x1002)
                        .ca(CAS, 0x1003)
                        .stream(0x02, 0x100)),
            (Calls{"GetPreCAMPidExist(2, 0x1003)", "GetPreCAMPidExist(2, 0x1001)",
                   "GetPreCAMPidExist(2, 0x1002)"}));
}

TEST_F(ScrambledCard, EntriesBehindTheCountAreNotRead) {
  card.setTable({Program(NUMBER).ca(CAS, 0x1001).stream(0x02, 0x100)});
  card.desc.prog[0].caList.ca[1] = {CAS, 0x1002};
  EXPECT_EQ(measureTable(), (Calls{"GetPreCAMPidExist(2, 0x1001)"}));
}

// --- stamps --------------------------------------------------------------------------------------

constexpr uint8_t ALL = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;
constexpr uint8_t SOME = DESC_SUM_PART | DESC_SUM_SCRAMBLED;

// What a cycle stamps, and the next one reads first. The clock moves between two stamps.
struct Stamps {
  const char *name;
  uint8_t stamping;
  uint8_t reading;
  uint32_t stamp;
};

class StampsOfOneCycle : public testing::TestWithParam<Stamps> {};

TEST_P(StampsOfOneCycle, AreTakenInTurn) {
  registerCard(SLOT);
  platform.now = 20000;
  platform.clockStep = 1;
  pCiData[SLOT]->descStat[0] = GetParam().stamping;
  camReset(SLOT, 0);
  platform.clockStep = 0;
  platform.take();
  pCiData[SLOT]->descStat[0] = GetParam().reading;
  camReset(SLOT, 0);
  const Calls read = platform.take({"get_inc_of_time"});
  ASSERT_FALSE(read.empty());
  EXPECT_EQ(read.front(), "get_inc_of_time(" + std::to_string(GetParam().stamp) + ")");
}

INSTANTIATE_TEST_SUITE_P(Faults, StampsOfOneCycle,
                         testing::Values(Stamps{"AllThenSome", ALL, SOME, 20001},
                                         Stamps{"SomeThenAll", SOME, ALL, 20001},
                                         Stamps{"NoneThenSome", DESC_SUM_ALL, SOME, 20000},
                                         Stamps{"NoneThenAll", DESC_SUM_ALL, ALL, 20001}),
                         ItsName());

}  // namespace
