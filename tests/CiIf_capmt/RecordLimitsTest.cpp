// Counts beyond the record's room: a driver must not set them, and nothing is overrun if it does.
#include <gtest/gtest.h>

#include "platform/Platform.h"

namespace {

constexpr uint16_t CAS = 0x0500;

class RecordLimits : public testing::Test {
 protected:
  RecordLimits() {
    registerCard(0);
    platform.supports(0, 0, {CAS});
  }

  CiDescProg &first = platform.card[0].desc.prog[0];
};

TEST_F(RecordLimits, ListThatClaimsMoreThanThirtyTwoFillsThirtyTwo) {
  Program full(1);
  for (uint16_t k = 0; k < 32; ++k) {
    full.ca(CAS, static_cast<uint16_t>(0x1000 + k));
  }
  platform.card[0].setTable({full});
  first.caList.caNum = 33;
  platform.take();
  ASSERT_EQ(caPMTSend(0, 0, CAS, 0, 0), 1);
  EXPECT_EQ(platform.count("ciLibCaSysIdMatch"), 32u);
  const CaPmtProg &record = platform.sent.back().records.at(0);
  EXPECT_EQ(record.caNum, 32);
  EXPECT_EQ(record.caPid[31], 0x101F);
}

TEST_F(RecordLimits, ProgramThatClaimsMoreThanThirtyTwoStreamsFillsThirtyTwo) {
  Program full(1);
  platform.card[0].setTable({full.streams(0x02, 0x100, 32)});
  first.eleNum = 33;
  ASSERT_EQ(caPMTSend(0, 0, CAS, 0, 0), 1);
  const CaPmtProg &record = platform.sent.back().records.at(0);
  EXPECT_EQ(record.eleNum, 33);
  EXPECT_EQ(record.ele[31].pid, 0x11F);
}

}  // namespace
