// The CA PMT of a CAM: what is checked, what is called, and the records byte for byte.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "CiIf.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 2;
constexpr uint32_t CAM = 0;
constexpr size_t INDEX = SLOT * MAX_CAM_NUM + CAM;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t OTHER_CAS = 0x0100;
constexpr uint16_t UNSUPPORTED = 0x0666;
constexpr uint16_t CLEARED_CAS = 0x0B00;
constexpr uint16_t ALL_PROGRAMS = 0;
enum Flag : uint8_t { FULL, ADD, QUERY, QUERY_ALL };

std::vector<uint8_t> counting(size_t count, uint8_t first) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < count; ++i) {
    bytes.push_back(static_cast<uint8_t>(first + i));
  }
  return bytes;
}

// A record as bytes by their offsets.
class Bytes {
 public:
  Bytes() : bytes_(16046, 0) {}
  explicit Bytes(const CaPmtProg &record) : Bytes() {
    std::memcpy(bytes_.data(), &record, sizeof record);
  }

  Bytes &u8(size_t offset, unsigned value) {
    bytes_.at(offset) = static_cast<uint8_t>(value);
    return *this;
  }
  Bytes &u16(size_t offset, unsigned value) {
    return u8(offset, value & 0xFF).u8(offset + 1, value >> 8);
  }
  Bytes &area(size_t offset, const std::vector<uint8_t> &bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) {
      u8(offset + i, bytes[i]);
    }
    return *this;
  }

  // What differs, as "offset: this other".
  std::string against(const Bytes &other) const {
    std::string differences;
    for (size_t i = 0; i < bytes_.size(); ++i) {
      if (bytes_[i] != other.bytes_[i]) {
        differences += std::to_string(i) + ": " + std::to_string(bytes_[i]) + ' ' +
                       std::to_string(other.bytes_[i]) + '\n';
      }
    }
    return differences;
  }

 private:
  std::vector<uint8_t> bytes_;
};

constexpr size_t stream(size_t index) {
  return 494 + 486 * index;
}

class CaPmt : public testing::Test {
 protected:
  CaPmt() {
    registerCard(SLOT);
    platform.supports(SLOT, CAM, {CAS, OTHER_CAS});
  }

  static int32_t send(uint8_t flag = FULL, uint16_t number = ALL_PROGRAMS, uint32_t cam = CAM,
                      uint32_t slot = SLOT) {
    platform.take();
    return caPMTSend(slot, cam, CLEARED_CAS, number, flag);
  }

  static const std::vector<CaPmtProg> &records() { return platform.sent.back().records; }

  // What one program gives.
  CaPmtProg built(const Program &program, uint8_t flag = FULL) {
    card.setTable({program});
    send(flag);
    EXPECT_EQ(records().size(), 1u);
    return records().at(0);
  }

  static std::vector<uint16_t> numbersSent() {
    std::vector<uint16_t> numbers;
    for (const CaPmtProg &record : records()) {
      numbers.push_back(record.progNum);
    }
    return numbers;
  }

  static uint8_t nextVersion() {
    send();
    return records().at(0).version;
  }

  Card &card = platform.card[SLOT];
};

// --- what is refused -----------------------------------------------------------------------------

struct Refused {
  uint32_t slotNo;
  uint32_t camSlot;
  std::string text;
};

std::ostream &operator<<(std::ostream &out, const Refused &refused) {
  return out << "slot " << refused.slotNo << " CAM " << refused.camSlot;
}

class BadArgument : public CaPmt, public testing::WithParamInterface<Refused> {};

TEST_P(BadArgument, IsReportedAndNothingIsDone) {
  card.setTable({Program(1)});
  for (uint8_t flag : {FULL, ADD, QUERY, QUERY_ALL}) {
    EXPECT_EQ(send(flag, ALL_PROGRAMS, GetParam().camSlot, GetParam().slotNo), 0);
    EXPECT_EQ(platform.take(), (Calls{printed(GetParam().text)}));
  }
  EXPECT_EQ(nextVersion(), 1);
}

INSTANTIATE_TEST_SUITE_P(Arguments, BadArgument,
                         testing::Values(Refused{6, 0, "slotNo == 6 ,overflow!! \n"},
                                         Refused{0x102, 0, "slotNo == 258 ,overflow!! \n"},
                                         Refused{0xFFFFFFFF, 5,
                                                 "slotNo == 4294967295 ,overflow!! \n"},
                                         Refused{2, 2, "camSlot == 2 ,overflow!! \n"},
                                         Refused{2, 0x100, "camSlot == 256 ,overflow!! \n"},
                                         Refused{3, 2, "camSlot == 2 ,overflow!! \n"},
                                         Refused{3, 1, "pcidata[3] == NULL!! \n"},
                                         Refused{5, 0, "pcidata[5] == NULL!! \n"},
                                         Refused{0, 0, "pcidata[0] == NULL!! \n"}));

TEST_F(CaPmt, MissingTableIsReportedAndTheReplyKept) {
  card.GetProgDesc = nullptr;
  caPmtReplyInfo[INDEX].progNum = 7;
  EXPECT_EQ(send(QUERY), 0);
  EXPECT_EQ(
      anyLine(platform.take()),
      (Calls{"GetProgDesc(2)", printed("file[../../CiIf_capmt] line[N] pdesc == NULL!! \n")}));
  EXPECT_EQ(caPmtReplyInfo[INDEX].progNum, 7);
}

struct LibraryIndex {
  uint32_t value;
  uint32_t lowByte;
  bool valid;
};

std::ostream &operator<<(std::ostream &out, const LibraryIndex &index) {
  return out << "index " << index.value;
}

class IndexOfCam : public CaPmt, public testing::WithParamInterface<LibraryIndex> {};

TEST_P(IndexOfCam, IsCheckedByItsLowByte) {
  card.setTable({Program(1).ca(CAS, 0x1001)});
  platform.ciLibGetCardIndex = GetParam().value;
  const std::string index = std::to_string(GetParam().lowByte);
  const Calls before{"GetProgDesc(2)", "ciLibGetCardIndex(2, 0)"};
  if (GetParam().valid) {
    EXPECT_EQ(send(), 1);
    EXPECT_EQ(platform.take({"ciLibCaSysIdMatch"}),
              (Calls{"ciLibCaSysIdMatch(" + index + ", 0x500)"}));
  } else {
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(platform.take(),
              joined({before,
                      {printed("slotNo2 camNo0 caPMTSend get ci_index=" + index + " error! \n")}}));
  }
}

INSTANTIATE_TEST_SUITE_P(Indexes, IndexOfCam,
                         testing::Values(LibraryIndex{0, 0, true}, LibraryIndex{11, 11, true},
                                         LibraryIndex{12, 12, false}, LibraryIndex{255, 255, false},
                                         LibraryIndex{0x10B, 11, true},
                                         LibraryIndex{0x10C, 12, false},
                                         LibraryIndex{0xFFFFFFFF, 255, false}));

TEST_F(CaPmt, BadIndexTakesNoVersion) {
  card.setTable({Program(1)});
  platform.ciLibGetCardIndex.then(12);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(nextVersion(), 1);
}

TEST_F(CaPmt, FailedQueryStillClearsTheReply) {
  for (uint8_t flag : {QUERY, QUERY_ALL}) {
    caPmtReplyInfo[INDEX].progNum = 7;
    platform.ciLibGetCardIndex = 12;
    EXPECT_EQ(send(flag), 0);
    EXPECT_EQ(
        platform.take(),
        (Calls{"GetProgDesc(2)", printed("send CAPMT_QUERY info \n"), "ciLibGetCardIndex(2, 0)",
               printed("slotNo2 camNo0 caPMTSend get ci_index=12 error! \n")}));
    EXPECT_EQ(caPmtReplyInfo[INDEX].progNum, 0);
  }
}

// --- the calls -----------------------------------------------------------------------------------

TEST_F(CaPmt, CallsInOrder) {
  card.setTable({Program(1).ca(CAS, 1).ca(UNSUPPORTED, 2).stream(2, 3).streamCa(OTHER_CAS, 4),
                 Program(2).cams(CAM_B).ca(0x111, 5),
                 Program(3).stream(2, 6).streamCa(UNSUPPORTED, 7).streamCa(CAS, 8)});
  platform.ciLibSendCaPmt = 41;
  EXPECT_EQ(send(), 41);
  EXPECT_EQ(
      platform.take(),
      (Calls{"GetProgDesc(2)", "ciLibGetCardIndex(2, 0)", printed("card 3 cam 0 capmtVerNum=1\n"),
             "semTake(CaPmtSem, -1)", "ciLibCaSysIdMatch(4, 0x500)", "ciLibCaSysIdMatch(4, 0x666)",
             "ciLibCaSysIdMatch(4, 0x100)", "ciLibCaSysIdMatch(4, 0x666)",
             "ciLibCaSysIdMatch(4, 0x500)", "ciLibSendCaPmt(2, 0, 2)", "semGive(CaPmtSem)"}));
  EXPECT_EQ(platform.sent[0].table, CaPmtInfo);
}

TEST_F(CaPmt, CallsOfAQuery) {
  card.setTable({Program(1).cams(CAM_B)});
  for (uint8_t flag : {QUERY, QUERY_ALL}) {
    EXPECT_EQ(send(flag, ALL_PROGRAMS, 1), 1);
    EXPECT_EQ(
        platform.take(),
        (Calls{"GetProgDesc(2)", printed("send CAPMT_QUERY info \n"), "ciLibGetCardIndex(2, 1)",
               printed("card 3 cam 1 capmtVerNum=" + std::to_string(flag - 1) + "\n"),
               "semTake(CaPmtSem, -1)", "ciLibSendCaPmt(2, 1, 1)", "semGive(CaPmtSem)"}));
  }
}

TEST_F(CaPmt, SemaphoreIsHeldWhileSending) {
  card.setTable({Program(1)});
  bool held = false;
  platform.onSendCaPmt = [&] { held = !platform.isFree(CaPmtSem); };
  send();
  EXPECT_TRUE(held);
  EXPECT_TRUE(platform.isFree(CaPmtSem));
}

TEST_F(CaPmt, RecordsAreFilledUnderTheSemaphore) {
  card.setTable({Program(0x55)});
  uint16_t numberWhenTaken = 0x55;
  platform.onSemTake = [&](const std::string &, int) {
    numberWhenTaken = CaPmtInfo[0]->progNum;
    return 0;
  };
  send();
  EXPECT_NE(numberWhenTaken, 0x55);
  EXPECT_EQ(CaPmtInfo[0]->progNum, 0x55);
}

class LibraryResult : public CaPmt, public testing::WithParamInterface<int32_t> {};

TEST_P(LibraryResult, IsPassedThrough) {
  card.setTable({Program(1)});
  platform.ciLibSendCaPmt = GetParam();
  EXPECT_EQ(send(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Results, LibraryResult,
                         testing::Values(0, 1, 32, -1, INT32_MAX, INT32_MIN));

TEST_F(CaPmt, CamWithoutProgramsIsCleared) {
  card.setTable({Program(1).cams(CAM_B), Program(2).cams(NO_CAM), Program(3).cams(0xFE)});
  for (uint8_t flag : {FULL, ADD}) {
    EXPECT_EQ(send(flag), 0);
    EXPECT_EQ(platform.take(),
              (Calls{"GetProgDesc(2)", "ciLibGetCardIndex(2, 0)", "qm_ci_ca_pmt_clr(4, 0xb00)"}));
  }
  for (uint8_t flag : {QUERY, QUERY_ALL}) {
    EXPECT_EQ(send(flag, 1), 0);
    EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(2)", printed("send CAPMT_QUERY info \n"),
                                      "ciLibGetCardIndex(2, 0)", "qm_ci_ca_pmt_clr(4, 0xb00)"}));
  }
  card.setTable({Program(1)});
  EXPECT_EQ(nextVersion(), 1);
}

TEST_F(CaPmt, TableIsLeftAsItIs) {
  card.setTable({Program(1).ca(CAS, 0x1001, {1, 2}).stream(2, 0x100).streamCa(CAS, 0x1002, {3})});
  const CiDesc before = card.desc;
  for (uint8_t flag : {FULL, ADD, QUERY, QUERY_ALL}) {
    send(flag);
  }
  EXPECT_EQ(std::memcmp(&before, &card.desc, sizeof before), 0);
}

// --- the version ---------------------------------------------------------------------------------

TEST_F(CaPmt, VersionRunsFrom1To30AndStartsAgain) {
  card.setTable({Program(1), Program(2)});
  for (int sent = 0; sent < 65; ++sent) {
    const int version = sent % 30 + 1;
    send();
    EXPECT_EQ(platform.take({"printf"}),
              (Calls{printed("card 3 cam 0 capmtVerNum=" + std::to_string(version) + "\n")}));
    EXPECT_EQ(records().at(0).version, version);
    EXPECT_EQ(records().at(1).version, version);
  }
}

TEST_F(CaPmt, VersionIsSharedByBothCamsAndAllKinds) {
  card.setTable({Program(1).cams(BOTH_CAMS)});
  uint8_t version = 0;
  for (uint32_t cam : {0, 1}) {
    for (uint8_t flag : {FULL, ADD, QUERY, QUERY_ALL}) {
      send(flag, ALL_PROGRAMS, cam);
      EXPECT_EQ(records().at(0).version, ++version);
    }
  }
}

TEST_F(CaPmt, EveryCardHasItsOwnVersion) {
  for (uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (slot != SLOT) {
      registerCard(slot);
    }
    platform.card[slot].setTable({Program(1)});
    for (uint32_t sent = 0; sent <= slot; ++sent) {
      send(FULL, ALL_PROGRAMS, 0, slot);
    }
  }
  for (uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    send(FULL, ALL_PROGRAMS, 0, slot);
    EXPECT_EQ(records().at(0).version, slot + 2);
    EXPECT_EQ(platform.take({"printf"}),
              (Calls{printed("card " + std::to_string(slot + 1) +
                             " cam 0 capmtVerNum=" + std::to_string(slot + 2) + "\n")}));
  }
}

TEST_F(CaPmt, CaPmtWithoutRecordsTakesAVersion) {
  card.setTable({Program(1)});
  EXPECT_EQ(send(FULL, 99), 0);
  EXPECT_EQ(platform.take({"ciLibSendCaPmt"}), (Calls{"ciLibSendCaPmt(2, 0, 0)"}));
  EXPECT_EQ(nextVersion(), 2);
}

// --- which programs ------------------------------------------------------------------------------

struct Selection {
  uint32_t camSlot;
  uint16_t number;
  std::vector<uint16_t> sent;
};

std::ostream &operator<<(std::ostream &out, const Selection &selection) {
  return out << "CAM " << selection.camSlot << " number " << selection.number;
}

class ProgramsOfCam : public CaPmt, public testing::WithParamInterface<Selection> {};

TEST_P(ProgramsOfCam, AreSentInTableOrder) {
  card.setTable({Program(5).cams(CAM_A), Program(4).cams(CAM_B), Program(3).cams(BOTH_CAMS),
                 Program(2).cams(NO_CAM), Program(5).cams(0xFD), Program(0x105).cams(CAM_A)});
  EXPECT_EQ(send(FULL, GetParam().number, GetParam().camSlot),
            static_cast<int32_t>(GetParam().sent.size()));
  EXPECT_EQ(numbersSent(), GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(Selections, ProgramsOfCam,
                         testing::Values(Selection{0, 0, {5, 3, 5, 0x105}}, Selection{1, 0, {4, 3}},
                                         Selection{0, 5, {5, 5}}, Selection{0, 0x105, {0x105}},
                                         Selection{0, 4, {}}, Selection{1, 4, {4}},
                                         Selection{1, 5, {}}, Selection{0, 2, {}},
                                         Selection{0, 77, {}}));

TEST_F(CaPmt, RecordsBehindTheLastAreLeft) {
  card.setTable({Program(1), Program(2).cams(CAM_B), Program(3)});
  const Bytes before(*CaPmtInfo[2]);
  send();
  EXPECT_EQ(CaPmtInfo[1]->progNum, 3);
  EXPECT_EQ(Bytes(*CaPmtInfo[2]).against(before), "");
}

struct ProgramCount {
  uint32_t count;
  uint32_t sent;
};

std::ostream &operator<<(std::ostream &out, const ProgramCount &count) {
  return out << count.count << " programs";
}

class CountOfPrograms : public CaPmt, public testing::WithParamInterface<ProgramCount> {};

TEST_P(CountOfPrograms, LowByteCountsUpTo32) {
  std::vector<Program> programs;
  for (uint16_t number = 1; number <= 32; ++number) {
    programs.push_back(Program(number));
  }
  card.setTable(programs);
  card.desc.descProgCnt = GetParam().count;
  EXPECT_EQ(send(), static_cast<int32_t>(GetParam().sent));
  if (GetParam().sent == 0) {
    EXPECT_EQ(platform.take({"qm_ci_ca_pmt_clr", "ciLibSendCaPmt"}),
              (Calls{"qm_ci_ca_pmt_clr(4, 0xb00)"}));
  } else {
    ASSERT_EQ(records().size(), GetParam().sent);
    for (uint16_t k = 0; k < GetParam().sent; ++k) {
      EXPECT_EQ(records()[k].progNum, k + 1);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, CountOfPrograms,
                         testing::Values(ProgramCount{0, 0}, ProgramCount{1, 1},
                                         ProgramCount{31, 31}, ProgramCount{32, 32},
                                         ProgramCount{33, 32}, ProgramCount{40, 32},
                                         ProgramCount{255, 32}, ProgramCount{256, 0},
                                         ProgramCount{257, 1}, ProgramCount{0x10000, 0},
                                         ProgramCount{0x10120, 32}));

struct StatusOfProgram {
  uint8_t status;
  bool queried;
};

std::ostream &operator<<(std::ostream &out, const StatusOfProgram &status) {
  return out << "status " << +status.status;
}

class QueriedProgram : public CaPmt, public testing::WithParamInterface<StatusOfProgram> {
 protected:
  QueriedProgram() {
    card.setTable({Program(1), Program(2), Program(3)});
    DescStatus[SLOT][0].progStatus = DESC_STAT_SCRAMBLED;
    DescStatus[SLOT][1].progStatus = GetParam().status;
    DescStatus[SLOT][2].progStatus = DESC_STAT_OK;
  }
};

TEST_P(QueriedProgram, FailsOnTheCamsSide) {
  send(QUERY);
  EXPECT_EQ(numbersSent(),
            GetParam().queried ? (std::vector<uint16_t>{1, 2}) : (std::vector<uint16_t>{1}));
}

TEST_P(QueriedProgram, StatusCountsForThisQueryOnly) {
  for (uint8_t flag : {FULL, ADD, QUERY_ALL}) {
    send(flag);
    EXPECT_EQ(numbersSent(), (std::vector<uint16_t>{1, 2, 3})) << +flag;
  }
}

INSTANTIATE_TEST_SUITE_P(Statuses, QueriedProgram,
                         testing::Values(StatusOfProgram{0x00, true}, StatusOfProgram{0x10, true},
                                         StatusOfProgram{0x20, true}, StatusOfProgram{0x21, true},
                                         StatusOfProgram{0x2F, true}, StatusOfProgram{0x30, false},
                                         StatusOfProgram{0x40, false}, StatusOfProgram{0xEE, false},
                                         StatusOfProgram{0xFF, false}));

TEST_F(CaPmt, QueryOfNoProgramIsSentAllTheSame) {
  card.setTable({Program(1), Program(2)});
  DescStatus[SLOT][0].progStatus = DESC_STAT_NO_ECM;
  DescStatus[SLOT][1].progStatus = DESC_STAT_UNKNOWN;
  EXPECT_EQ(send(QUERY), 0);
  EXPECT_EQ(platform.take({"ciLibSendCaPmt", "qm_ci_ca_pmt_clr", "semGive"}),
            (Calls{"ciLibSendCaPmt(2, 0, 0)", "semGive(CaPmtSem)"}));
  EXPECT_EQ(nextVersion(), 2);
}

TEST_F(CaPmt, QueryReadsTheStatusByTheProgramsIndexInTheTable) {
  card.setTable({Program(1).cams(CAM_B), Program(2), Program(3)});
  DescStatus[SLOT][0].progStatus = DESC_STAT_SCRAMBLED;
  DescStatus[SLOT][1].progStatus = DESC_STAT_OK;
  DescStatus[SLOT][2].progStatus = DESC_STAT_SCRAMBLED;
  send(QUERY);
  EXPECT_EQ(numbersSent(), (std::vector<uint16_t>{3}));
}

struct Clearing {
  uint8_t flag;
  bool clears;
};

std::ostream &operator<<(std::ostream &out, const Clearing &clearing) {
  return out << "flag " << +clearing.flag;
}

class ReplyRecord : public CaPmt, public testing::WithParamInterface<Clearing> {};

TEST_P(ReplyRecord, OfTheCamAloneIsClearedByAQuery) {
  card.setTable({Program(1).cams(BOTH_CAMS)});
  constexpr size_t SIZE = 4292;
  auto *bytes = reinterpret_cast<uint8_t *>(caPmtReplyInfo);
  for (size_t cam : {0, 1}) {
    std::memset(bytes, 0xA5, sizeof caPmtReplyInfo);
    send(GetParam().flag, ALL_PROGRAMS, static_cast<uint32_t>(cam));
    const size_t first = (SLOT * 2 + cam) * SIZE;
    for (size_t i = 0; i < sizeof caPmtReplyInfo; ++i) {
      const bool own = i >= first && i < first + SIZE;
      ASSERT_EQ(bytes[i], own && GetParam().clears ? 0 : 0xA5) << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Flags, ReplyRecord,
                         testing::Values(Clearing{FULL, false}, Clearing{ADD, false},
                                         Clearing{QUERY, true}, Clearing{QUERY_ALL, true}));

// --- list management and command -----------------------------------------------------------------

struct Management {
  uint8_t flag;
  uint16_t number;
  std::vector<uint16_t> programs;
  uint8_t cmdId;
  std::vector<uint8_t> listMgmt;
};

std::ostream &operator<<(std::ostream &out, const Management &management) {
  return out << "flag " << +management.flag << " number " << management.number << " of "
             << management.programs.size();
}

class ListManagement : public CaPmt, public testing::WithParamInterface<Management> {};

TEST_P(ListManagement, GoesByPositionAndFlag) {
  std::vector<Program> programs;
  for (uint16_t number : GetParam().programs) {
    programs.push_back(
        Program(number).ca(CAS, 1).stream(2, 0x100).streamCa(CAS, 2).stream(2, 0x101));
  }
  card.setTable(programs);
  send(GetParam().flag, GetParam().number);
  ASSERT_EQ(records().size(), GetParam().listMgmt.size());
  for (size_t k = 0; k < records().size(); ++k) {
    EXPECT_EQ(records()[k].listMgmt, GetParam().listMgmt[k]) << k;
    EXPECT_EQ(records()[k].cmdId, GetParam().cmdId) << k;
    EXPECT_EQ(records()[k].ele[0].cmdId, GetParam().cmdId) << k;
    EXPECT_EQ(records()[k].ele[1].cmdId, 0) << k;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Positions, ListManagement,
    testing::Values(Management{FULL, 0, {7}, 1, {3}}, Management{FULL, 7, {7}, 1, {4}},
                    Management{FULL, 0, {7, 8}, 1, {1, 2}}, Management{FULL, 8, {7, 8, 9}, 1, {4}},
                    Management{FULL, 0, {7, 8, 9}, 1, {1, 0, 2}},
                    Management{FULL, 0, {7, 8, 9, 10}, 1, {1, 0, 0, 2}},
                    Management{FULL, 7, {7, 8, 7}, 1, {1, 2}},
                    Management{FULL, 7, {7, 7, 7, 8}, 1, {1, 0, 2}},
                    Management{ADD, 0, {7}, 1, {4}}, Management{ADD, 7, {7}, 1, {4}},
                    Management{ADD, 0, {7, 8, 9}, 1, {4, 4, 4}}, Management{QUERY, 0, {7}, 3, {4}},
                    Management{QUERY, 7, {7, 8}, 3, {4}},
                    Management{QUERY, 0, {7, 8, 9}, 3, {4, 4, 4}},
                    Management{QUERY_ALL, 0, {7}, 3, {4}}, Management{QUERY_ALL, 8, {7, 8}, 3, {4}},
                    Management{QUERY_ALL, 0, {7, 8, 9}, 3, {4, 4, 4}}));

// --- the record ----------------------------------------------------------------------------------

TEST_F(CaPmt, RecordByteForByte) {
  const CaPmtProg record = built(Program(0xA1B2)
                                     .level(0x0F03)
                                     .ca(UNSUPPORTED, 0x1AAA, {9, 9})
                                     .ca(CAS, 0x1234, {0x11, 0x12, 0x13})
                                     .ca(OTHER_CAS, 0x0345)
                                     .ca(CAS, 0x1FFE, {0x14})
                                     .stream(0xFF1B, 0x1ABC)
                                     .streamCa(OTHER_CAS, 0x0567, {0x21, 0x22})
                                     .streamCa(UNSUPPORTED, 0x0BAD, {9})
                                     .streamCa(CAS, 0x0789)
                                     .stream(0x0104, 0x0101)
                                     .level(0x0F03));
  Bytes expected;
  expected.u8(0, 1).u8(1, 3).u8(2, 1).u8(3, 3).u16(4, 0xA1B2).u8(6, 0).u8(7, 1);
  expected.u16(8, CAS).u16(10, OTHER_CAS).u16(12, CAS).u8(73, 3);
  expected.u16(74, 0x1234).u16(76, 0x0345).u16(78, 0x1FFE);
  expected.u16(138, 3).u16(140, 0).u16(142, 1);
  expected.u8(202, 2).u8(203, 5).u8(204, 5);
  expected.area(234 + 2, {0x11, 0x12, 0x13, 0x14}).u8(493, 2);
  expected.u8(stream(0), 1).u8(stream(0) + 1, 0x1B).u16(stream(0) + 2, 0x1ABC);
  expected.u16(stream(0) + 4, OTHER_CAS).u16(stream(0) + 6, CAS).u8(stream(0) + 69, 2);
  expected.u16(stream(0) + 70, 0x0567).u16(stream(0) + 72, 0x0789);
  expected.u16(stream(0) + 134, 2).area(stream(0) + 230, {0x21, 0x22});
  expected.u8(stream(1) + 1, 0x04).u16(stream(1) + 2, 0x0101);
  EXPECT_EQ(Bytes(record).against(expected), "");
}

TEST_F(CaPmt, RecordOfAQueryByteForByte) {
  card.setTable({Program(0x0102)});
  const CaPmtProg record =
      built(Program(0x0102).stream(0x02, 0x100).streamCa(CAS, 0x1001), QUERY_ALL);
  Bytes expected;
  expected.u8(0, 1).u8(1, 2).u8(2, 3).u8(3, 4).u16(4, 0x0102).u8(7, 1).u8(493, 1);
  expected.u8(stream(0), 3).u8(stream(0) + 1, 2).u16(stream(0) + 2, 0x100);
  expected.u16(stream(0) + 4, CAS).u8(stream(0) + 69, 1).u16(stream(0) + 70, 0x1001);
  EXPECT_EQ(Bytes(record).against(expected), "");
}

TEST_F(CaPmt, BareProgramByteForByte) {
  const CaPmtProg record = built(Program(0xFFFF));
  Bytes expected;
  expected.u8(0, 1).u8(2, 1).u8(3, 3).u16(4, 0xFFFF).u8(7, 1);
  EXPECT_EQ(Bytes(record).against(expected), "");
}

TEST_F(CaPmt, ProgramThatTheCamCannotDescrambleIsSentWithoutDescriptors) {
  const CaPmtProg record = built(
      Program(9).ca(UNSUPPORTED, 0x1001, {1}).stream(2, 0x100).streamCa(UNSUPPORTED, 0x1002, {2}));
  Bytes expected;
  expected.u8(0, 1).u8(1, 3).u8(2, 1).u8(3, 3).u16(4, 9).u8(7, 1).u8(493, 1);
  expected.u8(stream(0) + 1, 2).u16(stream(0) + 2, 0x100);
  EXPECT_EQ(Bytes(record).against(expected), "");
}

struct Level {
  uint16_t caLevel;
  uint8_t flags;
  uint8_t programEntries;
  uint8_t streamEntries;
};

std::ostream &operator<<(std::ostream &out, const Level &level) {
  return out << "level " << level.caLevel;
}

class CaLevel : public CaPmt, public testing::WithParamInterface<Level> {};

TEST_P(CaLevel, SelectsTheLists) {
  const CaPmtProg record = built(Program(1)
                                     .ca(CAS, 0x1001, {1})
                                     .ca(CAS, 0x1002)
                                     .stream(2, 0x100)
                                     .streamCa(CAS, 0x1003, {3})
                                     .level(GetParam().caLevel));
  EXPECT_EQ(record.caLevel, GetParam().flags);
  EXPECT_EQ(record.caNum, GetParam().programEntries);
  EXPECT_EQ(record.casid[0], GetParam().programEntries == 0 ? 0 : CAS);
  EXPECT_EQ(record.eleNum, 1);
  EXPECT_EQ(record.ele[0].caNum, GetParam().streamEntries);
  EXPECT_EQ(record.ele[0].cmdId, GetParam().streamEntries);
  EXPECT_EQ(record.ele[0].casid[0], GetParam().streamEntries == 0 ? 0 : CAS);
  EXPECT_EQ(platform.count("ciLibCaSysIdMatch"),
            static_cast<size_t>(GetParam().programEntries + GetParam().streamEntries));
}

INSTANTIATE_TEST_SUITE_P(Levels, CaLevel,
                         testing::Values(Level{0, 0, 0, 0}, Level{1, 1, 2, 0}, Level{2, 2, 0, 1},
                                         Level{3, 3, 2, 1}, Level{0xFF00, 0, 0, 0},
                                         Level{0xABFC, 0xFC, 0, 0}, Level{0x0205, 5, 2, 0}));

struct StreamCount {
  uint16_t count;
  uint8_t sent;
};

std::ostream &operator<<(std::ostream &out, const StreamCount &count) {
  return out << count.count << " streams";
}

class CountOfStreams : public CaPmt, public testing::WithParamInterface<StreamCount> {};

TEST_P(CountOfStreams, LowByteCounts) {
  card.setTable({Program(1).streams(0x02, 0x100, 32)});
  card.desc.prog[0].eleNum = GetParam().count;
  send();
  const CaPmtProg &record = records().at(0);
  EXPECT_EQ(record.eleNum, GetParam().sent);
  for (uint16_t s = 0; s < 32; ++s) {
    EXPECT_EQ(record.ele[s].pid, s < GetParam().sent ? 0x100 + s : 0) << s;
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, CountOfStreams,
                         testing::Values(StreamCount{0, 0}, StreamCount{1, 1}, StreamCount{31, 31},
                                         StreamCount{32, 32}, StreamCount{0x100, 0},
                                         StreamCount{0x102, 2}));

TEST_F(CaPmt, FullListsFillTheRecordToItsEnd) {
  Program program(1);
  for (uint16_t k = 0; k < 32; ++k) {
    program.ca(CAS, static_cast<uint16_t>(0x1000 + k), counting(8, static_cast<uint8_t>(8 * k)));
  }
  program.streams(0x02, 0x100, 32);
  for (uint16_t k = 0; k < 32; ++k) {
    program.streamCa(CAS, static_cast<uint16_t>(0x1100 + k),
                     counting(8, static_cast<uint8_t>(1 + 8 * k)));
  }
  const CaPmtProg record = built(program);
  Bytes expected;
  expected.u8(0, 1).u8(1, 3).u8(2, 1).u8(3, 3).u16(4, 1).u8(7, 1).u8(73, 32).u8(493, 32);
  for (size_t s = 0; s < 32; ++s) {
    expected.u8(stream(s) + 1, 2).u16(stream(s) + 2, static_cast<unsigned>(0x100 + s));
  }
  expected.u8(stream(31), 1).u8(stream(31) + 69, 32);
  for (unsigned k = 0; k < 32; ++k) {
    expected.u16(8 + 2 * k, CAS).u16(74 + 2 * k, 0x1000 + k).u16(138 + 2 * k, 8);
    expected.u8(202 + k, 8 * k);
    expected.u16(stream(31) + 4 + 2 * k, CAS).u16(stream(31) + 70 + 2 * k, 0x1100 + k);
    expected.u16(stream(31) + 134 + 2 * k, 8).u8(stream(31) + 198 + k, 8 * k);
  }
  expected.area(234, counting(256, 0)).area(stream(31) + 230, counting(256, 1));
  EXPECT_EQ(Bytes(record).against(expected), "");
}

TEST_F(CaPmt, SupportIsAskedForEachDescriptor) {
  platform.ciLibCaSysIdMatch = 1;
  platform.ciLibCaSysIdMatch.then(1).then(0).then(0x100).then(0).then(0xFFFFFFFF);
  const CaPmtProg record = built(Program(1)
                                     .ca(CAS, 0x1001)
                                     .ca(CAS, 0x1002)
                                     .ca(CAS, 0x1003)
                                     .stream(2, 0x100)
                                     .streamCa(CAS, 0x1004)
                                     .streamCa(CAS, 0x1005));
  EXPECT_EQ(record.caNum, 1);
  EXPECT_EQ(record.caPid[0], 0x1002);
  EXPECT_EQ(record.ele[0].caNum, 1);
  EXPECT_EQ(record.ele[0].caPid[0], 0x1004);
}

// --- private data --------------------------------------------------------------------------------

// Where the private data of an entry stands in its list's pool.
struct Place {
  uint8_t offset;
  uint8_t length;
};

struct Bounded {
  uint8_t streamIndex;
  std::vector<Place> places;
  std::vector<size_t> copied;  // bytes of each
};

std::ostream &operator<<(std::ostream &out, const Bounded &bounded) {
  out << "stream " << +bounded.streamIndex;
  for (const Place &place : bounded.places) {
    out << ", " << +place.length << " at " << +place.offset;
  }
  return out;
}

// Byte i of the pool is i + 1, and its last is 0xFF again, so that none is 0.
void place(CiDescCaList &list, const std::vector<Place> &places) {
  list.caNum = static_cast<uint16_t>(places.size());
  for (size_t i = 0; i < 256; ++i) {
    list.privData[i] = static_cast<uint8_t>(i == 255 ? 0xFF : i + 1);
  }
  for (size_t k = 0; k < places.size(); ++k) {
    list.ca[k] = {CAS, static_cast<uint16_t>(0x1001 + k)};
    list.privOff[k] = places[k].offset;
    list.privLen[k] = places[k].length;
  }
}

std::vector<uint8_t> expectedArea(const Bounded &bounded) {
  std::vector<uint8_t> area(256, 0);
  for (size_t k = 0; k < bounded.places.size(); ++k) {
    for (size_t b = 0; b < bounded.copied[k]; ++b) {
      const size_t at = bounded.places[k].offset + b;
      area.at(at) = static_cast<uint8_t>(at == 255 ? 0xFF : at + 1);
    }
  }
  return area;
}

class ProgramPrivateData : public CaPmt, public testing::WithParamInterface<Bounded> {};

TEST_P(ProgramPrivateData, EndsWithThePool) {
  card.setTable({Program(1).level(1)});
  place(card.desc.prog[0].caList, GetParam().places);
  send();
  Bytes expected;
  expected.u8(0, 1).u8(1, 1).u8(2, 1).u8(3, 3).u16(4, 1).u8(7, 1);
  expected.u8(73, static_cast<unsigned>(GetParam().places.size()));
  for (unsigned k = 0; k < GetParam().places.size(); ++k) {
    expected.u16(8 + 2 * k, CAS).u16(74 + 2 * k, 0x1001 + k);
    expected.u16(138 + 2 * k, GetParam().places[k].length);
    expected.u8(202 + k, GetParam().places[k].offset);
  }
  expected.area(234, expectedArea(GetParam()));
  EXPECT_EQ(Bytes(records().at(0)).against(expected), "");
}

INSTANTIATE_TEST_SUITE_P(
    Places, ProgramPrivateData,
    testing::Values(Bounded{0, {{250, 10}}, {6}}, Bounded{0, {{246, 10}}, {10}},
                    Bounded{0, {{247, 10}}, {9}}, Bounded{0, {{255, 1}}, {1}},
                    Bounded{0, {{255, 255}}, {1}}, Bounded{0, {{0, 255}}, {255}},
                    Bounded{0, {{1, 255}}, {255}}, Bounded{0, {{2, 255}}, {254}},
                    Bounded{0, {{77, 0}}, {0}}, Bounded{0, {{250, 10}, {0, 10}}, {6, 10}},
                    Bounded{0, {{0, 10}, {250, 10}}, {10, 6}},
                    Bounded{0, {{10, 4}, {12, 4}}, {4, 4}}));

// The bound of a stream's entries is that of the entry with the number of the stream.
class StreamPrivateData : public CaPmt, public testing::WithParamInterface<Bounded> {};

TEST_P(StreamPrivateData, IsBoundedByTheEntryNumberedLikeTheStream) {
  const Bounded &bounded = GetParam();
  Program program(1);
  program.level(2).streams(0x02, 0x100, 32);
  card.setTable({program});
  place(card.desc.prog[0].ele[bounded.streamIndex].caList, bounded.places);
  send();
  Bytes expected;
  expected.u8(0, 1).u8(1, 2).u8(2, 1).u8(3, 3).u16(4, 1).u8(7, 1).u8(493, 32);
  for (size_t s = 0; s < 32; ++s) {
    expected.u8(stream(s) + 1, 2).u16(stream(s) + 2, static_cast<unsigned>(0x100 + s));
  }
  const size_t own = stream(bounded.streamIndex);
  expected.u8(own, 1).u8(own + 69, static_cast<unsigned>(bounded.places.size()));
  for (unsigned k = 0; k < bounded.places.size(); ++k) {
    expected.u16(own + 4 + 2 * k, CAS).u16(own + 70 + 2 * k, 0x1001 + k);
    expected.u16(own + 134 + 2 * k, bounded.places[k].length);
    expected.u8(own + 198 + k, bounded.places[k].length == 0 ? 0 : bounded.places[k].offset);
  }
  expected.area(own + 230, expectedArea(bounded));
  EXPECT_EQ(Bytes(records().at(0)).against(expected), "");
}

INSTANTIATE_TEST_SUITE_P(
    Places, StreamPrivateData,
    testing::Values(Bounded{0, {{250, 10}}, {6}}, Bounded{0, {{246, 10}}, {10}},
                    Bounded{0, {{77, 0}}, {0}}, Bounded{0, {{255, 255}}, {1}},
                    Bounded{0, {{250, 2}, {0, 10}}, {2, 6}},
                    Bounded{0, {{250, 0}, {0, 10}}, {0, 6}},
                    Bounded{0, {{0, 10}, {20, 10}, {250, 6}}, {10, 10, 6}},
                    Bounded{0, {{0, 4}, {250, 10}}, {4, 6}}, Bounded{1, {{0, 10}}, {10}},
                    Bounded{1, {{0, 255}}, {255}}, Bounded{1, {{250, 10}}, {6}},
                    Bounded{1, {{0, 10}, {250, 6}}, {6, 6}},
                    Bounded{1, {{0, 10}, {255, 1}}, {1, 1}},
                    Bounded{1, {{255, 1}, {0, 10}}, {1, 10}},
                    Bounded{2, {{0, 10}, {20, 10}, {252, 4}, {40, 10}}, {4, 4, 4, 4}},
                    Bounded{31, {{0, 10}, {20, 10}}, {10, 10}}, Bounded{31, {{254, 10}}, {2}}));

// End to end, the longest one byte longer than its bound lets it be.
INSTANTIATE_TEST_SUITE_P(OneTooLong, StreamPrivateData,
                         testing::Values(Bounded{2, {{0, 120}, {120, 17}, {137, 1}}, {119, 17, 1}},
                                         Bounded{2, {{0, 123}, {123, 11}, {134, 2}}, {122, 11, 2}},
                                         Bounded{1, {{0, 128}, {128, 1}}, {128, 1}},
                                         Bounded{1, {{0, 129}, {129, 1}}, {127, 1}}));

TEST_F(CaPmt, BoundOfTheLastStreamIsThatOfItsLastEntry) {
  card.setTable({Program(1).level(2).streams(0x02, 0x100, 32)});
  std::vector<Place> places(32, Place{0, 10});
  places[31] = {253, 3};
  place(card.desc.prog[0].ele[31].caList, places);
  send();
  const CaPmtElem &last = records().at(0).ele[31];
  EXPECT_EQ(last.caNum, 32);
  EXPECT_EQ(last.privLen[0], 10);
  EXPECT_EQ(std::vector<uint8_t>(last.privData, last.privData + 5),
            (std::vector<uint8_t>{1, 2, 3, 0, 0}));
}

TEST_F(CaPmt, BoundGoesByCollectedEntries) {
  card.setTable({Program(1).level(2).streams(0x02, 0x100, 2)});
  CiDescCaList &list = card.desc.prog[0].ele[1].caList;
  place(list, {{0, 10}, {250, 6}});
  list.ca[1].casid = UNSUPPORTED;
  send();
  EXPECT_EQ(records().at(0).ele[1].caNum, 1);
  EXPECT_EQ(records().at(0).ele[1].privData[9], 10);
  EXPECT_EQ(records().at(0).ele[1].privData[250], 0);
  place(list, {{20, 1}, {0, 10}, {254, 2}});
  list.ca[0].casid = UNSUPPORTED;
  send();
  EXPECT_EQ(records().at(0).ele[1].caNum, 2);
  EXPECT_EQ(records().at(0).ele[1].privData[1], 2);
  EXPECT_EQ(records().at(0).ele[1].privData[2], 0);
}

TEST_F(CaPmt, BoundDoesNotRememberTheCollectionBefore) {
  card.setTable(
      {Program(1).level(3).streams(0x02, 0x100, 3), Program(2).level(2).streams(2, 1, 3)});
  const std::vector<Place> narrow(4, Place{250, 6});
  place(card.desc.prog[0].caList, narrow);
  place(card.desc.prog[0].ele[0].caList, narrow);
  place(card.desc.prog[0].ele[1].caList, {{0, 10}});
  place(card.desc.prog[0].ele[2].caList, narrow);
  place(card.desc.prog[1].ele[1].caList, {{0, 10}});
  send();
  EXPECT_EQ(records().at(0).ele[1].privData[9], 10);
  EXPECT_EQ(records().at(1).ele[1].privData[9], 10);
}

}  // namespace
