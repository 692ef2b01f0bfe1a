// A table that claims more streams than a program has rows for.
#include <gtest/gtest.h>

#include <cstring>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 0;
constexpr uint16_t PROGRAMS = 32;
constexpr uint16_t STREAMS = 2048;
static_assert(PROGRAMS * STREAMS == 0x10000, "the total reads as 0 in its 16 bits");

// The walk runs over the rows of the following programs and cards, all within DescStatus.
class Summary : public testing::Test {
 protected:
  Summary() {
    registerCard(SLOT);
    std::vector<Program> programs;
    for (uint16_t number = 1; number <= PROGRAMS; ++number) {
      programs.emplace_back(number);
      programs.back().cams(BOTH_CAMS);
    }
    platform.card[SLOT].setTable(programs);
    CiDesc *table = pCiData[SLOT]->GetProgDesc(SLOT);
    for (uint16_t p = 0; p < PROGRAMS; ++p) {
      table->prog[p].eleNum = STREAMS;
    }
    memset(DescStatus, DESC_STAT_OK, sizeof DescStatus);
  }

  // The last status that the last program's walk reads, and no other program's.
  static uint8_t &lastStatus() {
    const size_t row = (PROGRAMS - 1) * sizeof(DescProgStat) + offsetof(DescProgStat, pid);
    const size_t record = (STREAMS - 1) * sizeof(DescPidStat) + offsetof(DescPidStat, status);
    return reinterpret_cast<uint8_t *>(DescStatus)[row + record];
  }
};

TEST_F(Summary, MoreBadPidsThanTheTotalTellsIsAnError) {
  lastStatus() = DESC_STAT_NO_ECM;
  platform.take();
  EXPECT_EQ(getDescStat(SLOT, 0), DESC_SUM_ERROR);
  EXPECT_EQ(platform.take({"printf"}), Calls{printed("getDescStat error! \n")});
}

TEST_F(Summary, NoBadPidIsNoErrorWhateverTheTotal) {
  platform.take();
  EXPECT_EQ(getDescStat(SLOT, 0), DESC_SUM_OK);
  EXPECT_TRUE(platform.take({"printf"}).empty());
}

}  // namespace
