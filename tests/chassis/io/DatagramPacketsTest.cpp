#include "io/DatagramPackets.h"

#include <gtest/gtest.h>

#include "Datagrams.h"
#include "status/EventWords.h"

namespace {

using namespace testing_datagrams;
using chassis::DatagramPackets;
using chassis::TsPacket;

class DatagramPacketsTest : public testing::Test {
 protected:
  void take(const Bytes &bytes, std::uint64_t cameNs = 0, bool cut = false) {
    datagrams_.take(bytes.data(), bytes.size(), cut, cameNs);
  }
  std::vector<unsigned> out() {
    std::vector<unsigned> all;
    TsPacket next;
    for (std::uint64_t cameNs = 0; datagrams_.next(next, cameNs);) {
      all.push_back(numberOf(next));
      times_.push_back(cameNs);
    }
    return all;
  }
  const chassis::SourceCounters &counters() const { return datagrams_.counters(); }

  DatagramPackets datagrams_{100};
  std::vector<std::uint64_t> times_;
};

}  // namespace

TEST_F(DatagramPacketsTest, PacketsAlone) {
  take(packets(1, 7), 5);
  take(packets(8, 1), 6);
  EXPECT_EQ(datagrams_.size(), 8U);
  EXPECT_EQ(datagrams_.cameNs(6), 5U);
  EXPECT_EQ(datagrams_.cameNs(7), 6U);
  EXPECT_EQ(counters().packets, 0U);
  EXPECT_EQ(out(), numbers(1, 8));
  EXPECT_EQ(times_, (std::vector<std::uint64_t>{5, 5, 5, 5, 5, 5, 5, 6}));
  EXPECT_EQ(counters().packets, 8U);
  EXPECT_EQ(counters().datagrams, 2U);
  EXPECT_EQ(counters().senders, 0U);
  EXPECT_EQ(counters().foreign, 0U);
}

TEST_F(DatagramPacketsTest, RtpInItsOrderAndTimesThatNeverFall) {
  take(rtp(1, packets(1, 2)), 10);
  take(rtp(3, packets(5, 2)), 20);
  take(rtp(2, packets(3, 2)), 30);
  take(rtp(3, packets(5, 2)), 40);
  take(rtp(1, packets(1, 2), 2), 50);
  EXPECT_EQ(out(), (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 1, 2}));
  EXPECT_EQ(times_, (std::vector<std::uint64_t>{10, 10, 30, 30, 30, 30, 50, 50}));
  EXPECT_EQ(counters().datagrams, 5U);
  EXPECT_EQ(counters().reordered, 1U);
  EXPECT_EQ(counters().duplicates, 1U);
  EXPECT_EQ(counters().senders, 2U);
  EXPECT_EQ(counters().networkLost, 0U);
}

// With the packet that is handed on, not with the datagram that has come.
TEST_F(DatagramPacketsTest, TellsWithWhichPacketASenderBegins) {
  const auto beginningsOut = [this] {
    std::vector<std::uint64_t> all;
    TsPacket next;
    for (std::uint64_t cameNs = 0; datagrams_.next(next, cameNs);) {
      all.push_back(datagrams_.beginnings());
    }
    return all;
  };
  take(packets(1, 1));
  take(rtp(1, packets(1, 2)));
  take(rtp(7, packets(1, 1), 2));
  EXPECT_EQ(datagrams_.beginnings(), 0U);
  EXPECT_EQ(beginningsOut(), (std::vector<std::uint64_t>{0, 1, 1, 2}));
  take(rtp(40000, packets(1, 1), 2));
  take(rtp(40001, packets(2, 1), 2));
  EXPECT_EQ(beginningsOut(), (std::vector<std::uint64_t>{3, 3})) << "the same, with other numbers";
  EXPECT_EQ(counters().senders, 2U);
}

TEST_F(DatagramPacketsTest, LossAndLate) {
  take(rtp(1, packets(1, 1)), 0);
  take(rtp(3, packets(3, 1)), 0);
  EXPECT_EQ(out(), numbers(1, 1));
  EXPECT_EQ(datagrams_.held(), 1U);
  datagrams_.expire(chassis::RtpSequence::windowNs);
  EXPECT_EQ(out(), numbers(3, 1));
  EXPECT_EQ(counters().networkLost, 1U);
  take(rtp(2, packets(2, 1)), 0);
  EXPECT_EQ(counters().late, 1U);
  EXPECT_EQ(out(), numbers(0, 0));
}

TEST_F(DatagramPacketsTest, WhatTheKernelLostIsNotTheNetworksToo) {
  constexpr std::uint64_t window = chassis::RtpSequence::windowNs;
  take(rtp(1, packets(1, 1)), 0);
  datagrams_.countKernelLost(5);
  take(rtp(5, packets(5, 1)), 0);   // three are missing
  take(rtp(10, packets(9, 1)), 0);  // and four
  datagrams_.expire(window);
  EXPECT_EQ(counters().kernelLost, 5U);
  EXPECT_EQ(counters().networkLost, 2U);
}

TEST_F(DatagramPacketsTest, AndLaterOnesAreTheNetworks) {
  constexpr std::uint64_t window = chassis::RtpSequence::windowNs;
  take(rtp(1, packets(1, 1)), 0);
  datagrams_.countKernelLost(5);  // of noise
  datagrams_.expire(1);
  datagrams_.expire(2 * window);
  take(rtp(3, packets(3, 1)), 2 * window);
  datagrams_.expire(3 * window);
  EXPECT_EQ(counters().networkLost, 0U) << "they may still be those";
  datagrams_.countKernelLost(1);
  datagrams_.expire(4 * window);
  datagrams_.expire(6 * window);
  take(rtp(5, packets(5, 1)), 6 * window);
  datagrams_.expire(7 * window);
  EXPECT_EQ(counters().networkLost, 1U);
}

TEST_F(DatagramPacketsTest, ForeignOnesAreToldByWhatTheyAre) {
  const std::tuple<Bytes, bool, std::string> cases[] = {
      {{}, false, "an empty datagram"},
      {{0x12, 0x34}, false, "2 bytes that begin with 0x12"},
      {Bytes(187, 0x47), false, "187 bytes that begin with 0x47"},
      {Bytes(189, 0x47), false, "189 bytes that begin with 0x47"},
      {Bytes(204, 0x47), false, "204 bytes that begin with 0x47"},
      {Bytes(188, 0x00), false, "188 bytes that begin with 0x00"},
      {packets(1, 7), true, "a datagram of more than 1316 bytes"},
      {rtp(1, packets(1, 1), 1, 34), false, "RTP of payload type 34, not 33"},
      {rtp(1, {}), false, "RTP whose payload is no whole packets, in 12 bytes"},
      {rtp(1, Bytes(188, 0x46)), false, "RTP whose payload is no whole packets, in 200 bytes"},
      {rtp(1, Bytes(187, 0x47)), false, "RTP whose payload is no whole packets, in 199 bytes"},
      {rtp(1, packets(1, 1)), true, "a datagram of more than 200 bytes"},
  };
  std::uint64_t count = 0;
  for (const auto &[bytes, cut, words] : cases) {
    take(bytes, 0, cut);
    EXPECT_EQ(counters().foreign, ++count);
    EXPECT_EQ(
        chassis::wordsOf({{}, chassis::event::InputForeign{"", datagrams_.lastForeign()}}).why,
        words);
  }
  EXPECT_EQ(counters().datagrams, count);
  EXPECT_EQ(counters().senders, 0U);
  EXPECT_EQ(out(), numbers(0, 0));
}

TEST_F(DatagramPacketsTest, AForeignOneOfTheSenderIsNotWaitedFor) {
  take(rtp(1, packets(1, 1)));
  take(rtp(2, packets(2, 2)), 0, true);
  take(rtp(3, Bytes(100)));
  take(rtp(4, packets(4, 1)));
  EXPECT_EQ(out(), (std::vector<unsigned>{1, 4}));
  EXPECT_EQ(counters().foreign, 2U);
  EXPECT_EQ(counters().networkLost, 0U);
}

TEST_F(DatagramPacketsTest, APacketWithoutASyncByteIsLeftOut) {
  Bytes bytes = packets(1, 3);
  bytes[188] = 0x46;
  take(bytes);
  EXPECT_EQ(out(), (std::vector<unsigned>{1, 3}));
  EXPECT_EQ(counters().skippedBytes, 188U);
  EXPECT_EQ(counters().foreign, 0U);
}

TEST_F(DatagramPacketsTest, WhatHasNoRoomIsDropped) {
  take(packets(0, 60));
  take(packets(60, 40));
  EXPECT_EQ(counters().dropped, 0U);
  take(packets(100, 2));
  EXPECT_EQ(counters().dropped, 2U);
  TsPacket first;
  std::uint64_t cameNs = 0;
  EXPECT_TRUE(datagrams_.next(first, cameNs));
  take(packets(102, 2));
  EXPECT_EQ(counters().dropped, 3U);
  std::vector<unsigned> expected = numbers(1, 99);
  expected.push_back(102);
  EXPECT_EQ(out(), expected);
}

TEST_F(DatagramPacketsTest, NeverEmptiedItStaysInOrder) {
  take(packets(0, 50));
  TsPacket next;
  std::uint64_t cameNs = 0;
  for (unsigned i = 0; i < 1000; ++i) {
    take(packets(50 + i, 1), i);
    ASSERT_TRUE(datagrams_.next(next, cameNs));
    ASSERT_EQ(numberOf(next), i);
    ASSERT_EQ(datagrams_.size(), 50U);
  }
  EXPECT_EQ(counters().dropped, 0U);
}
