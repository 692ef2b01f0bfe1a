#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 1;

class CaMatching : public testing::Test {
 protected:
  void SetUp() override { registerCard(SLOT); }

  void table(const std::vector<Program> &programs) { platform.card[SLOT].setTable(programs); }

  // The match of one CAM that examines these CA system ids, in this order.
  void expectMatch(uint32_t camSlot, uint16_t casid, const std::vector<uint16_t> &examined) {
    const std::string cam = "(1, " + std::to_string(camSlot) + ")";
    Calls calls = {"GetProgDesc(1)", "ciLibGetCardIndex" + cam, "ciLibGetInsertCard" + cam};
    for (uint16_t id : examined) {
      calls.push_back(matchLine(SLOT * 2 + camSlot, id));
    }
    platform.take();
    EXPECT_EQ(casidMatch(SLOT, camSlot), casid);
    EXPECT_EQ(platform.take(), calls);
  }

  static std::string matchLine(uint32_t index, uint16_t id) {
    char text[40];
    std::snprintf(text, sizeof text, "ciLibCaSysIdMatch(%u, 0x%x)", index, id);
    return text;
  }
};

// --- what must be there --------------------------------------------------------------------------

TEST_F(CaMatching, NeedsTheRecord) {
  EXPECT_EQ(casidMatch(0, 0), 0);
  EXPECT_EQ(platform.take(), (Calls{printed("casidMatch pCiData==NULL! \n")}));
}

TEST_F(CaMatching, NeedsTheTable) {
  platform.card[SLOT].GetProgDesc = nullptr;
  EXPECT_EQ(casidMatch(SLOT, 0), 0);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(1)", printed("casidMatch pdesc==NULL! \n")}));
}

struct Index {
  uint32_t result;
  int lowByte;
};

class BadIndex : public CaMatching, public testing::WithParamInterface<Index> {};
INSTANTIATE_TEST_SUITE_P(Results, BadIndex,
                         testing::Values(Index{12, 12}, Index{13, 13}, Index{0xFF, 255},
                                         Index{0x10C, 12}, Index{0xFFFFFFFF, 255}),
                         HexOf<&Index::result>());

TEST_P(BadIndex, IsReportedWithItsLowByteAlsoForAnEmptySlot) {
  table({Program(1).cams(CAM_B).ca(0x0500, 0x1000)});
  platform.ciLibGetInsertCard = 0;
  platform.ciLibCaSysIdMatch = 0;
  platform.ciLibGetCardIndex = GetParam().result;
  EXPECT_EQ(casidMatch(SLOT, 1), 0);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(1)", "ciLibGetCardIndex(1, 1)",
                                    printed("slotNo1 camNo1 casidMatch get ci_index=" +
                                            std::to_string(GetParam().lowByte) + " error! \n")}));
}

class GoodIndex : public CaMatching, public testing::WithParamInterface<Index> {};
INSTANTIATE_TEST_SUITE_P(Results, GoodIndex,
                         testing::Values(Index{0, 0}, Index{1, 1}, Index{11, 11}, Index{0x10B, 11},
                                         Index{0x100, 0}, Index{0xFFFFFF05, 5}),
                         HexOf<&Index::result>());

TEST_P(GoodIndex, IsUsedByItsLowByte) {
  table({Program(1).cams(CAM_B).ca(0x0500, 0x1000)});
  platform.ciLibGetCardIndex = GetParam().result;
  platform.ciLibCaSysIdMatch.when(static_cast<uint8_t>(GetParam().lowByte), 0x0500) = 0;
  EXPECT_EQ(casidMatch(SLOT, 1), 0x0500);
  EXPECT_EQ(platform.take({"ciLibCaSysIdMatch", "printf"}),
            (Calls{matchLine(static_cast<uint32_t>(GetParam().lowByte), 0x0500)}));
}

struct Insert {
  uint32_t status;
  uint16_t match;
};

class InsertStatus : public CaMatching, public testing::WithParamInterface<Insert> {};
INSTANTIATE_TEST_SUITE_P(Statuses, InsertStatus,
                         testing::Values(Insert{0, 0}, Insert{1, 0x0500}, Insert{2, 0x0500},
                                         Insert{0xFF, 0x0500}, Insert{0x100, 0},
                                         Insert{0xFFFFFF00, 0}, Insert{0x101, 0x0500}),
                         HexOf<&Insert::status>());

TEST_P(InsertStatus, CountsByItsLowByte) {
  table({Program(1).ca(0x0500, 0x1000)});
  platform.supports(SLOT, 0, {0x0500});
  platform.ciLibGetInsertCard.when(SLOT, 0) = GetParam().status;
  expectMatch(0, GetParam().match,
              GetParam().match != 0 ? std::vector<uint16_t>{0x0500} : std::vector<uint16_t>{});
}

struct Declared {
  uint32_t answer;
  uint16_t match;
};

class MatchAnswer : public CaMatching, public testing::WithParamInterface<Declared> {};
INSTANTIATE_TEST_SUITE_P(Answers, MatchAnswer,
                         testing::Values(Declared{0, 0x0500}, Declared{1, 0}, Declared{2, 0},
                                         Declared{0x100, 0}, Declared{0x10000, 0},
                                         Declared{0xFFFFFFFF, 0}),
                         HexOf<&Declared::answer>());

TEST_P(MatchAnswer, IsAMatchOnlyWhenZero) {
  table({Program(1).ca(0x0500, 0x1000)});
  platform.ciLibCaSysIdMatch = GetParam().answer;
  expectMatch(0, GetParam().match, {0x0500});
}

// --- the order of the search ---------------------------------------------------------------------

std::vector<Program> twoPrograms() {
  return {Program(1)
              .ca(0x0101, 0x1000)
              .ca(0x0102, 0x1001)
              .stream(0x1B, 0x100)
              .streamCa(0x0103, 0x1002)
              .streamCa(0x0104, 0x1003)
              .stream(0x03, 0x101)
              .streamCa(0x0105, 0x1004),
          Program(2)
              .ca(0x0201, 0x1005)
              .stream(0x1B, 0x200)
              .stream(0x03, 0x201)
              .streamCa(0x0202, 0x1006)};
}

const std::vector<uint16_t> SEARCH_ORDER = {0x0101, 0x0102, 0x0103, 0x0104, 0x0105, 0x0201, 0x0202};

class SearchOrder : public CaMatching, public testing::WithParamInterface<size_t> {};
INSTANTIATE_TEST_SUITE_P(Places, SearchOrder, testing::Range(size_t{0}, SEARCH_ORDER.size()));

TEST_P(SearchOrder, StopsAtTheFirstSupportedId) {
  table(twoPrograms());
  for (size_t i = GetParam(); i < SEARCH_ORDER.size(); ++i) {
    platform.supports(SLOT, 0, {SEARCH_ORDER[i]});
  }
  const auto end = SEARCH_ORDER.begin() + static_cast<std::ptrdiff_t>(GetParam()) + 1;
  expectMatch(0, SEARCH_ORDER[GetParam()], {SEARCH_ORDER.begin(), end});
}

TEST_F(CaMatching, ExaminesEveryIdWhenNoneIsSupported) {
  table(twoPrograms());
  expectMatch(0, 0, SEARCH_ORDER);
}

TEST_F(CaMatching, TakesTheFirstProgramsIdNotTheLowest) {
  table({Program(1).ca(0x0500, 0x1000), Program(2).ca(0x0100, 0x1001)});
  platform.supports(SLOT, 0, {0x0100, 0x0500});
  expectMatch(0, 0x0500, {0x0500});
}

TEST_F(CaMatching, FindsAnIdThatOnlyAStreamCarries) {
  table({Program(1).stream(0x1B, 0x100).streamCa(0x0100, 0x1000)});
  platform.supports(SLOT, 0, {0x0100});
  expectMatch(0, 0x0100, {0x0100});
}

TEST_F(CaMatching, ReturnsAllSixteenBits) {
  table({Program(1).ca(0xFFFF, 0x1000)});
  platform.supports(SLOT, 0, {0xFFFF});
  expectMatch(0, 0xFFFF, {0xFFFF});
}

TEST_F(CaMatching, EndsAtASupportedIdOfZero) {
  table({Program(1).ca(0x0000, 0x1000).ca(0x0500, 0x1001)});
  platform.supports(SLOT, 0, {0x0000, 0x0500});
  expectMatch(0, 0, {0x0000});
}

// --- which lists count ---------------------------------------------------------------------------

class CaLevel : public CaMatching, public testing::WithParamInterface<uint16_t> {};
INSTANTIATE_TEST_SUITE_P(Levels, CaLevel, testing::Values(0, 1, 2, 3, 0xFFFF), HexName());

TEST_P(CaLevel, DoesNotHideAList) {
  table({Program(1)
             .ca(0x0500, 0x1000)
             .stream(0x1B, 0x100)
             .streamCa(0x0100, 0x1001)
             .level(GetParam())});
  expectMatch(0, 0, {0x0500, 0x0100});
}

TEST_F(CaMatching, ExaminesTheProgramsOfTheCamOnly) {
  table({Program(1).cams(CAM_B).ca(0x0101, 1).stream(0x1B, 0x100).streamCa(0x0102, 2),
         Program(2).cams(CAM_A).ca(0x0201, 1), Program(3).cams(NO_CAM).ca(0x0301, 1),
         Program(4).cams(BOTH_CAMS).ca(0x0401, 1), Program(5).cams(0xFD).ca(0x0501, 1)});
  expectMatch(0, 0, {0x0201, 0x0401, 0x0501});
  expectMatch(1, 0, {0x0101, 0x0102, 0x0401});
}

TEST_F(CaMatching, FindsNothingInAnEmptyTable) {
  platform.ciLibCaSysIdMatch = 0;
  table({});
  expectMatch(0, 0, {});
}

TEST_F(CaMatching, FindsNothingInAProgramWithoutCaEntries) {
  platform.ciLibCaSysIdMatch = 0;
  table({Program(1).stream(0x1B, 0x100).level(3)});
  expectMatch(0, 0, {});
}

TEST_F(CaMatching, StopsAtTheProgramCount) {
  table(twoPrograms());
  platform.card[SLOT].desc.descProgCnt = 1;
  expectMatch(0, 0, {0x0101, 0x0102, 0x0103, 0x0104, 0x0105});
}

TEST_F(CaMatching, StopsAtTheStreamCount) {
  table(twoPrograms());
  platform.card[SLOT].desc.prog[0].eleNum = 1;
  expectMatch(0, 0, {0x0101, 0x0102, 0x0103, 0x0104, 0x0201, 0x0202});
}

// Bounds: 32 programs, 32 streams, 32 entries of each list.
TEST_F(CaMatching, WalksAFullTable) {
  std::vector<Program> programs(31, Program(1));
  Program last(32);
  for (uint16_t k = 0; k < 32; ++k) {
    last.ca(static_cast<uint16_t>(0x2000 + k), 0x1000);
  }
  last.streams(0x1B, 0x100, 32);
  for (uint16_t k = 0; k < 32; ++k) {
    last.streamCa(static_cast<uint16_t>(0x3000 + k), 0x1000);
  }
  programs.push_back(last);
  table(programs);
  std::vector<uint16_t> examined;
  for (uint16_t first : {0x2000, 0x3000}) {
    for (uint16_t k = 0; k < 32; ++k) {
      examined.push_back(static_cast<uint16_t>(first + k));
    }
  }
  platform.supports(SLOT, 0, {0x301F});
  expectMatch(0, 0x301F, examined);
}

struct CaCount {
  uint16_t caNum;
  size_t entries;
};

class CaCountCut : public CaMatching, public testing::WithParamInterface<CaCount> {};
INSTANTIATE_TEST_SUITE_P(Counts, CaCountCut,
                         testing::Values(CaCount{0, 0}, CaCount{2, 2}, CaCount{0x100, 0},
                                         CaCount{0x101, 1}, CaCount{0xFF02, 2}),
                         HexOf<&CaCount::caNum>());

TEST_P(CaCountCut, CountsByItsLowByteAtProgramLevel) {
  table({Program(1).ca(0x0101, 1).ca(0x0102, 2)});
  platform.card[SLOT].desc.prog[0].caList.caNum = GetParam().caNum;
  const std::vector<uint16_t> all = {0x0101, 0x0102};
  expectMatch(0, 0, {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(GetParam().entries)});
}

TEST_P(CaCountCut, CountsByItsLowByteAtStreamLevel) {
  table({Program(1).stream(0x1B, 0x100).streamCa(0x0101, 1).streamCa(0x0102, 2)});
  platform.card[SLOT].desc.prog[0].ele[0].caList.caNum = GetParam().caNum;
  const std::vector<uint16_t> all = {0x0101, 0x0102};
  expectMatch(0, 0, {all.begin(), all.begin() + static_cast<std::ptrdiff_t>(GetParam().entries)});
}

// --- all CAMs of the chassis ---------------------------------------------------------------------

class EveryCam : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Cams, EveryCam, testing::Range(0, MAX_BOARD_NUM *MAX_CAM_NUM));

TEST_P(EveryCam, IsAskedByItsOwnIndex) {
  const uint32_t slotNo = static_cast<uint32_t>(GetParam()) / 2;
  const uint32_t camSlot = static_cast<uint32_t>(GetParam()) % 2;
  registerCard(slotNo);
  platform.card[slotNo].setTable({Program(1).cams(BOTH_CAMS).ca(0x0500, 0x1000)});
  platform.supports(slotNo, camSlot, {0x0500});
  EXPECT_EQ(casidMatch(slotNo, camSlot), 0x0500);
  EXPECT_EQ(casidMatch(slotNo, 1 - camSlot), 0);
}

TEST_P(EveryCam, IsNamedFromZeroInTheMessage) {
  const uint32_t slotNo = static_cast<uint32_t>(GetParam()) / 2;
  const uint32_t camSlot = static_cast<uint32_t>(GetParam()) % 2;
  registerCard(slotNo);
  platform.ciLibGetCardIndex = 12;
  EXPECT_EQ(casidMatch(slotNo, camSlot), 0);
  EXPECT_EQ(platform.take({"printf"}),
            (Calls{printed("slotNo" + std::to_string(slotNo) + " camNo" + std::to_string(camSlot) +
                           " casidMatch get ci_index=12 error! \n")}));
}

}  // namespace
