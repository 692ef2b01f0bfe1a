// The measurement of the PIDs that a CAM descrambles, and the causes of those that it does not.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 2;
constexpr uint32_t CAM = 0;
constexpr size_t REPLY = SLOT * MAX_CAM_NUM + CAM;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t OTHER_CAS = 0x0100;
constexpr uint16_t NUMBER = 0x12;
constexpr uint16_t PID = 0x100;
constexpr uint16_t ECM = 0x1001;
constexpr uint8_t NO_ENTITLEMENT = 0x71;
constexpr uint8_t TECHNICAL = 0x73;
const char *const UNIT = "../../CiIf_Status";
const Calls REFUSED{bbPrinted("card 3 Program 0012 NO_ENTITLEMENT\n")};
const Calls NO_CA_LEVEL{printed("getFpgaDescPidSta get ecm pid error! \n")};

Calls ecmRead(uint16_t pid) {
  char text[8];
  snprintf(text, sizeof text, "0x%x", pid);
  const std::string slotAndPid = std::string("(2, ") + text;
  return {"GetPreCAMPidExist" + slotAndPid + ")", "GetPreCAMCC" + slotAndPid + ")",
          "SetPreCAMCC" + slotAndPid + ", 0)"};
}

class Measurement : public testing::Test {
 protected:
  Measurement() {
    registerCard(SLOT);
    platform.supports(SLOT, CAM, {CAS});
  }

  void setTable(const std::vector<Program> &programs) {
    card.setTable(programs);
    getSlotDescPidInfo(SLOT);
    platform.take();
  }

  Calls measure(uint32_t camSlot = CAM) {
    getFpgaDescPidSta(SLOT, camSlot);
    return platform.take();
  }

  // What follows the reading of the table and the matching of the CA system.
  Calls classified() {
    return only(measure(),
                {"GetPreCAMPidExist", "GetPreCAMCC", "SetPreCAMCC", "printf", "bbPrintf"});
  }

  uint8_t status(size_t program, size_t stream) const {
    return DescStatus[SLOT][program].pid[stream].status;
  }
  uint8_t programStatus(size_t program) const { return DescStatus[SLOT][program].progStatus; }

  Card &card = platform.card[SLOT];
  CaPmtReply &reply = caPmtReplyInfo[REPLY];
};

// --- preconditions -------------------------------------------------------------------------------

TEST_F(Measurement, ReportsAMissingCardAndLeavesTheStatus) {
  std::memset(DescStatus, 0x5A, sizeof DescStatus);
  DescProgStat before[MAX_BOARD_NUM][32];
  std::memcpy(before, DescStatus, sizeof DescStatus);
  getFpgaDescPidSta(3, 0);
  EXPECT_EQ(platform.take(), (Calls{asserted(UNIT, 458, "pCiData[slotNo]")}));
  EXPECT_EQ(std::memcmp(before, DescStatus, sizeof DescStatus), 0);
}

TEST_F(Measurement, ReportsAMissingTableAndLeavesTheStatus) {
  std::memset(DescStatus, 0x5A, sizeof DescStatus);
  DescProgStat before[MAX_BOARD_NUM][32];
  std::memcpy(before, DescStatus, sizeof DescStatus);
  card.GetProgDesc = nullptr;
  EXPECT_EQ(measure(), (Calls{"GetProgDesc(2)", asserted(UNIT, 460, "pdesc")}));
  EXPECT_EQ(std::memcmp(before, DescStatus, sizeof DescStatus), 0);
}

TEST_F(Measurement, UsesTheLowByteOfTheSlot) {
  setTable({Program(NUMBER).stream(0x02, PID)});
  getFpgaDescPidSta(0xFFFFFF00 + SLOT, CAM);
  EXPECT_EQ(platform.take({"wrDesPid", "rdDescStat", "printf"}),
            (Calls{"wrDesPid(2, 0x100)", "rdDescStat(2, 1)"}));
  EXPECT_EQ(status(0, 0), DESC_STAT_OK);
}

// --- the pass over the PIDs ----------------------------------------------------------------------

TEST_F(Measurement, SelectsAndReadsEveryPidInOrder) {
  setTable({Program(1).ca(CAS, ECM).stream(0x02, 0x100).stream(0x06, 0x101),
            Program(2).stream(0x1B, 0x200)});
  EXPECT_EQ(measure(), (Calls{"GetProgDesc(2)", "GetProgDesc(2)", "ciLibGetCardIndex(2, 0)",
                              "ciLibGetInsertCard(2, 0)", "ciLibCaSysIdMatch(4, 0x500)",
                              "wrDesPid(2, 0x100)", "rdDescStat(2, 1)", "wrDesPid(2, 0x101)",
                              "rdDescStat(2, 4)", "wrDesPid(2, 0x200)", "rdDescStat(2, 1)"}));
  EXPECT_EQ(status(0, 0), DESC_STAT_OK);
  EXPECT_EQ(status(0, 1), DESC_STAT_OK);
  EXPECT_EQ(status(1, 0), DESC_STAT_OK);
  EXPECT_EQ(programStatus(0), DESC_STAT_OK);
  EXPECT_EQ(programStatus(1), DESC_STAT_OK);
}

TEST_F(Measurement, SelectsThePidsThatWereFilledIn) {
  setTable({Program(NUMBER).stream(0x02, 0x100)});
  card.setTable({Program(NUMBER).stream(0x06, 0x180)});
  EXPECT_EQ(only(measure(), {"wrDesPid", "rdDescStat"}),
            (Calls{"wrDesPid(2, 0x100)", "rdDescStat(2, 1)"}));
}

TEST_F(Measurement, MatchesTheCaSystemOnce) {
  card.rdDescStat = 5;
  setTable({Program(1).ca(CAS, ECM).streams(0x02, 0x100, 3),
            Program(2).ca(CAS, ECM).streams(0x02, 0x200, 3)});
  const Calls calls = measure();
  EXPECT_EQ(only(calls, {"ciLibGetCardIndex"}).size(), 1u);
  EXPECT_EQ(only(calls, {"ciLibCaSysIdMatch"}).size(), 1u);
  EXPECT_EQ(only(calls, {"GetProgDesc"}).size(), 2u);
}

TEST_F(Measurement, EmptyTableMeasuresNothing) {
  setTable({});
  EXPECT_EQ(only(measure(), {"wrDesPid", "rdDescStat", "printf", "bbPrintf"}), Calls{});
  EXPECT_EQ(programStatus(0), DESC_STAT_UNKNOWN);
}

TEST_F(Measurement, FullTableIsMeasuredToItsLastPid) {
  std::vector<Program> programs;
  for (uint16_t p = 0; p < 32; ++p) {
    programs.push_back(Program(p).streams(0x02, static_cast<uint16_t>(0x100 + 32 * p), 32));
  }
  setTable(programs);
  card.rdDescStat.when(0x100 + 1023, 1) = 0xFF;
  const Calls calls = measure();
  EXPECT_EQ(only(calls, {"rdDescStat"}).size(), 1024u);
  for (size_t p = 0; p < 32; ++p) {
    for (size_t e = 0; e < 32; ++e) {
      ASSERT_EQ(status(p, e), p == 31 && e == 31 ? DESC_STAT_UNKNOWN : DESC_STAT_OK) << p << e;
    }
  }
  EXPECT_EQ(programStatus(31), DESC_STAT_UNKNOWN);
  EXPECT_EQ(programStatus(30), DESC_STAT_OK);
}

TEST_F(Measurement, ProgramWithoutStreamsIsOk) {
  setTable({Program(NUMBER).ca(CAS, ECM)});
  DescStatus[SLOT][0].progStatus = DESC_STAT_SCRAMBLED;
  measure();
  EXPECT_EQ(programStatus(0), DESC_STAT_OK);
}

TEST_F(Measurement, StreamsBehindTheCountKeepTheirStatus) {
  setTable({Program(NUMBER).stream(0x02, PID)});
  measure();
  EXPECT_EQ(status(0, 0), DESC_STAT_OK);
  EXPECT_EQ(status(0, 1), DESC_STAT_UNKNOWN);
}

struct Ownership {
  uint32_t camSlot;
  Calls selected;
  std::vector<uint8_t> programStatuses;
};

std::ostream &operator<<(std::ostream &out, const Ownership &ownership) {
  return out << "CAM " << ownership.camSlot;
}

class MeasurementOfCam : public Measurement, public testing::WithParamInterface<Ownership> {};

TEST_P(MeasurementOfCam, VisitsItsOwnProgramsOnly) {
  setTable({Program(1).cams(CAM_A).stream(0x02, 0x100), Program(2).cams(CAM_B).stream(0x02, 0x200),
            Program(3).cams(BOTH_CAMS).stream(0x02, 0x300),
            Program(4).cams(NO_CAM).stream(0x02, 0x400), Program(5).cams(0xFC).stream(2, 0x500)});
  EXPECT_EQ(only(measure(GetParam().camSlot), {"wrDesPid"}), GetParam().selected);
  for (size_t p = 0; p < GetParam().programStatuses.size(); ++p) {
    EXPECT_EQ(programStatus(p), GetParam().programStatuses[p]) << p;
    EXPECT_EQ(status(p, 0), GetParam().programStatuses[p]) << p;
  }
}

INSTANTIATE_TEST_SUITE_P(Cams, MeasurementOfCam,
                         testing::Values(Ownership{0,
                                                   {"wrDesPid(2, 0x100)", "wrDesPid(2, 0x300)"},
                                                   {0xFF, 0xEE, 0xFF, 0xEE, 0xEE}},
                                         Ownership{1,
                                                   {"wrDesPid(2, 0x200)", "wrDesPid(2, 0x300)"},
                                                   {0xEE, 0xFF, 0xFF, 0xEE, 0xEE}}));

// --- one reading ---------------------------------------------------------------------------------

struct Reading {
  uint32_t value;
  uint8_t status;
  Calls calls;
};

std::ostream &operator<<(std::ostream &out, const Reading &reading) {
  return out << "reading " << reading.value;
}

class MeasurementOfReading : public Measurement, public testing::WithParamInterface<Reading> {};

TEST_P(MeasurementOfReading, LowByteDecides) {
  setTable({Program(NUMBER).ca(CAS, ECM).stream(0x02, PID)});
  card.rdDescStat = GetParam().value;
  EXPECT_EQ(classified(), GetParam().calls);
  EXPECT_EQ(status(0, 0), GetParam().status);
  EXPECT_EQ(programStatus(0), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    Values, MeasurementOfReading,
    testing::Values(Reading{0, 0xFF, {}}, Reading{0x100, 0xFF, {}}, Reading{0xFFFFFF00, 0xFF, {}},
                    Reading{0xFF, 0xEE, {printed("read pid:0x100 desc status error!!\n")}},
                    Reading{0x1FF, 0xEE, {printed("read pid:0x100 desc status error!!\n")}},
                    Reading{1, 0x10, ecmRead(ECM)}, Reading{5, 0x10, ecmRead(ECM)},
                    Reading{0xFE, 0x10, ecmRead(ECM)}, Reading{0x105, 0x10, ecmRead(ECM)}));

TEST_F(Measurement, GoesOnAfterAnUnreadablePid) {
  setTable({Program(NUMBER).stream(0x02, 0x100).stream(0x02, 0x101)});
  card.rdDescStat.when(0x100, 1) = 0xFF;
  measure();
  EXPECT_EQ(status(0, 0), DESC_STAT_UNKNOWN);
  EXPECT_EQ(status(0, 1), DESC_STAT_OK);
}

TEST(MeasurementWithoutAccessor, UnreachableReadingCountsAsDescrambled) {
  registerCard(SLOT, {55});
  platform.card[SLOT].setTable({Program(NUMBER).stream(0x02, PID)});
  getFpgaDescPidSta(SLOT, CAM);
  EXPECT_EQ(platform.take({"printf"}), (Calls{printed("pcidata[2]->rdDescStat == NULL!! \n")}));
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].status, DESC_STAT_OK);
}

TEST(MeasurementWithoutAccessor, ReadsThoughItCannotSelect) {
  registerCard(SLOT, {54});
  platform.card[SLOT].setTable({Program(NUMBER).stream(0x02, PID)});
  getSlotDescPidInfo(SLOT);
  platform.take();
  platform.card[SLOT].rdDescStat = 0xFF;
  getFpgaDescPidSta(SLOT, CAM);
  EXPECT_EQ(anyLine(platform.take({"printf", "rdDescStat"})),
            (Calls{asserted("../../CiIf_fpga", "pCiData[slotNo]->wrDesPid"), "rdDescStat(2, 1)",
                   printed("read pid:0x100 desc status error!!\n")}));
}

// --- the status of a program ---------------------------------------------------------------------

// A program whose stream k ends with the k-th status.
class ProgramStatus : public Measurement, public testing::WithParamInterface<std::vector<uint8_t>> {
 protected:
  void prepare(uint16_t index, uint8_t wanted) {
    const uint16_t pid = static_cast<uint16_t>(PID + index);
    const uint16_t ecm = static_cast<uint16_t>(ECM + index);
    static const std::map<uint8_t, uint32_t> readings{{0xFF, 0}, {0xEE, 0xFF}};
    const auto reading = readings.find(wanted);
    card.rdDescStat.when(pid, 1) = reading == readings.end() ? 5 : reading->second;
    card.GetPreCAMPidExist.when(ecm) = wanted != DESC_STAT_NO_ECM;
    card.GetPreCAMCC.when(ecm) = wanted == DESC_STAT_ECM_CC;
    program.stream(0x02, pid).streamCa(CAS, ecm);
    static const std::map<uint8_t, uint8_t> enables{{0x20, NO_ENTITLEMENT}, {0x21, TECHNICAL}};
    const auto enable = enables.find(wanted);
    reply.prog[0].ele[index] = {pid, 0, enable == enables.end() ? uint8_t{1} : enable->second};
  }

  Program program{NUMBER};
};

TEST_P(ProgramStatus, IsTheSmallestOfItsPids) {
  const std::vector<uint8_t> &wanted = GetParam();
  reply.progNum = 1;
  reply.prog[0].progNum = NUMBER;
  reply.prog[0].eleNum = static_cast<uint8_t>(wanted.size());
  for (size_t k = 0; k < wanted.size(); ++k) {
    prepare(static_cast<uint16_t>(k), wanted[k]);
  }
  setTable({program});
  measure();
  for (size_t k = 0; k < wanted.size(); ++k) {
    EXPECT_EQ(status(0, k), wanted[k]) << k;
  }
  EXPECT_EQ(programStatus(0), *std::min_element(wanted.begin(), wanted.end()));
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, ProgramStatus,
    testing::Values(std::vector<uint8_t>{0xFF, 0x10}, std::vector<uint8_t>{0x10, 0xFF},
                    std::vector<uint8_t>{0xFF, 0xFF, 0xFF}, std::vector<uint8_t>{0xFF, 0xEE, 0xFF},
                    std::vector<uint8_t>{0xEE, 0x40}, std::vector<uint8_t>{0x40, 0x30, 0xEE},
                    std::vector<uint8_t>{0x30, 0x21, 0x40}, std::vector<uint8_t>{0x21, 0x20, 0x30},
                    std::vector<uint8_t>{0x20, 0x10, 0x21}, std::vector<uint8_t>{0x20, 0x20},
                    std::vector<uint8_t>{0xFF, 0xEE, 0x40, 0x30, 0x21, 0x20, 0x10}));

// What a program's status is while its PIDs are read: another task may look at any time.
std::vector<uint8_t> seenStatuses;
std::vector<uint32_t> readings;

uint32_t readingWithALook(uint32_t slotNo, uint32_t) {
  seenStatuses.push_back(DescStatus[slotNo][0].progStatus);
  return readings.at(seenStatuses.size() - 1);
}

TEST_F(Measurement, ProgramStatusFollowsItsPidsOneByOne) {
  setTable({Program(NUMBER).ca(CAS, ECM).streams(0x02, 0x100, 4)});
  DescStatus[SLOT][0].progStatus = DESC_STAT_NO_ENTITLEMENT;
  readings = {0, 0xFF, 5, 0};
  pCiData[SLOT]->rdDescStat = readingWithALook;
  measure();
  EXPECT_EQ(seenStatuses, (std::vector<uint8_t>{0xFF, 0xFF, 0xEE, 0x10}));
  EXPECT_EQ(programStatus(0), DESC_STAT_SCRAMBLED);
}

// --- the CAM's answer ----------------------------------------------------------------------------

// A reply of one program with one stream.
struct Answered {
  uint16_t caLevel;
  uint8_t programEnable;
  uint8_t streamEnable;
  uint8_t status;
  Calls calls;
};

std::ostream &operator<<(std::ostream &out, const Answered &answered) {
  return out << "level " << answered.caLevel << " program " << +answered.programEnable << " stream "
             << +answered.streamEnable;
}

class CamsAnswer : public Measurement, public testing::WithParamInterface<Answered> {};

TEST_P(CamsAnswer, IsReadAtTheLevelOfTheProgram) {
  const Answered &answered = GetParam();
  setTable({Program(NUMBER)
                .ca(CAS, ECM)
                .stream(0x02, PID)
                .streamCa(CAS, ECM + 1)
                .level(answered.caLevel)});
  card.rdDescStat = 5;
  reply.progNum = 1;
  reply.prog[0] = {NUMBER, answered.programEnable, {0x71, 0x71}, 1, {}};
  reply.prog[0].ele[0] = {PID, 0x71, answered.streamEnable};
  EXPECT_EQ(classified(), answered.calls);
  EXPECT_EQ(status(0, 0), answered.status);
  EXPECT_EQ(programStatus(0), answered.status);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, CamsAnswer,
    testing::Values(
        Answered{1, 0x71, 0x01, 0x20, REFUSED}, Answered{1, 0x73, 0x71, 0x21, {}},
        Answered{1, 0x01, 0x71, 0x10, ecmRead(ECM)}, Answered{2, 0x01, 0x71, 0x20, REFUSED},
        Answered{2, 0x71, 0x73, 0x21, {}}, Answered{2, 0x71, 0x01, 0x10, ecmRead(ECM + 1)},
        Answered{3, 0x73, 0x71, 0x20, REFUSED}, Answered{3, 0x71, 0x73, 0x21, {}},
        Answered{3, 0x71, 0x01, 0x10, ecmRead(ECM + 1)}, Answered{0, 0x71, 0x71, 0x30, NO_CA_LEVEL},
        Answered{0xFFFC, 0x73, 0x73, 0x30, NO_CA_LEVEL},
        Answered{0xFFFD, 0x71, 0x01, 0x20, REFUSED}, Answered{0xFFFE, 0x01, 0x71, 0x20, REFUSED}));

INSTANTIATE_TEST_SUITE_P(IgnoredEnables, CamsAnswer,
                         testing::Values(Answered{1, 0x00, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0x02, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0x03, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0x70, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0x72, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0x74, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0xF1, 0, 0x10, ecmRead(ECM)},
                                         Answered{1, 0xFF, 0, 0x10, ecmRead(ECM)},
                                         Answered{2, 0, 0x72, 0x10, ecmRead(ECM + 1)},
                                         Answered{2, 0, 0xFF, 0x10, ecmRead(ECM + 1)}));

class Reply : public Measurement {
 protected:
  Reply() { card.rdDescStat = 5; }

  void setProgram(uint16_t caLevel) {
    setTable({Program(NUMBER).ca(CAS, ECM).stream(0x02, PID).streamCa(CAS, ECM).level(caLevel)});
  }

  void answer(size_t entry, uint16_t number, uint8_t enable) {
    reply.prog[entry].progNum = number;
    reply.prog[entry].caEnable = enable;
  }

  void answerStream(size_t entry, size_t stream, uint16_t pid, uint8_t enable) {
    reply.prog[entry].progNum = NUMBER;
    reply.prog[entry].ele[stream] = {pid, 0, enable};
  }

  uint8_t measured() {
    measure();
    return status(0, 0);
  }
};

TEST_F(Reply, OfOtherProgramsIsSkipped) {
  setProgram(1);
  reply.progNum = 2;
  answer(0, NUMBER + 1, NO_ENTITLEMENT);
  answer(1, 0xFF00 + NUMBER, NO_ENTITLEMENT);
  EXPECT_EQ(measured(), DESC_STAT_SCRAMBLED);
}

TEST_F(Reply, LaterEntryOfTheSameProgramDecides) {
  setProgram(1);
  reply.progNum = 3;
  answer(0, NUMBER, 0x01);
  answer(1, NUMBER + 1, NO_ENTITLEMENT);
  answer(2, NUMBER, TECHNICAL);
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
}

TEST_F(Reply, FirstRefusalEndsTheWalk) {
  setProgram(1);
  reply.progNum = 2;
  answer(0, NUMBER, TECHNICAL);
  answer(1, NUMBER, NO_ENTITLEMENT);
  EXPECT_EQ(classified(), Calls{});
  EXPECT_EQ(status(0, 0), DESC_STAT_TECHNICAL);
  answer(0, NUMBER, NO_ENTITLEMENT);
  answer(1, NUMBER, TECHNICAL);
  EXPECT_EQ(classified(), REFUSED);
  EXPECT_EQ(status(0, 0), DESC_STAT_NO_ENTITLEMENT);
}

TEST_F(Reply, EntriesBehindTheCountAreNotRead) {
  setProgram(1);
  reply.progNum = 1;
  answer(0, NUMBER, 0x01);
  answer(1, NUMBER, NO_ENTITLEMENT);
  EXPECT_EQ(measured(), DESC_STAT_SCRAMBLED);
}

TEST_F(Reply, LastOf32EntriesIsRead) {
  setProgram(1);
  reply.progNum = 32;
  answer(31, NUMBER, TECHNICAL);
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
}

TEST_F(Reply, EntryBehindThe32IsTheNextRecord) {
  setProgram(1);
  reply.progNum = 33;
  CaPmtReply &next = caPmtReplyInfo[REPLY + 1];
  next.progNum = NUMBER;
  next.reserved = TECHNICAL;
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
  reply.progNum = 32;
  EXPECT_EQ(measured(), DESC_STAT_SCRAMBLED);
}

TEST_F(Reply, FirstStreamWithThePidIsTaken) {
  setProgram(2);
  reply.progNum = 1;
  reply.prog[0].eleNum = 3;
  answerStream(0, 0, PID + 1, NO_ENTITLEMENT);
  answerStream(0, 1, PID, TECHNICAL);
  answerStream(0, 2, PID, NO_ENTITLEMENT);
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
  answerStream(0, 1, PID, 0x01);
  EXPECT_EQ(measured(), DESC_STAT_SCRAMBLED);
}

TEST_F(Reply, LaterEntryOfTheProgramDecidesForTheStream) {
  setProgram(2);
  reply.progNum = 2;
  reply.prog[0].eleNum = reply.prog[1].eleNum = 1;
  answerStream(0, 0, PID, 0x01);
  answerStream(1, 0, PID, NO_ENTITLEMENT);
  EXPECT_EQ(measured(), DESC_STAT_NO_ENTITLEMENT);
}

TEST_F(Reply, IsSearchedForThePidOfTheTable) {
  setProgram(2);
  card.setTable({Program(NUMBER).stream(0x02, PID + 0x80).streamCa(CAS, ECM)});
  reply.progNum = 1;
  reply.prog[0].eleNum = 2;
  answerStream(0, 0, PID, NO_ENTITLEMENT);
  answerStream(0, 1, PID + 0x80, TECHNICAL);
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
}

// The library fills a reply when the CAM answers, be it between two PIDs of a program.
uint32_t readingWithAReply(uint32_t, uint32_t) {
  static int calls = 0;
  if (++calls == 2) {
    caPmtReplyInfo[REPLY].prog[0] = {NUMBER, TECHNICAL, {}, 0, {}};
    caPmtReplyInfo[REPLY].progNum = 1;
  }
  return 5;
}

TEST_F(Reply, ThatComesMeanwhileCountsFromThenOn) {
  setTable({Program(NUMBER).ca(CAS, ECM).streams(0x02, 0x100, 3)});
  pCiData[SLOT]->rdDescStat = readingWithAReply;
  measure();
  EXPECT_EQ(status(0, 0), DESC_STAT_SCRAMBLED);
  EXPECT_EQ(status(0, 1), DESC_STAT_TECHNICAL);
  EXPECT_EQ(status(0, 2), DESC_STAT_TECHNICAL);
}

uint32_t readingThatShortensTheReply(uint32_t, uint32_t) {
  static int calls = 0;
  if (++calls == 2) {
    caPmtReplyInfo[REPLY].progNum = 1;
  }
  return 5;
}

TEST_F(Reply, ThatGetsShorterMeanwhileCountsNoLonger) {
  setTable({Program(NUMBER).ca(CAS, ECM).streams(0x02, 0x100, 3)});
  pCiData[SLOT]->rdDescStat = readingThatShortensTheReply;
  reply.progNum = 2;
  answer(0, NUMBER, 0x01);
  answer(1, NUMBER, TECHNICAL);
  measure();
  EXPECT_EQ(status(0, 0), DESC_STAT_TECHNICAL);
  EXPECT_EQ(status(0, 1), DESC_STAT_SCRAMBLED);
  EXPECT_EQ(status(0, 2), DESC_STAT_SCRAMBLED);
}

// Without a match the entry behind the last one is taken.
class ReplyWithoutThePid : public Reply, public testing::WithParamInterface<uint8_t> {};

TEST_P(ReplyWithoutThePid, TakesTheEntryBehindTheLast) {
  setProgram(2);
  reply.progNum = 1;
  const uint8_t count = GetParam();
  reply.prog[0].progNum = NUMBER;
  reply.prog[0].eleNum = count;
  EXPECT_EQ(measured(), DESC_STAT_SCRAMBLED);
  constexpr size_t STREAMS = offsetof(CaPmtReply, prog) + offsetof(CaPmtReplyProg, ele);
  auto *bytes = reinterpret_cast<uint8_t *>(&reply);
  bytes[STREAMS + count * sizeof(CaPmtReplyElem) + offsetof(CaPmtReplyElem, caEnable)] = TECHNICAL;
  EXPECT_EQ(measured(), DESC_STAT_TECHNICAL);
}

INSTANTIATE_TEST_SUITE_P(Counts, ReplyWithoutThePid, testing::Values(0, 1, 2, 31, 32, 33, 255));

TEST_F(Reply, StreamEntriesGoOnIntoTheNextProgramEntry) {
  setProgram(2);
  reply.progNum = 1;
  reply.prog[0].progNum = NUMBER;
  reply.prog[0].eleNum = 34;
  reply.prog[1].progNum = PID;  // where the 33rd stream entry of the first program starts
  reply.prog[1].reserved[0] = NO_ENTITLEMENT;
  EXPECT_EQ(measured(), DESC_STAT_NO_ENTITLEMENT);
}

// The replies of all CAMs end behind CAM B of slot 5. The platform has bytes 0x73 there.
class LastReply : public testing::Test {
 protected:
  static constexpr uint16_t NUMBER_BEHIND = 0x7373;

  LastReply() {
    registerCard(5);
    platform.supports(5, 1, {CAS});
    platform.card[5].rdDescStat = 5;
  }

  uint8_t measured(uint16_t caLevel) {
    Program program(NUMBER_BEHIND);
    program.cams(CAM_B).ca(CAS, ECM).stream(0x02, PID).streamCa(CAS, ECM).level(caLevel);
    platform.card[5].setTable({program});
    getSlotDescPidInfo(5);
    getFpgaDescPidSta(5, 1);
    return DescStatus[5][0].pid[0].status;
  }

  CaPmtReply &reply = caPmtReplyInfo[11];
};

TEST_F(LastReply, WalkStopsWhereTheRepliesEnd) {
  reply.progNum = 0xFFFF;
  EXPECT_EQ(measured(1), DESC_STAT_SCRAMBLED);
  reply.prog[31].progNum = NUMBER_BEHIND;
  reply.prog[31].caEnable = TECHNICAL;
  EXPECT_EQ(measured(1), DESC_STAT_TECHNICAL);
}

TEST_F(LastReply, StreamSearchStopsWhereTheRepliesEnd) {
  reply.progNum = 0xFFFF;
  reply.prog[31].progNum = NUMBER_BEHIND;
  reply.prog[31].eleNum = 255;
  EXPECT_EQ(measured(2), DESC_STAT_SCRAMBLED);
  reply.prog[31].ele[31] = {PID, 0, TECHNICAL};
  EXPECT_EQ(measured(2), DESC_STAT_TECHNICAL);
}

TEST(ReplyOfCam, EachCamHasItsOwn) {
  for (uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    registerCard(slot);
    platform.card[slot].rdDescStat = 5;
    Program program(NUMBER);
    program.cams(BOTH_CAMS).ca(CAS, ECM).stream(0x02, PID);
    platform.card[slot].setTable({program});
    getSlotDescPidInfo(slot);
  }
  for (uint32_t refusing = 0; refusing < 12; ++refusing) {
    std::memset(caPmtReplyInfo, 0, sizeof caPmtReplyInfo);
    caPmtReplyInfo[refusing].progNum = 1;
    caPmtReplyInfo[refusing].prog[0] = {NUMBER, TECHNICAL, {}, 0, {}};
    for (uint32_t cam = 0; cam < 12; ++cam) {
      getFpgaDescPidSta(cam / 2, cam % 2);
      EXPECT_EQ(DescStatus[cam / 2][0].progStatus == DESC_STAT_TECHNICAL, cam == refusing)
          << cam << ' ' << refusing;
    }
  }
}

// --- the ECM PIDs --------------------------------------------------------------------------------

// What the card tells of the ECM PIDs 0x1001, 0x1002 ...
struct EcmState {
  std::vector<uint32_t> exists;
  std::vector<uint16_t> counts;
  uint8_t status;
};

std::ostream &operator<<(std::ostream &out, const EcmState &state) {
  return out << "exist " << testing::PrintToString(state.exists) << " count "
             << testing::PrintToString(state.counts);
}

class EcmPids : public Measurement, public testing::WithParamInterface<EcmState> {};

TEST_P(EcmPids, TellTheCause) {
  Program program(NUMBER);
  program.stream(0x02, PID);
  Calls reads;
  for (size_t k = 0; k < GetParam().exists.size(); ++k) {
    const uint16_t ecm = static_cast<uint16_t>(ECM + k);
    program.ca(CAS, ecm);
    card.GetPreCAMPidExist.when(ecm) = GetParam().exists[k];
    card.GetPreCAMCC.when(ecm) = GetParam().counts[k];
    reads = joined({reads, ecmRead(ecm)});
  }
  setTable({program});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), reads);
  EXPECT_EQ(status(0, 0), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    States, EcmPids,
    testing::Values(EcmState{{1}, {0}, 0x10}, EcmState{{1}, {3}, 0x40}, EcmState{{0}, {0}, 0x30},
                    EcmState{{0}, {3}, 0x30}, EcmState{{0, 1}, {0, 0}, 0x10},
                    EcmState{{1, 0}, {0, 7}, 0x40}, EcmState{{1, 1}, {7, 0}, 0x40},
                    EcmState{{0, 0}, {1, 1}, 0x30}, EcmState{{0x80000000}, {0xFFFF}, 0x40},
                    EcmState{{0x100}, {0x100}, 0x40},
                    EcmState{{0x80000000, 0x80000000}, {0, 0}, 0x30},
                    EcmState{{0xFFFFFFFF, 2}, {0x8000, 0x8000}, 0x40}));

TEST_F(Measurement, TakesOnlyTheEcmPidsOfTheMatchedCaSystem) {
  platform.supports(SLOT, CAM, {OTHER_CAS});
  setTable({Program(NUMBER)
                .ca(0x0600, 0x1000)
                .ca(CAS, 0x1001)
                .ca(OTHER_CAS, 0x1002)
                .ca(CAS, 0x1003)
                .stream(0x02, PID)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), joined({ecmRead(0x1001), ecmRead(0x1003)}));
}

TEST_F(Measurement, ReadsAnEcmPidOnce) {
  setTable({Program(NUMBER)
                .ca(CAS, 0x1001)
                .ca(CAS, 0x1002)
                .ca(CAS, 0x1001)
                .ca(CAS, 0x1002)
                .ca(CAS, 0x1003)
                .stream(0x02, PID)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), joined({ecmRead(0x1001), ecmRead(0x1002), ecmRead(0x1003)}));
}

TEST_F(Measurement, TakesTheStreamsOwnList) {
  setTable({Program(NUMBER)
                .ca(CAS, 0x1001)
                .stream(0x02, 0x100)
                .streamCa(CAS, 0x1002)
                .stream(0x04, 0x101)
                .streamCa(CAS, 0x1003)
                .stream(0x04, 0x102)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), joined({ecmRead(0x1002), ecmRead(0x1003)}));
  EXPECT_EQ(status(0, 1), DESC_STAT_SCRAMBLED);
  EXPECT_EQ(status(0, 2), DESC_STAT_NO_ECM);
}

TEST_F(Measurement, EcmPidsAreNotCarriedOverToTheNextPid) {
  setTable({Program(1).ca(CAS, 0x1001).stream(0x02, 0x100),
            Program(2).ca(OTHER_CAS, 0x1002).stream(0x02, 0x200)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), ecmRead(0x1001));
  EXPECT_EQ(status(0, 0), DESC_STAT_SCRAMBLED);
  EXPECT_EQ(status(1, 0), DESC_STAT_NO_ECM);
}

TEST_F(Measurement, SecondPidSeesOnlyTheErrorsSinceTheFirst) {
  setTable({Program(NUMBER).ca(CAS, ECM).streams(0x02, 0x100, 2)});
  card.rdDescStat = 5;
  card.GetPreCAMCC.then(3).then(0);
  EXPECT_EQ(classified(), joined({ecmRead(ECM), ecmRead(ECM)}));
  EXPECT_EQ(status(0, 0), DESC_STAT_ECM_CC);
  EXPECT_EQ(status(0, 1), DESC_STAT_SCRAMBLED);
  EXPECT_EQ(programStatus(0), DESC_STAT_SCRAMBLED);
}

TEST_F(Measurement, RefusedPidLeavesTheEcmCounts) {
  setTable({Program(NUMBER).ca(CAS, ECM).stream(0x02, PID)});
  card.rdDescStat = 5;
  reply.progNum = 1;
  reply.prog[0] = {NUMBER, NO_ENTITLEMENT, {}, 0, {}};
  EXPECT_EQ(classified(), REFUSED);
}

class CaListLength : public Measurement, public testing::WithParamInterface<uint16_t> {};

TEST_P(CaListLength, AtMost32EcmPidsAreExamined) {
  setTable({Program(NUMBER).level(1).stream(0x02, PID)});
  CiDescCaList &list = card.desc.prog[0].caList;
  list.caNum = GetParam();
  Calls reads;
  for (uint16_t k = 0; k < GetParam(); ++k) {
    const CiDescCa ca{CAS, static_cast<uint16_t>(ECM + k)};
    std::memcpy(reinterpret_cast<uint8_t *>(&list) + offsetof(CiDescCaList, ca) + k * sizeof ca,
                &ca, sizeof ca);
    if (k < 32) {
      reads = joined({reads, ecmRead(ca.ecmPid)});
    }
  }
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), reads);
}

INSTANTIATE_TEST_SUITE_P(Counts, CaListLength, testing::Values(0, 1, 31, 32, 33, 40));

TEST_F(Measurement, WithoutAMatchNoEcmPidIsExamined) {
  setTable({Program(NUMBER).ca(OTHER_CAS, ECM).stream(0x02, PID)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), Calls{});
  EXPECT_EQ(status(0, 0), DESC_STAT_NO_ECM);
}

TEST_F(Measurement, WithoutAMatchTheCaSystemIsZero) {
  setTable({Program(NUMBER).ca(OTHER_CAS, 0x1001).ca(0, 0x1002).stream(0x02, PID)});
  card.rdDescStat = 5;
  EXPECT_EQ(classified(), ecmRead(0x1002));
  EXPECT_EQ(status(0, 0), DESC_STAT_SCRAMBLED);
}

TEST_F(Measurement, ProgramWithoutCaLevelIsReportedForEachPid) {
  setTable({Program(NUMBER).ca(CAS, ECM).level(0).streams(0x02, 0x100, 3)});
  card.rdDescStat = 5;
  card.rdDescStat.when(0x101, 1) = 0;
  EXPECT_EQ(classified(), joined({NO_CA_LEVEL, NO_CA_LEVEL}));
  EXPECT_EQ(status(0, 0), DESC_STAT_NO_ECM);
  EXPECT_EQ(status(0, 1), DESC_STAT_OK);
  EXPECT_EQ(status(0, 2), DESC_STAT_NO_ECM);
}

// --- the list on the console ---------------------------------------------------------------------

TEST(PidList, ReportsAMissingCardAndAMissingTable) {
  printDesSta(SLOT);
  EXPECT_EQ(platform.take(), (Calls{asserted(UNIT, 639, "pCiData[slotNo]")}));
  registerCard(SLOT);
  platform.card[SLOT].GetProgDesc = nullptr;
  printDesSta(SLOT);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(2)", asserted(UNIT, 641, "pdesc")}));
}

TEST_F(Measurement, PidListShowsEveryProgramWithTheRawReading) {
  setTable({Program(0x11).cams(CAM_A).stream(0x02, 0x100).stream(0x06, 0x101),
            Program(0x12).cams(NO_CAM).stream(0x02, 0x200), Program(0x13).cams(CAM_B)});
  card.rdDescStat.when(0x100, 0xFF) = 0x1FE;
  card.rdDescStat.when(0x101, 0xFF) = 0;
  card.rdDescStat.when(0x1FFF, 0xFF) = 0xFF;
  DescProgStat before[32];
  std::memcpy(before, DescStatus[SLOT], sizeof before);
  printDesSta(0x100 + SLOT);
  EXPECT_EQ(
      platform.take(),
      (Calls{
          "GetProgDesc(2)", printed("card 3 prog_num 0x11 :\n"), "wrDesPid(2, 0x100)",
          "rdDescStat(2, 255)", printed("    pid=0x100,type=0x1 value=254 \n"),
          "wrDesPid(2, 0x101)", "rdDescStat(2, 255)", printed("    pid=0x101,type=0x4 value=0 \n"),
          printed("card 3 prog_num 0x12 :\n"), "wrDesPid(2, 0x1fff)", "rdDescStat(2, 255)",
          printed("    pid=0x1fff,type=0x0 value=255 \n"), printed("card 3 prog_num 0x13 :\n")}));
  EXPECT_EQ(std::memcmp(before, DescStatus[SLOT], sizeof before), 0);
}

}  // namespace
