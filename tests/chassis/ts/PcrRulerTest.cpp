#include "ts/PcrRuler.h"

#include <gtest/gtest.h>

using chassis::pcrHz;
using chassis::PcrRuler;

namespace {

// 1000 packets a second, a PCR each tenth of a second.
void addTenths(PcrRuler &ruler, std::uint64_t pcr, std::uint64_t packet, int count) {
  for (int i = 0; i < count; ++i) {
    ruler.add((pcr + static_cast<std::uint64_t>(i) * pcrHz / 10) % chassis::pcrRange,
              packet + static_cast<std::uint64_t>(i) * 100, false);
  }
}

}  // namespace

TEST(PcrRuler, NeedsTwoClockReferences) {
  PcrRuler ruler;
  EXPECT_EQ(ruler.bitrate(), 0);
  ruler.add(5, 0, false);
  EXPECT_EQ(ruler.bitrate(), 0);
  EXPECT_EQ(ruler.packetsPerSecond(), 0);
  ruler.add(5 + pcrHz, 1000, false);
  EXPECT_EQ(ruler.bitrate(), 1504000);
  EXPECT_EQ(ruler.packetsPerSecond(), 1000);
}

TEST(PcrRuler, GoesOnWhereTheClockWraps) {
  PcrRuler ruler;
  addTenths(ruler, chassis::pcrRange - pcrHz / 2, 0, 11);
  EXPECT_EQ(ruler.packetsPerSecond(), 1000);
}

TEST(PcrRuler, LeavesJumpsOut) {
  PcrRuler ruler;
  addTenths(ruler, 0, 0, 11);
  ruler.add(3 * pcrHz, 1001, true);
  addTenths(ruler, 3 * pcrHz, 1001, 11);
  ruler.add(pcrHz, 500000, false);  // back
  addTenths(ruler, pcrHz, 500000, 11);
  EXPECT_EQ(ruler.packetsPerSecond(), 1000);
}

TEST(PcrRuler, TakesAStepOfTenSecondsAndNoLongerOne) {
  PcrRuler ruler;
  ruler.add(0, 0, false);
  ruler.add(PcrRuler::longestStep, 10000, false);
  EXPECT_EQ(ruler.packetsPerSecond(), 1000);
  ruler.add(2 * PcrRuler::longestStep + 1, 10001, false);
  EXPECT_EQ(ruler.packetsPerSecond(), 1000);
}
