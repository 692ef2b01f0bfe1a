#include "io/DatagramSink.h"

#include <gtest/gtest.h>

#include <optional>

#include "Datagrams.h"
#include "base/InputError.h"

namespace {

using namespace testing_datagrams;
using chassis::DatagramSink;
using chassis::Loop;
using chassis::readUrl;
using chassis::TsPacket;
using chassis::Url;

constexpr std::uint64_t ms = 1000000;

std::string localUrl(const std::string &scheme = "udp") {
  return scheme + "://127.0.0.1:" + std::to_string(freePort());
}

// Chassis time 0 is the real time at which the case began.
class DatagramSinkTest : public testing::Test {
 protected:
  DatagramSink &open(const std::string &url) {
    sink_.emplace(
        readUrl(url, Url::Use::Output), [this](std::uint64_t ns) { return begin_ + ns; }, loop_);
    return *sink_;
  }
  void write(unsigned first, unsigned count, std::uint64_t cameNs) {
    writeAt(first, std::vector<std::uint64_t>(count, cameNs));
  }
  // At once, as a card does.
  void writeAt(unsigned first, const std::vector<std::uint64_t> &cameNs) {
    std::vector<TsPacket> some;
    for (std::size_t i = 0; i < cameNs.size(); ++i) {
      some.push_back(packet(first + static_cast<unsigned>(i)));
    }
    sink_->write(some.data(), cameNs.data(), some.size());
  }
  std::uint64_t chassisNs() const { return Loop::nowNs() - begin_; }
  // Lets the loop act until so many packets are written or lost.
  bool leave(std::uint64_t packets) {
    return waitFor([this, packets] {
      loop_.wait(Loop::nowNs() + 10 * ms);
      return sink_->writtenPackets() + sink_->lostPackets() >= packets;
    });
  }
  std::string errorOf(const std::string &url) {
    return testing_datagrams::errorOf([&] { open(url); });
  }

  Loop loop_;
  std::uint64_t begin_ = Loop::nowNs();
  std::optional<DatagramSink> sink_;
};

std::uint32_t read32(const Bytes &bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) << 24 |
         static_cast<std::uint32_t>(bytes[at + 1]) << 16 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

unsigned sequenceOf(const Bytes &bytes) {
  return static_cast<unsigned>(bytes[2]) << 8 | bytes[3];
}

Bytes payloadOf(const Bytes &bytes) {
  return {bytes.begin() + 12, bytes.end()};
}

}  // namespace

TEST_F(DatagramSinkTest, SevenPacketsADatagram) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=0");
  write(0, 15, 0);
  ASSERT_TRUE(leave(15));
  EXPECT_EQ(receiver.next(), packets(0, 7));
  EXPECT_EQ(receiver.next(), packets(7, 7));
  EXPECT_EQ(receiver.next(), packets(14, 1));
  EXPECT_EQ(sink_->writtenPackets(), 15U);
  EXPECT_EQ(sink_->lostPackets(), 0U);
  EXPECT_EQ(sink_->trouble(), "");
  EXPECT_EQ(sink_->lateness()->datagrams, 3U);
  EXPECT_EQ(sink_->name(), url + "?delay=0");
}

TEST_F(DatagramSinkTest, ADatagramLeavesTheDelayAfterItsFirstPacketCame) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=150");
  EXPECT_EQ(sink_->patienceMs(), 75U);
  const std::uint64_t came = chassisNs();
  write(0, 7, came);
  loop_.wait(begin_ + came + 100 * ms);
  EXPECT_EQ(sink_->writtenPackets() > 0, chassisNs() >= came + 150 * ms);
  ASSERT_TRUE(leave(7));
  EXPECT_GE(chassisNs(), came + 150 * ms);
  EXPECT_EQ(receiver.next(), packets(0, 7));
}

TEST_F(DatagramSinkTest, WhatCameUntilTheFirstOneLeavesGoesWithIt) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=20");
  writeAt(0, {0, 20 * ms, 20 * ms + 1, 40 * ms + 1, 40 * ms + 2});
  ASSERT_TRUE(leave(5));
  EXPECT_EQ(receiver.next(), packets(0, 2));
  EXPECT_EQ(receiver.next(), packets(2, 2));
  EXPECT_EQ(receiver.next(), packets(4, 1));
}

TEST_F(DatagramSinkTest, RtpHeaders) {
  const std::string url = localUrl("rtp");
  const Receiver receiver(url);
  open(url + "?delay=0");
  write(0, 7, 0);
  write(7, 7, 10 * ms);
  write(14, 1, 1000 * ms / 90 + 1);
  ASSERT_TRUE(leave(15));
  const Bytes first = receiver.next();
  const Bytes second = receiver.next();
  const Bytes third = receiver.next();
  ASSERT_EQ(third.size(), 12U + 188);
  EXPECT_EQ(first[0], 0x80);
  EXPECT_EQ(first[1], 33);
  EXPECT_EQ(payloadOf(first), packets(0, 7));
  EXPECT_EQ(payloadOf(second), packets(7, 7));
  EXPECT_EQ(payloadOf(third), packets(14, 1));
  EXPECT_EQ(sequenceOf(second), (sequenceOf(first) + 1) & 0xFFFF);
  EXPECT_EQ(sequenceOf(third), (sequenceOf(second) + 1) & 0xFFFF);
  EXPECT_EQ(read32(first, 4), 0U);
  EXPECT_EQ(read32(second, 4), 900U);
  EXPECT_EQ(read32(third, 4), 1000U);
  EXPECT_EQ(read32(second, 8), read32(first, 8));
  EXPECT_EQ(read32(third, 8), read32(first, 8));
}

TEST_F(DatagramSinkTest, EverySinkIsASenderOfItsOwn) {
  const std::string url = localUrl("rtp");
  const Receiver receiver(url);
  std::vector<std::uint32_t> senders;
  for (int i = 0; i < 2; ++i) {
    open(url + "?delay=0");
    write(0, 1, 0);
    ASSERT_TRUE(leave(1));
    senders.push_back(read32(receiver.next(), 8));
  }
  EXPECT_NE(senders[0], senders[1]);
}

TEST_F(DatagramSinkTest, ManyAreSentAtOnceAndInOrder) {
  const std::string url = localUrl();
  const Receiver receiver(url + "?rcvbuf=16777216");
  open(url + "?delay=0");
  write(0, 1400, 0);
  ASSERT_TRUE(leave(1400));
  for (unsigned i = 0; i < 200; ++i) {
    ASSERT_EQ(receiver.next(), packets(7 * i, 7));
  }
}

TEST_F(DatagramSinkTest, LatenessIsCounted) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=0");
  ASSERT_TRUE(waitFor([this] { return chassisNs() > 30 * ms; }));
  write(0, 7, 0);
  ASSERT_TRUE(leave(7));
  EXPECT_EQ(sink_->lateness()->datagrams, 1U);
  EXPECT_EQ(sink_->lateness()->late, 1U);
  EXPECT_GT(sink_->lateness()->worstNs, 30 * ms);
}

TEST_F(DatagramSinkTest, OthersWhoseTimeHasComeDoNotWaitForTheLoop) {
  open(localUrl());
  const std::string url = localUrl();
  const Receiver receiver(url);
  DatagramSink other(
      readUrl(url + "?delay=20", Url::Use::Output),
      [this](std::uint64_t ns) { return begin_ + ns; }, loop_);
  const TsPacket one = packet(0);
  const std::uint64_t came = chassisNs();
  other.write(&one, &came, 1);
  ASSERT_TRUE(waitFor([this, came] { return chassisNs() > came + 20 * ms; }));
  write(0, 7, chassisNs());
  EXPECT_EQ(other.writtenPackets(), 1U);
}

TEST_F(DatagramSinkTest, WhatHasNoRoomIsLost) {
  const std::string url = localUrl();
  open(url + "?delay=2000");
  // None leaves before the case is over.
  begin_ += 3600000 * ms;
  write(0, DatagramSink::heldMost * 7, 0);
  EXPECT_EQ(sink_->lostPackets(), 0U);
  write(0, 2, 0);
  EXPECT_EQ(sink_->lostPackets(), 2U);
  EXPECT_EQ(sink_->trouble(), "more waits for its time than there is room for");
  EXPECT_EQ(sink_->writtenPackets(), 0U);
}

TEST_F(DatagramSinkTest, AReceiverThatRefusesAndThenTakes) {
  const std::string url = localUrl();
  open(url + "?delay=0");
  std::uint64_t all = 0;
  ASSERT_TRUE(waitFor([this, &all] {
    write(0, 7, 0);
    return leave(all += 7) && sink_->lostPackets() > 0;
  }));
  EXPECT_EQ(sink_->trouble(), "Connection refused");
  const Receiver receiver(url);
  const auto received = [&] {
    write(50, 7, 0);
    return leave(all += 7) && receiver.next(1) == packets(50, 7);
  };
  EXPECT_TRUE(waitFor(received));
  EXPECT_EQ(sink_->writtenPackets() + sink_->lostPackets(), all);
}

TEST_F(DatagramSinkTest, AnInterfaceThatGoesAndComesBack) {
  enterOwnNetwork();
  const Interface interface("card0");
  const std::string url = "rtp://239.255.78.1:" + std::to_string(freePort()) + "?iface=card0";
  open(url + "&delay=0");
  write(0, 7, 0);
  ASSERT_TRUE(leave(7));
  EXPECT_EQ(sink_->lostPackets(), 0U);
  interface.remove();
  write(7, 7, 0);
  ASSERT_TRUE(leave(14));
  EXPECT_EQ(sink_->lostPackets(), 7U);
  EXPECT_NE(sink_->trouble(), "");
  interface.add();
  const Receiver receiver(url);
  std::uint64_t all = 14;
  EXPECT_TRUE(waitFor([&] {
    write(50, 7, 0);
    return leave(all += 7) && !receiver.next(1).empty();
  }));
  EXPECT_EQ(sink_->writtenPackets() + sink_->lostPackets(), all);
}

TEST_F(DatagramSinkTest, Groups) {
  const std::string url = "udp://239.255.78.2:" + std::to_string(freePort()) + "?iface=lo";
  const Receiver receiver(url);
  open(url + "&delay=0");
  write(0, 7, 0);
  ASSERT_TRUE(leave(7));
  EXPECT_EQ(receiver.next(), packets(0, 7));
}

TEST_F(DatagramSinkTest, GroupsOfIpv6) {
  enterOwnNetwork();
  const Interface interface("card0");
  addressV6("card0");
  const std::string url = "rtp://[ff15::78]:" + std::to_string(freePort(true)) + "?iface=card0";
  const Receiver receiver(url);
  open(url + "&delay=0&ttl=5&dscp=34");
  write(0, 7, 0);
  ASSERT_TRUE(leave(7));
  EXPECT_EQ(payloadOf(receiver.next()), packets(0, 7));
}

TEST_F(DatagramSinkTest, HopsAndClass) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  const int on = 1;
  setsockopt(receiver.file(), IPPROTO_IP, IP_RECVTTL, &on, sizeof on);
  setsockopt(receiver.file(), IPPROTO_IP, IP_RECVTOS, &on, sizeof on);
  open(url + "?delay=0&ttl=7&dscp=34");
  write(0, 1, 0);
  ASSERT_TRUE(leave(1));
  alignas(cmsghdr) std::array<char, 256> control{};
  msghdr message{};
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ASSERT_TRUE(waitFor([&] { return recvmsg(receiver.file(), &message, MSG_DONTWAIT) >= 0; }));
  int ttl = 0;
  int tos = 0;
  for (cmsghdr *one = CMSG_FIRSTHDR(&message); one != nullptr; one = CMSG_NXTHDR(&message, one)) {
    if (one->cmsg_level == IPPROTO_IP && one->cmsg_type == IP_TTL) {
      std::memcpy(&ttl, CMSG_DATA(one), sizeof ttl);
    } else if (one->cmsg_level == IPPROTO_IP && one->cmsg_type == IP_TOS) {
      tos = *CMSG_DATA(one);
    }
  }
  EXPECT_EQ(ttl, 7);
  EXPECT_EQ(tos, 34 << 2);
}

TEST_F(DatagramSinkTest, AtTheEndWhatIsHeldLeavesAtItsTime) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=100");
  const std::uint64_t came = chassisNs();
  write(0, 9, came);
  sink_->end();
  EXPECT_GE(chassisNs(), came + 100 * ms);
  EXPECT_EQ(receiver.next(), packets(0, 7));
  EXPECT_EQ(receiver.next(), packets(7, 2));
  EXPECT_EQ(sink_->writtenPackets(), 9U);
}

// Who ends several of them serves all meanwhile.
TEST_F(DatagramSinkTest, ItLetsGoWhileTheLoopServesOthers) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=100");
  const std::uint64_t came = chassisNs();
  write(0, 9, came);
  EXPECT_FALSE(sink_->letGo());
  ASSERT_TRUE(waitFor([this] {
    loop_.waitTimed(Loop::nowNs() + 10 * ms);
    return sink_->letGo();
  }));
  EXPECT_GE(chassisNs(), came + 100 * ms);
  EXPECT_EQ(sink_->writtenPackets(), 9U);
  sink_->end();
  EXPECT_EQ(receiver.next(), packets(0, 7));
  EXPECT_EQ(receiver.next(), packets(7, 2));
}

TEST_F(DatagramSinkTest, AtTheEndNothingIsWaitedForLonger) {
  const std::string url = localUrl();
  const Receiver receiver(url);
  open(url + "?delay=100");
  // An hour to go.
  write(0, 7, 3600000 * ms);
  sink_->end();
  EXPECT_LT(chassisNs(), 3600000 * ms);
  EXPECT_EQ(receiver.next(), packets(0, 7));
}

TEST_F(DatagramSinkTest, WhatCannotBeReached) {
  enterOwnNetwork();
  EXPECT_EQ(errorOf("udp://192.0.2.1:5000"),
            "'udp://192.0.2.1:5000' cannot be reached: Network is unreachable; an interface that "
            "leads there is named by ?iface=");
}
