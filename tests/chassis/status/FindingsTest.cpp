#include "status/Findings.h"

#include <gtest/gtest.h>

#include "CiPlatform.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;

namespace chassis {
namespace {

constexpr std::uint32_t slot = 1;
constexpr std::uint64_t bitrate = 1504000;
constexpr std::uint16_t caSystem = 0x0500;
constexpr std::uint16_t ecmPid = 0x300;
constexpr std::uint16_t ecmPids103[] = {0x303, 0x304};

// 101 has its CA at program level, 102 has none, 103 has a CA system for each of its streams.
std::vector<ProgramMap> programs() {
  const Bytes ca = caDescriptor(caSystem, ecmPid);
  return {{101, 0x101, 0x201, {{0x02, 0x201, {}}, {0x03, 0x202, {}}}, ca, 0},
          {102, 0x102, 0x211, {{0x1B, 0x211, {}}}, {}, 0},
          {103,
           0x103,
           0x221,
           {{0x02, 0x221, caDescriptor(caSystem, ecmPids103[0])},
            {0x03, 0x222, caDescriptor(caSystem, ecmPids103[1])}},
           {},
           0}};
}

// A second of it: ECM PID 0x303 is never there.
Bytes stream() {
  StreamWriter writer;
  for (int i = 0; i < 16; ++i) {
    writer.psi(programs()).pes(0x201).pes(0x202).pes(0x211).pes(0x221).pes(0x222, 2);
    writer.payload(ecmPid).payload(ecmPids103[1]);
  }
  while (writer.packets() < 1000) {
    writer.null();
  }
  return writer.bytes();
}

class FindingsTest : public testing::Test {
 protected:
  // Program 102 is on no CAM; the module has not seen the tables.
  void insertCard() {
    chassis_.rack().cardInsert(slot, file_.path(), bitrate);
    chassis_.rack().progAssign(slot, 101, 1);
    chassis_.rack().progAssign(slot, 103, 2);
    play(3000);
    chassis_.card(slot).publishTables();
    getSlotDescPidInfo(slot);
  }
  // Chassis time alone, without a cycle of the module.
  void play(std::uint32_t ms) { clock_.advance(ms / Clock::msPerTick); }
  void measured(std::uint32_t row, std::uint8_t program, std::uint8_t first, std::uint8_t second) {
    DescStatus[slot][row].progStatus = program;
    DescStatus[slot][row].pid[0].status = first;
    DescStatus[slot][row].pid[1].status = second;
  }
  void insertCams() {
    ASSERT_EQ(ciLibLoad(), 0);
    chassis_.rack().camInsert(slot, 0, {caSystem});
    chassis_.rack().camInsert(slot, 1, {caSystem});
    play(4000);
  }
  CaPmtReply &replyOf(std::uint32_t camSlot) {
    return caPmtReplyInfo[slot * MAX_CAM_NUM + camSlot];
  }
  CardFinding examined() { return examine(chassis_, slot); }
  ProgramFinding program(std::size_t index) { return examined().programs.at(index); }
  CiDesc &table() { return *chassis_.card(slot).descTable(); }

  TemporaryFile file_{stream()};
  EventFan events_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
};

TEST_F(FindingsTest, ACardThatNeverWasHasNothing) {
  play(50);
  const CardFinding card = examined();
  EXPECT_EQ(card.slot, slot);
  EXPECT_EQ(card.takenMs, 50U);
  EXPECT_EQ(card.bitrate, 0U);
  EXPECT_EQ(card.controller, 0xFF);
  EXPECT_TRUE(card.programs.empty());
}

TEST_F(FindingsTest, ACardThatHasNotRegisteredHasNothing) {
  chassis_.card(slot).insert(file_.path(), bitrate, 0);
  EXPECT_EQ(examined().bitrate, 0U);
  EXPECT_TRUE(examined().programs.empty());
}

TEST_F(FindingsTest, ACardThatWasPulledOutHasNothing) {
  insertCard();
  pCiData[slot]->cimaxStat = 1;
  pCiData[slot]->camInsert[0] = 1;
  chassis_.rack().cardRemove(slot);
  const CardFinding card = examined();
  EXPECT_EQ(card.bitrate, 0U);
  EXPECT_EQ(card.controller, 0xFF);
  EXPECT_EQ(card.cams[0].insert, 0xFF);
  EXPECT_TRUE(card.programs.empty());
}

TEST_F(FindingsTest, FieldsAreThoseOfTheRecordAndOfTheirCam) {
  insertCard();
  CiData &record = *pCiData[slot];
  record.cimaxStat = 3;
  for (std::uint8_t c = 0; c < MAX_CAM_NUM; ++c) {
    record.camInsert[c] = static_cast<std::uint8_t>(10 + c);
    record.casidStat[c] = static_cast<std::uint8_t>(20 + c);
    record.preCamPidStat[c] = static_cast<std::uint8_t>(30 + c);
    record.descStat[c] = static_cast<std::uint8_t>(40 + c);
  }
  const CardFinding card = examined();
  EXPECT_EQ(card.bitrate, bitrate);
  EXPECT_EQ(card.controller, 3);
  for (std::size_t c = 0; c < MAX_CAM_NUM; ++c) {
    EXPECT_EQ(card.cams[c].insert, 10 + c);
    EXPECT_EQ(card.cams[c].casid, 20 + c);
    EXPECT_EQ(card.cams[c].caPids, 30 + c);
    EXPECT_EQ(card.cams[c].descrambling, 40 + c);
  }
}

TEST_F(FindingsTest, EveryProgramOfTheStreamIsThere) {
  insertCard();
  const CardFinding card = examined();
  ASSERT_EQ(card.programs.size(), 3U);
  const std::uint8_t masks[] = {1, 0, 2};
  for (std::size_t p = 0; p < 3; ++p) {
    EXPECT_EQ(card.programs[p].number, 101 + p);
    EXPECT_EQ(card.programs[p].camMask, masks[p]);
  }
  ASSERT_EQ(card.programs[0].pids.size(), 2U);
  EXPECT_EQ(card.programs[0].pids[1].pid, 0x202);
  EXPECT_EQ(card.programs[0].pids[1].streamType, 3);
  ASSERT_EQ(card.programs[1].pids.size(), 1U);
}

TEST_F(FindingsTest, EvidenceOfBothSidesIsTheCards) {
  insertCard();
  const PidFinding pid = program(2).pids[1];
  EXPECT_EQ(pid.before.packets, chassis_.card(slot).before(0x222).packets);
  EXPECT_GT(pid.before.packets, 0U);
  EXPECT_TRUE(pid.before.lastScrambled);
  EXPECT_EQ(pid.behind.packets, chassis_.card(slot).behind(0x222).packets);
  EXPECT_GT(pid.behind.packets, 0U);
}

TEST_F(FindingsTest, StatusIsThatOfTheProgramsOwnRow) {
  insertCard();
  measured(0, DESC_STAT_NO_ECM, DESC_STAT_NO_ECM, DESC_STAT_OK);
  measured(1, DESC_STAT_TECHNICAL, DESC_STAT_OK, DESC_STAT_TECHNICAL);
  const ProgramFinding first = program(0);
  EXPECT_EQ(first.status, DESC_STAT_NO_ECM);
  EXPECT_EQ(first.pids[0].status, DESC_STAT_NO_ECM);
  EXPECT_EQ(first.pids[1].status, DESC_STAT_OK);
  const ProgramFinding third = program(2);
  EXPECT_EQ(third.status, DESC_STAT_TECHNICAL);
  EXPECT_EQ(third.pids[0].status, DESC_STAT_OK);
  EXPECT_EQ(third.pids[1].status, DESC_STAT_TECHNICAL);
  EXPECT_EQ(program(1).status, DESC_STAT_UNKNOWN);
}

// Until the module has taken a new table over, a row may be another program's.
TEST_F(FindingsTest, ARowOfOtherPidsCountsForNothing) {
  insertCard();
  measured(0, DESC_STAT_NO_ECM, DESC_STAT_NO_ECM, DESC_STAT_NO_ECM);
  DescStatus[slot][0].pid[1].pid = 0x1111;
  const ProgramFinding finding = program(0);
  EXPECT_EQ(finding.status, DESC_STAT_UNKNOWN);
  EXPECT_EQ(finding.pids[0].status, DESC_STAT_UNKNOWN);
  EXPECT_EQ(finding.pids[1].status, DESC_STAT_UNKNOWN);
}

TEST_F(FindingsTest, StreamsThatTheTableHasNoRoomForAreLeftOut) {
  insertCard();
  table().prog[0].eleNum = 1;
  EXPECT_EQ(program(0).pids.size(), 1U);
  table().prog[0].eleNum = 3;
  EXPECT_EQ(program(0).pids.size(), 2U);
}

TEST_F(FindingsTest, EcmPidsAreThoseOfTheProgramsLevel) {
  insertCard();
  const ProgramFinding first = program(0);
  for (const PidFinding &pid : first.pids) {
    ASSERT_EQ(pid.ecms.size(), 1U);
    EXPECT_EQ(pid.ecms[0].pid, ecmPid);
    EXPECT_TRUE(pid.ecms[0].present);
    EXPECT_EQ(pid.ecms[0].evidence.packets, chassis_.card(slot).before(ecmPid).packets);
  }
  EXPECT_TRUE(program(1).pids[0].ecms.empty());
  const ProgramFinding third = program(2);
  for (std::size_t e = 0; e < 2; ++e) {
    ASSERT_EQ(third.pids[e].ecms.size(), 1U);
    EXPECT_EQ(third.pids[e].ecms[0].pid, ecmPids103[e]);
    EXPECT_EQ(third.pids[e].ecms[0].present, e == 1);
  }
}

// What a driver writes into a list that does not apply is not read.
TEST_F(FindingsTest, ListsThatDoNotApplyAreNotRead) {
  insertCard();
  CiDescProg &entry = table().prog[0];
  entry.ele[0].caList.caNum = 1;
  entry.ele[0].caList.ca[0].ecmPid = 0x777;
  EXPECT_EQ(program(0).pids[0].ecms.at(0).pid, ecmPid);
  entry.caLevel = 3;
  EXPECT_EQ(program(0).pids[0].ecms.at(0).pid, 0x777);
  EXPECT_TRUE(program(0).pids[1].ecms.empty());
  entry.caLevel = 0;
  EXPECT_TRUE(program(0).pids[0].ecms.empty());
}

TEST_F(FindingsTest, AListIsReadToItsEndAndNotBeyond) {
  insertCard();
  CiDescCaList &list = table().prog[0].caList;
  for (std::uint16_t k = 0; k < 32; ++k) {
    list.ca[k] = {caSystem, static_cast<std::uint16_t>(0x400 + k)};
  }
  for (const std::uint16_t count : {0, 1, 31, 32}) {
    list.caNum = count;
    EXPECT_EQ(program(0).pids[0].ecms.size(), count);
  }
  EXPECT_EQ(program(0).pids[0].ecms.back().pid, 0x41F);
  list.caNum = 33;
  EXPECT_EQ(program(0).pids[0].ecms.size(), 32U);
}

TEST_F(FindingsTest, AnEcmPidIsPresentForTwoSecondsAfterItsLastPacket) {
  insertCard();
  const std::uint64_t lastMs = chassis_.card(slot).before(ecmPid).lastSeenMs;
  chassis_.rack().pidFault(slot, PidFault::Drop, ecmPid, true);
  ASSERT_GE(lastMs + presenceMs, clock_.elapsedMs());
  play(static_cast<std::uint32_t>(lastMs + presenceMs - clock_.elapsedMs()));
  EXPECT_TRUE(program(0).pids[0].ecms.at(0).present);
  play(Clock::msPerTick);
  EXPECT_FALSE(program(0).pids[0].ecms.at(0).present);
}

TEST_F(FindingsTest, AnEcmPidThatWasNeverSeenIsNotPresentAtTheStartEither) {
  chassis_.rack().cardInsert(slot, file_.path(), bitrate);
  chassis_.rack().progAssign(slot, 103, 2);
  play(1000);
  chassis_.card(slot).publishTables();
  const std::vector<PidFinding> pids = program(2).pids;
  ASSERT_EQ(pids.at(0).ecms.size(), 1U);
  EXPECT_EQ(pids[0].ecms[0].evidence.packets, 0U);
  EXPECT_FALSE(pids[0].ecms[0].present);
  ASSERT_EQ(pids.at(1).ecms.size(), 1U);
  EXPECT_TRUE(pids[1].ecms[0].present);
}

TEST_F(FindingsTest, AReplyIsTheProgramsWhereItsCaIs) {
  insertCard();
  CaPmtReply &reply = replyOf(0);
  reply.progNum = 2;
  reply.prog[0].progNum = 999;
  reply.prog[0].caEnable = 0x73;
  reply.prog[1].progNum = 101;
  reply.prog[1].caEnable = 0x71;
  const ProgramFinding finding = program(0);
  EXPECT_EQ(finding.pids[0].reply, 0x71);
  EXPECT_EQ(finding.pids[1].reply, 0x71);
  EXPECT_EQ(program(1).pids[0].reply, 0);
  EXPECT_EQ(program(2).pids[0].reply, 0);
}

TEST_F(FindingsTest, AReplyIsTheStreamsWhereItsCaIs) {
  insertCard();
  CaPmtReply &reply = replyOf(1);
  reply.progNum = 1;
  reply.prog[0].progNum = 103;
  reply.prog[0].caEnable = 0x73;
  reply.prog[0].eleNum = 1;
  reply.prog[0].ele[0] = {0x222, 0, 0x71};
  reply.prog[0].ele[1] = {0x221, 0, 0x71};
  const ProgramFinding finding = program(2);
  EXPECT_EQ(finding.pids[0].reply, 0) << "beyond the count";
  EXPECT_EQ(finding.pids[1].reply, 0x71);
}

TEST_F(FindingsTest, AReplyCountsOnlyFromACamOfTheProgram) {
  insertCard();
  for (const std::uint32_t camSlot : {0U, 1U}) {
    replyOf(camSlot).progNum = 1;
    replyOf(camSlot).prog[0].progNum = 101;
    replyOf(camSlot).prog[0].caEnable = static_cast<std::uint8_t>(0x71 + 2 * camSlot);
  }
  EXPECT_EQ(program(0).pids[0].reply, 0x71);
  table().prog[0].camMask = 2;
  EXPECT_EQ(program(0).pids[0].reply, 0x73);
  table().prog[0].camMask = 3;
  EXPECT_EQ(program(0).pids[0].reply, 0x71);
  replyOf(0).progNum = 0;
  EXPECT_EQ(program(0).pids[0].reply, 0x73) << "the one that has none leaves it to the other";
}

TEST_F(FindingsTest, ARecordOfRepliesIsReadToItsEndAndNotBeyond) {
  insertCard();
  CaPmtReply &reply = replyOf(0);
  reply.prog[31].progNum = 101;
  reply.prog[31].caEnable = 0x71;
  reply.progNum = 31;
  EXPECT_EQ(program(0).pids[0].reply, 0);
  reply.progNum = 32;
  EXPECT_EQ(program(0).pids[0].reply, 0x71);
  reply.prog[31].progNum = 0;
  replyOf(1).progNum = 101;  // what follows in memory
  replyOf(1).reserved = 0x7171;
  reply.progNum = 33;
  EXPECT_EQ(program(0).pids[0].reply, 0);
}

TEST_F(FindingsTest, AReplysStreamsAreReadToTheirEndAndNotBeyond) {
  insertCard();
  CaPmtReplyProg &reply = replyOf(1).prog[0];
  replyOf(1).progNum = 1;
  reply.progNum = 103;
  reply.ele[31] = {0x221, 0, 0x71};
  reply.eleNum = 31;
  EXPECT_EQ(program(2).pids[0].reply, 0);
  reply.eleNum = 32;
  EXPECT_EQ(program(2).pids[0].reply, 0x71);
}

TEST_F(FindingsTest, ClearIsAProgramThatACamHasWithoutAnyCa) {
  insertCard();
  EXPECT_FALSE(program(1).clear) << "no CAM has it";
  chassis_.rack().progAssign(slot, 102, 3);
  chassis_.card(slot).publishTables();
  const CardFinding card = examined();
  EXPECT_FALSE(card.programs[0].clear);
  EXPECT_TRUE(card.programs[1].clear);
  EXPECT_FALSE(card.programs[2].clear);
  for (const CamFinding &cam : card.cams) {
    EXPECT_EQ(cam.programs, 2U);
    EXPECT_EQ(cam.clearPrograms, 1U);
  }
}

TEST_F(FindingsTest, ACaPmtIsAsOldAsTheLastThatAnyOfAProgramsCamsGot) {
  insertCard();
  insertCams();
  chassis_.rack().progAssign(slot, 102, 3);
  chassis_.card(slot).publishTables();
  EXPECT_EQ(examined().cams[0].caPmtAgeMs, std::nullopt);
  EXPECT_EQ(program(1).caPmtAgeMs, std::nullopt);
  ASSERT_GT(caPMTSend(slot, 1, caSystem, 0, 0), 0);
  play(300);
  EXPECT_EQ(program(1).caPmtAgeMs, 300U);
  ASSERT_GT(caPMTSend(slot, 0, caSystem, 0, 0), 0);
  play(200);
  const CardFinding card = examined();
  EXPECT_EQ(card.cams[0].caPmtAgeMs, 200U);
  EXPECT_EQ(card.cams[1].caPmtAgeMs, 500U);
  EXPECT_EQ(card.programs[0].caPmtAgeMs, 200U);
  EXPECT_EQ(card.programs[1].caPmtAgeMs, 200U);
  EXPECT_EQ(card.programs[2].caPmtAgeMs, 500U);
}

TEST_F(FindingsTest, AReplyIsOldOnceItsCamGotAnotherCaPmt) {
  insertCard();
  insertCams();
  const auto old = [this] { return program(0).pids[0].replyOld; };
  ASSERT_GT(caPMTSend(slot, 0, caSystem, 0, 0), 0);
  ASSERT_GT(caPMTSend(slot, 0, caSystem, 0, 3), 0);
  play(500);
  ASSERT_NE(program(0).pids[0].reply, 0);
  EXPECT_FALSE(old());
  ASSERT_GT(caPMTSend(slot, 1, caSystem, 0, 0), 0);
  EXPECT_FALSE(old()) << "another CAM's";
  ASSERT_GT(caPMTSend(slot, 0, caSystem, 0, 0), 0);
  EXPECT_TRUE(old());
}

EcmFinding ecm(std::uint64_t packets, bool present, std::uint64_t ccErrors) {
  EcmFinding finding;
  finding.pid = 0x1FFE;
  finding.present = present;
  finding.evidence.packets = packets;
  finding.evidence.ccErrors = ccErrors;
  finding.evidence.lastSeenMs = 4000;
  return finding;
}

TEST(FindingsWords, AnEcmPidIsNamedWithWhatWasSeenOfIt) {
  const std::string never = ecmText(ecm(0, false, 0), 6500);
  const std::string absent = ecmText(ecm(1, false, 3), 6500);
  const std::string present = ecmText(ecm(1, true, 1), 6500);
  for (const std::string &text : {never, absent, present}) {
    EXPECT_NE(text.find("0x1FFE"), std::string::npos) << text;
  }
  EXPECT_NE(never.find("never"), std::string::npos) << never;
  EXPECT_NE(absent.find("2.5 s"), std::string::npos) << absent;
  EXPECT_NE(present.find("1 continuity error"), std::string::npos) << present;
  EXPECT_EQ(present.find("errors"), std::string::npos) << present;
  EXPECT_NE(ecmText(ecm(1, true, 2), 6500).find("2 continuity errors"), std::string::npos);
}

TEST(FindingsWords, EvidenceIsTheReplyThenEveryEcmPid) {
  PidFinding pid;
  EXPECT_EQ(evidenceText(pid, 6500), "");
  pid.ecms = {ecm(0, false, 0), ecm(1, true, 0)};
  const std::string ecms = ecmText(pid.ecms[0], 6500) + "; " + ecmText(pid.ecms[1], 6500);
  EXPECT_EQ(evidenceText(pid, 6500), ecms);
  pid.reply = 0x71;
  const std::string text = evidenceText(pid, 6500);
  EXPECT_NE(text.find("0x71"), std::string::npos) << text;
  EXPECT_LT(text.find("0x71"), text.find(ecms)) << text;
}

}  // namespace
}  // namespace chassis
