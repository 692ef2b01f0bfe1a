#include "ts/Rtp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using chassis::readRtp;
using chassis::RtpHeader;
using chassis::RtpSequence;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t ms = 1000000;

Bytes header(std::uint8_t first = 0x80, std::uint8_t second = 33) {
  return {first, second, 0x12, 0x34, 0xA1, 0xB2, 0xC3, 0xD4, 0xF1, 0xE2, 0xD3, 0xC4};
}

Bytes with(Bytes bytes, const Bytes &more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
  return bytes;
}

// What the payload is: its begin and size, or -1 where it is no RTP.
std::pair<int, int> payloadOf(const Bytes &bytes) {
  const auto rtp = readRtp(bytes.data(), bytes.size());
  return rtp ? std::pair{static_cast<int>(rtp->payloadBegin), static_cast<int>(rtp->payloadSize)}
             : std::pair{-1, -1};
}

const std::pair<int, int> none{-1, -1};

// Takes datagrams whose payload is one byte that names them; out is what came out, in order.
class Rig {
 public:
  Rig &take(unsigned sequence, std::uint64_t atMs = 0, std::uint32_t ssrc = 1,
            std::uint32_t timestamp = 0) {
    return take(sequence, Bytes{static_cast<std::uint8_t>(sequence)}, atMs, ssrc, timestamp);
  }
  Rig &take(unsigned sequence, const Bytes &payload, std::uint64_t atMs = 0, std::uint32_t ssrc = 1,
            std::uint32_t timestamp = 0) {
    RtpHeader rtp;
    rtp.sequence = static_cast<std::uint16_t>(sequence);
    rtp.ssrc = ssrc;
    rtp.timestamp = timestamp;
    rtp_.take(rtp, payload.data(), payload.size(), atMs * ms);
    return *this;
  }
  Rig &run(unsigned from, unsigned count, std::uint64_t atMs = 0) {
    for (unsigned i = 0; i < count; ++i) {
      take(from + i, atMs);
    }
    return *this;
  }
  void expire(std::uint64_t atNs) { rtp_.expire(atNs); }
  Bytes out() { return std::exchange(out_, {}); }
  const chassis::RtpCounters &counters() const { return rtp_.counters(); }
  std::size_t held() const { return rtp_.held(); }

 private:
  Bytes out_;
  RtpSequence rtp_{[this](const std::uint8_t *payload, std::size_t size, std::uint64_t) {
    out_.insert(out_.end(), payload, payload + size);
  }};
};

std::vector<std::uint64_t> of(const chassis::RtpCounters &c) {
  return {c.lost, c.reordered, c.duplicates, c.late, c.senders};
}
using Counts = std::vector<std::uint64_t>;

}  // namespace

TEST(RtpHeader, ItsFields) {
  const Bytes bytes = with(header(0x80, 0x80 | 33), {1, 2, 3});
  const auto rtp = readRtp(bytes.data(), bytes.size());
  ASSERT_TRUE(rtp);
  EXPECT_EQ(rtp->payloadType, 33);
  EXPECT_EQ(rtp->sequence, 0x1234);
  EXPECT_EQ(rtp->timestamp, 0xA1B2C3D4);
  EXPECT_EQ(rtp->ssrc, 0xF1E2D3C4);
  EXPECT_EQ(payloadOf(bytes), std::pair(12, 3));
}

TEST(RtpHeader, OfOtherVersionsOrTooShort) {
  EXPECT_EQ(payloadOf({}), none);
  EXPECT_EQ(payloadOf(header()), std::pair(12, 0));
  Bytes shorter = header();
  shorter.pop_back();
  EXPECT_EQ(payloadOf(shorter), none);
  for (const std::uint8_t first : {0x00, 0x40, 0xC0, 0x47}) {
    EXPECT_EQ(payloadOf(header(first)), none);
  }
}

TEST(RtpHeader, ContributingSources) {
  EXPECT_EQ(payloadOf(with(header(0x8F), Bytes(60))), std::pair(72, 0));
  EXPECT_EQ(payloadOf(with(header(0x8F), Bytes(61))), std::pair(72, 1));
  EXPECT_EQ(payloadOf(with(header(0x8F), Bytes(59))), none);
}

TEST(RtpHeader, AnExtension) {
  EXPECT_EQ(payloadOf(with(header(0x90), {0, 0, 0, 0})), std::pair(16, 0));
  EXPECT_EQ(payloadOf(with(header(0x90), {0, 0, 0})), none);
  EXPECT_EQ(payloadOf(with(header(0x90), {9, 9, 0, 1, 1, 2, 3, 4, 5})), std::pair(20, 1));
  EXPECT_EQ(payloadOf(with(header(0x90), {9, 9, 0, 1, 1, 2, 3})), none);
  EXPECT_EQ(payloadOf(with(header(0x90), {9, 9, 0xFF, 0xFF, 1, 2, 3})), none);
  EXPECT_EQ(payloadOf(with(header(0x91), {1, 2, 3, 4, 9, 9, 0, 0, 5})), std::pair(20, 1));
  EXPECT_EQ(payloadOf(with(header(0x91), {1, 2, 3, 4, 9, 9, 0})), none);
}

TEST(RtpHeader, Padding) {
  EXPECT_EQ(payloadOf(with(header(0xA0), {7, 7, 0, 2})), std::pair(12, 2));
  EXPECT_EQ(payloadOf(with(header(0xA0), {0, 0, 0, 4})), std::pair(12, 0));
  EXPECT_EQ(payloadOf(with(header(0xA0), {0, 0, 0, 5})), none);
  EXPECT_EQ(payloadOf(with(header(0xA0), {7, 0})), none);
  // The last byte of the SSRC is no padding.
  EXPECT_EQ(payloadOf(header(0xA0)), none);
}

TEST(RtpSequence, InOrderAtOnceAlsoOverTheWrap) {
  Rig rig;
  EXPECT_EQ(rig.run(65534, 4).out(), (Bytes{254, 255, 0, 1}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 0, 1}));
}

TEST(RtpSequence, PutsBackWhatCameTooEarly) {
  Rig rig;
  EXPECT_EQ(rig.take(65534).take(1).take(65535).out(), (Bytes{254, 255}));
  EXPECT_EQ(rig.held(), 1U);
  EXPECT_EQ(rig.take(0).out(), (Bytes{0, 1}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 2, 0, 0, 1}));
  EXPECT_EQ(rig.held(), 0U);
}

TEST(RtpSequence, TheTimesAreThoseOfTheDatagrams) {
  std::vector<std::uint64_t> times;
  RtpSequence rtp([&times](const std::uint8_t *, std::size_t, std::uint64_t cameNs) {
    times.push_back(cameNs);
  });
  RtpHeader header;
  const std::uint8_t byte = 0;
  for (const unsigned sequence : {10U, 12U, 11U}) {
    header.sequence = static_cast<std::uint16_t>(sequence);
    rtp.take(header, &byte, 1, times.size() + sequence);
  }
  EXPECT_EQ(times, (std::vector<std::uint64_t>{10, 12, 13}));
}

TEST(RtpSequence, DropsDuplicates) {
  Rig rig;
  EXPECT_EQ(rig.take(1).take(1).take(3).take(3).take(2).take(2).take(3).out(), (Bytes{1, 2, 3}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 1, 4, 0, 1}));
}

TEST(RtpSequence, WaitsForAGapSoManyDatagrams) {
  Rig rig;
  rig.take(0).run(2, 63);
  EXPECT_EQ(rig.out(), Bytes{0});
  EXPECT_EQ(rig.held(), 63U);
  EXPECT_EQ(rig.counters().lost, 0U);
  rig.take(65);
  EXPECT_EQ(rig.out().size(), 64U);
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 0, 0, 1}));
}

TEST(RtpSequence, TheLastOfTheWindowStillFits) {
  Rig rig;
  rig.take(0).take(64);
  EXPECT_EQ(rig.counters().lost, 0U);
  EXPECT_EQ(rig.take(1).out(), (Bytes{0, 1}));
  Rig other;
  other.take(0).take(65);
  EXPECT_EQ(other.counters().lost, 1U);
  other.take(1);
  EXPECT_EQ(of(other.counters()), (Counts{1, 0, 0, 1, 1}));
  EXPECT_EQ(other.out(), Bytes{0});
}

TEST(RtpSequence, WaitsForAGapSoLong) {
  Rig rig;
  rig.take(0, 100).take(3, 110).take(5, 120);
  rig.expire(160 * ms - 1);
  EXPECT_EQ(rig.out(), Bytes{0});
  rig.expire(160 * ms);
  EXPECT_EQ(rig.out(), Bytes{3});
  EXPECT_EQ(rig.counters().lost, 2U);
  rig.expire(170 * ms - 1);
  EXPECT_EQ(rig.out(), Bytes{});
  rig.expire(170 * ms);
  EXPECT_EQ(rig.out(), Bytes{5});
  EXPECT_EQ(of(rig.counters()), (Counts{3, 0, 0, 0, 1}));
}

TEST(RtpSequence, ADatagramThatComesGivesUpWhatWasWaitedFor) {
  Rig rig;
  EXPECT_EQ(rig.take(0, 100).take(2, 110).take(3, 159).out(), Bytes{0});
  EXPECT_EQ(rig.take(4, 160).out(), (Bytes{2, 3, 4}));
}

TEST(RtpSequence, WhatCameBehindAnEarlierOneGoesWithIt) {
  Rig rig;
  // 5 came first, and what is before it goes out before it, whenever it came.
  rig.take(0, 100).take(5, 110).take(3, 150);
  rig.expire(160 * ms);
  EXPECT_EQ(rig.out(), (Bytes{0, 3, 5}));
  EXPECT_EQ(of(rig.counters()), (Counts{3, 1, 0, 0, 1}));
}

TEST(RtpSequence, LateOnesAreDroppedAndTheirCopiesAreDuplicates) {
  Rig rig;
  rig.take(10, 0).take(12, 0);
  rig.expire(50 * ms);
  rig.take(11, 60).take(11, 60);
  EXPECT_EQ(rig.out(), (Bytes{10, 12}));
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 1, 1, 1}));
  // Before all that was ever heard.
  rig.take(9, 60).take(9, 60);
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 2, 2, 1}));
}

TEST(RtpSequence, ALongGapIsALossUpToAJump) {
  Rig rig;
  // 2998 are missing between them: the number is 2999 ahead of the next.
  rig.take(0).take(3000);
  EXPECT_EQ(rig.held(), 1U);
  rig.expire(50 * ms);
  EXPECT_EQ(of(rig.counters()), (Counts{2999, 0, 0, 0, 1}));
  EXPECT_EQ(rig.out(), (Bytes{0, 3000 & 0xFF}));

  Rig jump;
  jump.take(0).take(3001);
  jump.expire(50 * ms);
  EXPECT_EQ(of(jump.counters()), (Counts{0, 0, 0, 0, 1}));
  EXPECT_EQ(jump.held(), 1U);
  EXPECT_EQ(jump.out(), Bytes{0});
}

TEST(RtpSequence, BehindIsADuplicateUpToAJump) {
  Rig rig;
  rig.run(1000, 101).out();
  rig.take(1001);
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 1, 0, 1}));
  EXPECT_EQ(rig.held(), 0U);
  rig.take(1000);
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 1, 0, 1}));
  EXPECT_EQ(rig.held(), 1U);
}

TEST(RtpSequence, TwoInSequenceBehindAJumpAreARestart) {
  Rig rig;
  rig.run(5000, 3).take(5004).take(7);
  EXPECT_EQ(rig.out(), (Bytes{5000 & 0xFF, 5001 & 0xFF, 5002 & 0xFF}));
  rig.take(8).take(9);
  EXPECT_EQ(rig.out(), (Bytes{5004 & 0xFF, 7, 8, 9}));
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 0, 0, 1}));
}

TEST(RtpSequence, AStrayOneAloneIsNoRestart) {
  Rig rig;
  rig.run(0, 3).take(20000).run(3, 3);
  EXPECT_EQ(rig.out(), (Bytes{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 1, 1}));
  rig.take(20001).take(30000).take(40000);
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 3, 1}));
  EXPECT_EQ(rig.held(), 1U);
}

TEST(RtpSequence, ARestartWhoseDatagramsComeTwice) {
  Rig rig;
  rig.take(0, 0, 1, 90 * 500);
  rig.take(20000).take(20000).take(20001).take(20001);
  EXPECT_EQ(rig.out(), (Bytes{0, 20000 & 0xFF, 20001 & 0xFF}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 2, 0, 1}));
}

TEST(RtpSequence, ARestartOverTheWrap) {
  Rig rig;
  EXPECT_EQ(rig.take(30000).take(65535).take(0).out(), (Bytes{30000 & 0xFF, 255, 0}));
}

TEST(RtpSequence, AJumpWhoseTimeStampWentOnIsALoss) {
  // A second of a stream of 5000 datagrams a second is missing.
  Rig rig;
  rig.take(0, 1000, 1, 0xFFFFFFFF - 45000);
  rig.take(5000, 2000, 1, 0xFFFFFFFF + 45000U).take(5001, 2000, 1, 45000);
  EXPECT_EQ(rig.out(), (Bytes{0, 5000 & 0xFF, 5001 & 0xFF}));
  EXPECT_EQ(of(rig.counters()), (Counts{4999, 0, 0, 0, 1}));
}

TEST(RtpSequence, ButNoLossWhereTimeStampAndClockDisagree) {
  const auto lost = [](std::int32_t stampedMs, unsigned sequence) {
    Rig rig;
    const auto stamp = static_cast<std::uint32_t>(stampedMs * 90);
    rig.take(10000, 1000).take(sequence, 2000, 1, stamp).take(sequence + 1, 2000, 1, stamp);
    EXPECT_EQ(rig.out().size(), 3U);
    return rig.counters().lost;
  };
  EXPECT_EQ(lost(1499, 20000), 9999U);
  EXPECT_EQ(lost(1500, 20000), 0U);
  EXPECT_EQ(lost(501, 20000), 9999U);
  EXPECT_EQ(lost(500, 20000), 0U);
  EXPECT_EQ(lost(1000, 5000), 0U);
}

TEST(RtpSequence, AnotherSsrcIsAnotherSenderAndNoLoss) {
  Rig rig;
  rig.run(0, 2).take(3).take(60000, 0, 2);
  EXPECT_EQ(rig.out(), (Bytes{0, 1, 3, 60000 & 0xFF}));
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 0, 0, 2}));
  // Its numbers are its own: the old sender's are no duplicates.
  rig.take(0, 0, 3);
  EXPECT_EQ(rig.out(), Bytes{0});
  EXPECT_EQ(of(rig.counters()), (Counts{1, 0, 0, 0, 3}));
}

TEST(RtpSequence, AnotherSenderEndsAProbation) {
  Rig rig;
  rig.take(0).take(20000).take(20001, 0, 2);
  EXPECT_EQ(rig.out(), (Bytes{0, 20001 & 0xFF}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 1, 2}));
}

TEST(RtpSequence, AnEmptyOneKeepsItsPlaceAndCountsNowhere) {
  Rig rig;
  rig.take(0).take(1, Bytes{}).take(2);
  EXPECT_EQ(rig.out(), (Bytes{0, 2}));
  rig.take(4, Bytes{}).take(3, Bytes{}).take(3, Bytes{}).take(1, Bytes{}).take(5);
  EXPECT_EQ(rig.out(), Bytes{5});
  EXPECT_EQ(rig.held(), 0U);
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 0, 1}));
}

TEST(RtpSequence, AnEmptyOneBeginsNothing) {
  Rig rig;
  rig.take(100, Bytes{});
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 0, 0}));
  rig.take(0).take(1, Bytes{}, 0, 2).take(20000, Bytes{}).take(20001, Bytes{}).take(1);
  EXPECT_EQ(rig.out(), (Bytes{0, 1}));
  EXPECT_EQ(of(rig.counters()), (Counts{0, 0, 0, 0, 1}));
}
