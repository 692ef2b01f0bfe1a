#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 3;
constexpr uint8_t SCRAMBLED = DESC_STAT_SCRAMBLED;
constexpr uint8_t DESCRAMBLED = DESC_STAT_OK;

// One program of CAM A per list, with these statuses; the status of the program itself and what
// stands behind the streams must not count.
void setStatuses(const std::vector<std::vector<uint8_t>> &statuses) {
  std::vector<Program> programs;
  for (size_t p = 0; p < statuses.size(); ++p) {
    programs.push_back(Program(1).streams(0x1B, 0x100, static_cast<uint16_t>(statuses[p].size())));
    DescProgStat &row = DescStatus[SLOT][p];
    row.progStatus = SCRAMBLED;
    for (size_t e = 0; e < 32; ++e) {
      row.pid[e].status = e < statuses[p].size() ? statuses[p][e] : SCRAMBLED;
    }
  }
  platform.card[SLOT].setTable(programs);
}

using Statuses = std::vector<uint8_t>;

struct SummaryCase {
  std::vector<Statuses> statuses;
  uint8_t summary;
};

const SummaryCase CASES[] = {
    // no PIDs
    {{}, 0x00},
    {{{}}, 0x00},
    {{{}, {}}, 0x00},
    // descrambled
    {{{0xFF}}, 0x00},
    {{{0xFF, 0xFF}, {0xFF}}, 0x00},
    // every other status, alone
    {{{0x00}}, 0x20},
    {{{0x10}}, 0x21},
    {{{0x11}}, 0x20},
    {{{0x20}}, 0x20},
    {{{0x21}}, 0x20},
    {{{0x30}}, 0x20},
    {{{0x40}}, 0x20},
    {{{0xEE}}, 0x20},
    {{{0xFE}}, 0x20},
    // the same beside a descrambled one
    {{{0xFF, 0x10}}, 0x11},
    {{{0x20, 0xFF}}, 0x10},
    {{{0x21}, {0xFF}}, 0x10},
    {{{0xFF}, {0x30}}, 0x10},
    {{{0xFF, 0x40}}, 0x10},
    {{{0xEE, 0xFF, 0xFF}}, 0x10},
    // mixtures
    {{{0xFF, 0x30, 0x10}}, 0x11},
    {{{0x20, 0x20, 0x20}}, 0x20},
    {{{0x20, 0x10, 0xEE}}, 0x21},
    {{{0x20}, {0x10}}, 0x21},
    {{{}, {0x10}, {}, {0xFF}}, 0x11},
};

class Summary : public testing::TestWithParam<SummaryCase> {};
INSTANTIATE_TEST_SUITE_P(Cases, Summary, testing::ValuesIn(CASES));

TEST_P(Summary, CondensesTheStatuses) {
  registerCard(SLOT);
  setStatuses(GetParam().statuses);
  EXPECT_EQ(getDescStat(SLOT, 0), GetParam().summary);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)"}));
}

// One program of `count` PIDs, descrambled but for the one at `bad`, with any status behind them.
uint8_t summaryOfOneBad(size_t count, size_t bad, uint8_t behind) {
  setStatuses({Statuses(count, DESCRAMBLED)});
  for (size_t e = count; e < 32; ++e) {
    DescStatus[SLOT][0].pid[e].status = behind;
  }
  DescStatus[SLOT][0].pid[bad].status = SCRAMBLED;
  return getDescStat(SLOT, 0);
}

TEST(OneBadPid, IsFoundAtEveryPlaceAndNotBehindTheLast) {
  registerCard(SLOT);
  for (size_t count = 1; count <= 32; ++count) {
    for (size_t bad = 0; bad < 32; ++bad) {
      const uint8_t found = count == 1 ? DESC_SUM_ALL : DESC_SUM_PART;
      const uint8_t summary = bad < count ? found | DESC_SUM_SCRAMBLED : DESC_SUM_OK;
      EXPECT_EQ(summaryOfOneBad(count, bad, DESCRAMBLED), summary) << count << ' ' << bad;
      EXPECT_EQ(summaryOfOneBad(count, bad, SCRAMBLED), summary) << count << ' ' << bad;
    }
  }
}

// `bad` statuses followed by `good` descrambled ones, spread over programs of 32 streams.
std::vector<Statuses> spread(size_t bad, size_t good, uint8_t status) {
  std::vector<Statuses> programs;
  for (size_t n = 0; n < bad + good; ++n) {
    if (n % 32 == 0) {
      programs.emplace_back();
    }
    programs.back().push_back(n < bad ? status : DESCRAMBLED);
  }
  return programs;
}

struct BadCount {
  size_t bad;
  size_t good;
  uint8_t status;
  uint8_t summary;
};

// The count of bad PIDs has eight bits, that of all PIDs has not.
const BadCount BAD_COUNTS[] = {
    {255, 0, 0x20, 0x20},   {255, 0, 0x10, 0x21},  {255, 1, 0x20, 0x10},  {255, 1, 0x10, 0x11},
    {256, 0, 0x20, 0x00},   {256, 0, 0x10, 0x00},  {256, 1, 0x10, 0x00},  {257, 0, 0x20, 0x10},
    {257, 0, 0x10, 0x11},   {257, 1, 0x20, 0x10},  {511, 0, 0x20, 0x10},  {512, 0, 0x10, 0x00},
    {0, 512, 0x10, 0x00},   {1, 1023, 0x10, 0x11}, {1024, 0, 0x10, 0x00}, {1023, 1, 0x10, 0x11},
    {768, 256, 0x40, 0x00},
};

class ManyPids : public testing::TestWithParam<BadCount> {};
INSTANTIATE_TEST_SUITE_P(Counts, ManyPids, testing::ValuesIn(BAD_COUNTS), [](const auto &each) {
  const BadCount &c = each.param;
  return std::to_string(c.bad) + "_" + std::to_string(c.good) + "_" + std::to_string(c.status);
});

TEST_P(ManyPids, CountTheBadOnesInEightBits) {
  registerCard(SLOT);
  setStatuses(spread(GetParam().bad, GetParam().good, GetParam().status));
  EXPECT_EQ(getDescStat(SLOT, 0), GetParam().summary);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)"}));
}

TEST(SummaryOfACam, CountsItsOwnProgramsOnly) {
  registerCard(SLOT);
  platform.card[SLOT].setTable({Program(1).cams(CAM_A).stream(0x1B, 0x100),
                                Program(2).cams(CAM_B).stream(0x1B, 0x200),
                                Program(3).cams(NO_CAM).stream(0x1B, 0x300),
                                Program(4).cams(BOTH_CAMS).stream(0x1B, 0x400)});
  const uint8_t statuses[] = {0x20, 0xFF, 0x10, 0xFF};
  for (size_t p = 0; p < 4; ++p) {
    DescStatus[SLOT][p].pid[0].status = statuses[p];
  }
  EXPECT_EQ(getDescStat(SLOT, 0), 0x10);
  EXPECT_EQ(getDescStat(SLOT, 1), 0x00);
  DescStatus[SLOT][3].pid[0].status = 0x10;
  EXPECT_EQ(getDescStat(SLOT, 0), 0x21);
  EXPECT_EQ(getDescStat(SLOT, 1), 0x11);
}

TEST(SummaryOfACam, WithoutProgramsIsOk) {
  registerCard(SLOT);
  platform.card[SLOT].setTable({Program(1).cams(CAM_A).stream(0x1B, 0x100)});
  EXPECT_EQ(getDescStat(SLOT, 1), 0x00);
}

TEST(SummaryOfACam, StopsAtTheProgramCount) {
  registerCard(SLOT);
  setStatuses({{0xFF}, {0x10}});
  platform.card[SLOT].desc.descProgCnt = 1;
  EXPECT_EQ(getDescStat(SLOT, 0), 0x00);
}

TEST(SummaryOfACam, UsesTheLowByteOfTheSlot) {
  registerCard(SLOT);
  setStatuses({{0x10, 0xFF}});
  EXPECT_EQ(getDescStat(0xFFFFFF00 | SLOT, 0), 0x11);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)"}));
}

TEST(SummaryOfACam, ChangesNothing) {
  registerCard(SLOT);
  setStatuses({{0x10, 0xFF}});
  const std::vector<DescProgStat> before(DescStatus[SLOT], DescStatus[SLOT] + 32);
  getDescStat(SLOT, 0);
  EXPECT_EQ(std::memcmp(DescStatus[SLOT], before.data(), sizeof DescStatus[SLOT]), 0);
}

TEST(SummaryOfACam, NeedsTheRecord) {
  EXPECT_EQ(getDescStat(SLOT, 0), 0xFF);
  EXPECT_EQ(platform.take(), (Calls{printed("getDescStat pCiData==NULL! \n")}));
}

TEST(SummaryOfACam, NeedsTheTable) {
  registerCard(SLOT);
  platform.card[SLOT].GetProgDesc = nullptr;
  EXPECT_EQ(getDescStat(SLOT, 0), 0xFF);
  EXPECT_EQ(platform.take(), (Calls{"GetProgDesc(3)", printed("getDescStat pdesc==NULL! \n")}));
}

}  // namespace
