#include "card/PidMeter.h"

#include <gtest/gtest.h>

#include "chassis/StreamWriter.h"

using chassis::nullPid;
using chassis::PidMeter;
using testing_streams::StreamWriter;

namespace {

constexpr std::uint16_t pid = 0x100;

class Meter : public testing::Test {
 protected:
  Meter() {
    meter.restart(0);
    std::bitset<chassis::pidCount> av;
    meter.watchPes(av.set(pid));
  }

  void countAll(std::uint64_t nowMs = 0) {
    for (; counted < stream.packets(); ++counted) {
      meter.count(stream.packet(counted), nowMs);
    }
  }

  std::uint64_t errors() {
    countAll();
    EXPECT_EQ(meter.ccErrors(pid), meter.evidence(pid).ccErrors);
    return meter.evidence(pid).ccErrors;
  }

  PidMeter meter;
  StreamWriter stream;
  std::size_t counted = 0;
};

}  // namespace

TEST_F(Meter, AnUnbrokenCountIsNoError) {
  stream.counter(pid, 9);
  for (int i = 0; i < 40; ++i) {
    stream.payload(pid);
  }
  EXPECT_EQ(errors(), 0U);
  EXPECT_EQ(meter.evidence(pid).packets, 40U);
}

TEST_F(Meter, AGapIsOneError) {
  stream.payload(pid).payload(pid).counter(pid, 5).payload(pid).payload(pid);
  EXPECT_EQ(errors(), 1U);
}

TEST_F(Meter, WhatIsForgottenIsNotHeldAgainstTheNext) {
  stream.payload(pid).payload(pid + 1);
  countAll();
  meter.forgetContinuity();
  stream.counter(pid, 5).payload(pid).counter(pid + 1, 5).payload(pid + 1);
  EXPECT_EQ(errors(), 0U);
  EXPECT_EQ(meter.evidence(pid + 1).ccErrors, 0U);
  stream.counter(pid, 9).payload(pid).counter(pid + 1, 9).payload(pid + 1);
  countAll();
  meter.forgetContinuity(pid);
  EXPECT_EQ(errors(), 1U);
  EXPECT_EQ(meter.evidence(pid + 1).ccErrors, 1U);
}

TEST_F(Meter, ACountThatGoesBackIsAnErrorToo) {
  stream.payload(pid).payload(pid).counter(pid, 0).payload(pid).payload(pid);
  stream.counter(pid, 9).payload(pid).counter(pid, 5).payload(pid).payload(pid);
  EXPECT_EQ(errors(), 3U);
}

TEST_F(Meter, APacketMayComeTwiceButNotThreeTimes) {
  stream.payload(pid).payload(pid);
  stream.add(stream.packet(1)).payload(pid);
  EXPECT_EQ(errors(), 0U);
  stream.add(stream.packet(3)).add(stream.packet(3));
  EXPECT_EQ(errors(), 1U);
}

TEST_F(Meter, ADuplicateOfTheNextPacketIsAllowedAgain) {
  for (std::size_t i = 0; i < 20; ++i) {
    stream.payload(pid).add(stream.packet(2 * i));
  }
  EXPECT_EQ(errors(), 0U);
}

TEST_F(Meter, AnAnnouncedDiscontinuityIsNoError) {
  stream.payload(pid).counter(pid, 9).adaptation(pid, 0x80, 0, true).payload(pid);
  EXPECT_EQ(errors(), 0U);
  // also when a packet without payload announces it
  stream.counter(pid, 3).adaptation(pid, 0x80, 0, false).payload(pid);
  EXPECT_EQ(errors(), 0U);
}

TEST_F(Meter, APacketWithoutPayloadDoesNotCountUp) {
  stream.payload(pid).adaptation(pid, 0x10, 7, false).adaptation(pid, 0x10, 8, false).payload(pid);
  EXPECT_EQ(errors(), 0U);
}

TEST_F(Meter, NullPacketsHaveNoContinuity) {
  for (int i = 0; i < 5; ++i) {
    stream.null();
  }
  countAll();
  EXPECT_EQ(meter.ccErrors(nullPid), 0U);
  EXPECT_EQ(meter.evidence(nullPid).packets, 5U);
}

TEST_F(Meter, TheModulesCountIsWrittenTheEvidenceIsNot) {
  stream.payload(pid).counter(pid, 5).payload(pid);
  countAll();
  meter.setCcErrors(pid, 0);
  EXPECT_EQ(meter.ccErrors(pid), 0U);
  EXPECT_EQ(meter.evidence(pid).ccErrors, 1U);
  meter.setCcErrors(pid, 0xFFFF);
  stream.counter(pid, 1).payload(pid);
  countAll();
  EXPECT_EQ(meter.ccErrors(pid), 0xFFFFU);
  EXPECT_EQ(meter.evidence(pid).ccErrors, 2U);
}

TEST_F(Meter, PresenceIsSinceTheLastClear) {
  EXPECT_FALSE(meter.present(pid));
  stream.payload(pid);
  countAll(40);
  EXPECT_TRUE(meter.present(pid));
  EXPECT_FALSE(meter.present(pid + 1));
  meter.clearPresence();
  EXPECT_FALSE(meter.present(pid));
  EXPECT_EQ(meter.evidence(pid).lastSeenMs, 40U);
}

TEST_F(Meter, APidOutOfRangeWasNeverThere) {
  stream.payload(0x0000);
  countAll();
  EXPECT_FALSE(meter.present(0x2000));
  meter.setCcErrors(0x2000, 5);
  EXPECT_EQ(meter.ccErrors(0x2000), 0U);
  EXPECT_EQ(meter.ccErrors(0xFFFF), 0U);
  EXPECT_EQ(meter.evidence(0xFFFF).packets, 0U);
}

TEST_F(Meter, RatesAreOfTheLastFullSecond) {
  for (int i = 0; i < 1000; ++i) {
    stream.payload(pid);
  }
  for (int i = 0; i < 250; ++i) {
    stream.payload(pid + 1);
    stream.null();
  }
  countAll(1000);
  EXPECT_EQ(meter.rateOfAll(), 0U);
  meter.tick(999);
  EXPECT_EQ(meter.rateOfAll(), 0U);
  meter.tick(1000);
  EXPECT_EQ(meter.rateOfAll(), 1500U * 1504 / 1000);
  EXPECT_EQ(meter.rateOfValid(), 1250U * 1504 / 1000);
  EXPECT_EQ(meter.rate(pid, pid), 1504U);
  EXPECT_EQ(meter.rate(pid, pid + 1), 1880U);
  EXPECT_EQ(meter.rate(pid + 1, 0xFFFF), 752U);
  EXPECT_EQ(meter.rate(pid + 1, pid), 0U);
  EXPECT_EQ(meter.rate(0x2000, 0xFFFF), 0U);
  meter.tick(1999);
  EXPECT_EQ(meter.rate(pid, pid), 1504U);
  meter.tick(2000);
  EXPECT_EQ(meter.rateOfAll(), 0U);
}

TEST_F(Meter, SeesScramblingInPacketsWithPayload) {
  stream.payload(pid, {}, false, 2);
  countAll();
  EXPECT_TRUE(meter.evidence(pid).lastScrambled);
  stream.adaptation(pid, 0x10, 0, false);
  countAll();
  EXPECT_TRUE(meter.evidence(pid).lastScrambled);
  stream.payload(pid);
  countAll();
  EXPECT_FALSE(meter.evidence(pid).lastScrambled);
  EXPECT_EQ(meter.evidence(pid).scrambled, 1U);
}

TEST_F(Meter, ReadsPesStarts) {
  const std::vector<std::pair<testing_streams::Bytes, bool>> starts = {
      {{0x00, 0x00, 0x01, 0xE0}, false}, {{0x00, 0x00, 0x01, 0xBC}, false},
      {{0x00, 0x00, 0x01, 0xBB}, true},  {{0x00, 0x00, 0x00, 0xE0}, true},
      {{0x00, 0x00, 0x01, 0xC0}, false}, {{0x12, 0x34, 0x56, 0x78}, true},
  };
  for (const auto &[start, bad] : starts) {
    stream.payload(pid, start, true);
    countAll();
    EXPECT_EQ(meter.evidence(pid).lastPesBad, bad);
    // what is no start tells nothing
    stream.payload(pid, bad ? testing_streams::pesStart() : testing_streams::Bytes{0x12}, false);
    countAll();
    EXPECT_EQ(meter.evidence(pid).lastPesBad, bad);
  }
}

TEST_F(Meter, AScrambledStartTellsNothingAboutPes) {
  stream.payload(pid, {0x99, 0x99}, true, 3);
  countAll();
  EXPECT_FALSE(meter.evidence(pid).lastPesBad);
}

TEST_F(Meter, ReadsNoPesOnOtherPids) {
  stream.payload(pid + 1, {0x00, 0x02, 0xB0}, true);
  countAll();
  EXPECT_FALSE(meter.evidence(pid + 1).lastPesBad);
}

TEST_F(Meter, APesStartMayBeShorterThanItsHeader) {
  auto packet = stream.payload(pid, {}, true).packet(0);
  packet[3] = 0x31;
  packet[4] = 181;
  packet[186] = 0x00;
  packet[187] = 0x00;
  meter.count(packet, 0);
  EXPECT_FALSE(meter.evidence(pid).lastPesBad);
  packet[187] = 0x01;
  meter.count(packet, 0);
  EXPECT_TRUE(meter.evidence(pid).lastPesBad);
  // a payload is announced, but the adaptation field leaves no room for it
  packet[4] = 255;
  meter.count(packet, 0);
  EXPECT_TRUE(meter.evidence(pid).lastPesBad);
}

TEST_F(Meter, RestartForgets) {
  stream.payload(pid, {}, false, 2).counter(pid, 7).payload(pid);
  countAll();
  meter.restart(5000);
  EXPECT_FALSE(meter.present(pid));
  EXPECT_EQ(meter.ccErrors(pid), 0U);
  EXPECT_EQ(meter.evidence(pid).packets, 0U);
  stream.payload(pid);
  countAll(5500);
  EXPECT_EQ(meter.ccErrors(pid), 0U);
  meter.tick(5999);
  EXPECT_EQ(meter.rateOfAll(), 0U);
  meter.tick(6000);
  EXPECT_EQ(meter.rateOfAll(), 1U);
}
