#include "io/DatagramSource.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>

#include <optional>

#include "Datagrams.h"
#include "base/InputError.h"
#include "kernel/Loop.h"
#include "status/EventWords.h"

namespace {

using namespace testing_datagrams;
namespace event = chassis::event;
using chassis::DatagramSource;
using chassis::EventKind;
using chassis::Loop;
using chassis::readUrl;
using chassis::TsPacket;
using chassis::Url;

std::uint64_t nowMs() {
  return Loop::nowNs() / 1000000 + 1;
}

// Chassis time is real time here.
class DatagramSourceTest : public testing::Test {
 protected:
  void open(const std::string &url) {
    url_ = url;
    source_.emplace(
        readUrl(url, Url::Use::Input), [](std::uint64_t realNs) { return realNs; },
        [this](const chassis::Event &event) { events_.push_back(event); });
  }
  std::string openUnicast(const std::string &scheme = "udp", const std::string &options = "") {
    const std::string to = scheme + "://127.0.0.1:" + std::to_string(freePort());
    open(to + options);
    return to;
  }
  // Takes all that is due into out_.
  void poll() {
    TsPacket packet;
    std::uint64_t cameNs = 0;
    for (std::size_t due = source_->due(nowMs()); due > 0; --due) {
      ASSERT_TRUE(source_->next(packet, cameNs));
      out_.push_back(numberOf(packet));
      times_.push_back(cameNs);
    }
  }
  bool comes(std::size_t count) {
    return waitFor([this, count] {
      poll();
      return out_.size() >= count;
    });
  }
  bool counts(const std::uint64_t chassis::SourceCounters::*counter, std::uint64_t least) {
    return waitFor([this, counter, least] {
      poll();
      return counters().*counter >= least;
    });
  }
  const chassis::SourceCounters &counters() const { return source_->counters(); }
  std::vector<EventKind> kinds() const {
    std::vector<EventKind> all;
    for (const chassis::Event &event : events_) {
      all.push_back(event.kind());
    }
    return all;
  }
  std::string errorOf(const std::string &url) {
    return testing_datagrams::errorOf([&] { open(url); });
  }

  std::string url_;
  std::optional<DatagramSource> source_;
  std::vector<chassis::Event> events_;
  std::vector<unsigned> out_;
  std::vector<std::uint64_t> times_;
};

using Counters = chassis::SourceCounters;

}  // namespace

TEST_F(DatagramSourceTest, PacketsWithTheTimesAtWhichTheyCame) {
  const Sender sender(openUnicast());
  // The two clocks of the machine are read one after the other; who is set aside in between, or
  // whose datagram is, tries again.
  constexpr std::uint64_t slack = 1000000;
  constexpr int tries = 50;
  bool asTheyCame = false;
  int tried = 0;
  for (; tried < tries && !asTheyCame; ++tried) {
    out_.clear();
    times_.clear();
    const std::uint64_t before = Loop::nowNs();
    sender.send(packets(1, 7));
    const std::uint64_t between = Loop::nowNs();
    sender.send(packets(8, 7));
    const std::uint64_t after = Loop::nowNs();
    // They were received long before somebody asked.
    ASSERT_TRUE(waitFor([after] { return Loop::nowNs() > after + 20 * slack; }));
    ASSERT_TRUE(comes(14));
    ASSERT_EQ(out_, numbers(1, 14));
    asTheyCame = times_[0] + slack >= before && times_[6] <= between + slack &&
                 times_[7] + slack >= between && times_[13] <= after + slack;
  }
  EXPECT_TRUE(asTheyCame);
  EXPECT_FALSE(source_->ended());
  EXPECT_EQ(counters().packets, 14U * tried);
  EXPECT_EQ(counters().datagrams, 2U * tried);
  EXPECT_TRUE(events_.empty());
}

TEST_F(DatagramSourceTest, NothingIsThereAtFirst) {
  openUnicast();
  TsPacket packet;
  std::uint64_t cameNs = 0;
  EXPECT_EQ(source_->due(nowMs()), 0U);
  EXPECT_FALSE(source_->next(packet, cameNs));
  EXPECT_FALSE(source_->ended());
}

TEST_F(DatagramSourceTest, WhatCameLaterIsNotDueYet) {
  const std::string url = "udp://127.0.0.1:" + std::to_string(freePort());
  std::uint64_t chassisNs = 30 * 1000000;
  const auto toChassis = [&chassisNs](std::uint64_t) { return chassisNs; };
  DatagramSource source(readUrl(url, Url::Use::Input), toChassis, [](const chassis::Event &) {});
  Sender(url).send(packets(1, 2));
  EXPECT_TRUE(waitFor([&source] {
    source.due(29);
    return source.counters().datagrams == 1;
  }));
  EXPECT_EQ(source.due(29), 0U);
  EXPECT_EQ(source.due(30), 2U);
  TsPacket packet;
  std::uint64_t cameNs = 0;
  ASSERT_TRUE(source.next(packet, cameNs));
  EXPECT_EQ(cameNs, chassisNs);
  EXPECT_EQ(source.due(30), 1U);
  // Chassis time may be mapped anew; what is handed on does not go back.
  chassisNs = 10 * 1000000;
  ASSERT_TRUE(source.next(packet, cameNs));
  EXPECT_EQ(cameNs, 30U * 1000000);
}

TEST_F(DatagramSourceTest, EitherSchemeTakesBothForms) {
  for (const std::string scheme : {"udp", "rtp"}) {
    out_.clear();
    const Sender sender(openUnicast(scheme));
    sender.send(packets(1, 2));
    sender.send(rtp(5, packets(3, 2)));
    EXPECT_TRUE(comes(4));
    EXPECT_EQ(out_, numbers(1, 4));
  }
}

TEST_F(DatagramSourceTest, Ipv6Unicast) {
  const std::string url = "udp://[::1]:" + std::to_string(freePort(true));
  open(url);
  Sender(url).send(packets(1, 2));
  EXPECT_TRUE(comes(2));
}

TEST_F(DatagramSourceTest, RtpFaultsAreCountedApart) {
  const Sender sender(openUnicast("rtp"));
  sender.send(rtp(1, packets(1, 1)));
  sender.send(rtp(3, packets(3, 1)));
  sender.send(rtp(2, packets(2, 1)));
  sender.send(rtp(2, packets(2, 1)));
  sender.send(rtp(5, packets(5, 1)));
  // The window passes by itself.
  ASSERT_TRUE(comes(4));
  sender.send(rtp(4, packets(4, 1)));
  ASSERT_TRUE(counts(&Counters::late, 1));
  EXPECT_EQ(out_, (std::vector<unsigned>{1, 2, 3, 5}));
  EXPECT_EQ(counters().reordered, 1U);
  EXPECT_EQ(counters().duplicates, 1U);
  EXPECT_EQ(counters().networkLost, 1U);
  EXPECT_EQ(counters().senders, 1U);
  EXPECT_EQ(counters().datagrams, 6U);
  EXPECT_TRUE(events_.empty());
}

TEST_F(DatagramSourceTest, AnotherSenderIsToldAndNotTooOften) {
  const std::string url = openUnicast("rtp");
  const Sender sender(url);
  const auto send = [this, &sender](std::uint8_t ssrc, std::uint64_t atMs) {
    sender.send(rtp(1, packets(1, 1), ssrc));
    const std::uint64_t all = counters().datagrams + 1;
    ASSERT_TRUE(waitFor([this, all, atMs] {
      source_->due(atMs);
      return counters().datagrams == all;
    }));
  };
  send(1, 1000);
  EXPECT_TRUE(events_.empty());
  send(2, 2000);
  ASSERT_EQ(events_.size(), 1U);
  EXPECT_EQ(events_[0].kind(), EventKind::SenderChanged);
  EXPECT_EQ(chassis::wordsOf(events_[0]).what, "another sender (SSRC)");
  EXPECT_EQ(std::get<event::SenderChanged>(events_[0].facts).path, url);
  EXPECT_EQ(std::get<event::SenderChanged>(events_[0].facts).senders, 2U);
  send(3, 2999);
  EXPECT_EQ(events_.size(), 1U);
  source_->due(3000);
  ASSERT_EQ(events_.size(), 2U);
  EXPECT_EQ(std::get<event::SenderChanged>(events_[1].facts).senders, 3U);
  EXPECT_EQ(counters().networkLost, 0U);
}

TEST_F(DatagramSourceTest, ForeignDatagramsAreToldOnceUntilTheyCease) {
  const Sender sender(openUnicast());
  const auto send = [this, &sender](const Bytes &bytes, std::uint64_t atMs) {
    sender.send(bytes);
    const std::uint64_t all = counters().datagrams + 1;
    ASSERT_TRUE(waitFor([this, all, atMs] {
      source_->due(atMs);
      return counters().datagrams == all;
    }));
  };
  send(Bytes(100, 0x15), 1000);
  ASSERT_EQ(events_.size(), 1U);
  EXPECT_EQ(events_[0].kind(), EventKind::InputForeign);
  EXPECT_EQ(chassis::wordsOf(events_[0]).why, "100 bytes that begin with 0x15");
  send(packets(1, 1), 1500);
  send(Bytes(100, 0x15), 1999);
  source_->due(2998);
  send(Bytes(100, 0x15), 2998);
  EXPECT_EQ(events_.size(), 1U);
  source_->due(3998);
  send({}, 3999);
  ASSERT_EQ(events_.size(), 2U);
  EXPECT_EQ(chassis::wordsOf(events_[1]).why, "an empty datagram");
  EXPECT_EQ(counters().foreign, 4U);
}

TEST_F(DatagramSourceTest, AJumboDatagramIsTakenAndALongerOneIsCutOff) {
  const Sender sender(openUnicast());
  sender.send(packets(1, DatagramSource::datagramMost / 188));
  ASSERT_TRUE(comes(49));
  sender.send(packets(1, DatagramSource::datagramMost / 188 + 1));
  ASSERT_TRUE(counts(&Counters::foreign, 1));
  EXPECT_EQ(out_, numbers(1, 49));
  ASSERT_EQ(events_.size(), 1U);
  EXPECT_EQ(chassis::wordsOf(events_[0]).why, "a datagram of more than 9216 bytes");
}

TEST_F(DatagramSourceTest, WhatTheKernelHadNoRoomForIsCounted) {
  const Sender sender(openUnicast("udp", "?rcvbuf=4096"));
  for (unsigned i = 0; i < 100; ++i) {
    sender.send(packets(i, 7));
  }
  ASSERT_TRUE(counts(&Counters::datagrams, 1));
  const std::uint64_t first = counters().datagrams;
  EXPECT_LT(first, 100U);
  // The kernel tells with a datagram that comes later.
  sender.send(packets(1, 1));
  ASSERT_TRUE(counts(&Counters::datagrams, first + 1));
  EXPECT_EQ(counters().kernelLost, 100 - first);
  for (unsigned i = 0; i < 50; ++i) {
    sender.send(packets(i, 7));
  }
  ASSERT_TRUE(counts(&Counters::datagrams, first + 2));
  const std::uint64_t second = counters().datagrams;
  sender.send(packets(1, 1));
  ASSERT_TRUE(counts(&Counters::datagrams, second + 1));
  EXPECT_EQ(counters().kernelLost + counters().datagrams, 152U);
}

TEST_F(DatagramSourceTest, AFloodIsTakenABoundedPartAtATime) {
  const Sender sender(openUnicast("udp", "?rcvbuf=16777216"));
  constexpr unsigned all = DatagramSource::datagramsPerCall + 10;
  for (unsigned i = 0; i < all; ++i) {
    sender.send(packets(i, 1));
  }
  std::size_t most = 0;
  ASSERT_TRUE(waitFor([this, &most] {
    const std::uint64_t before = counters().datagrams;
    source_->due(nowMs());
    most = std::max<std::size_t>(most, counters().datagrams - before);
    return counters().datagrams + counters().kernelLost >= all;
  }));
  EXPECT_LE(most, DatagramSource::datagramsPerCall);
  EXPECT_GT(most, 0U);
}

TEST_F(DatagramSourceTest, WhatNobodyTakesIsDroppedBeyondTheBound) {
  const Sender sender(openUnicast());
  constexpr unsigned each = 49;
  constexpr unsigned datagrams = DatagramSource::packetsMost / each + 2;
  for (unsigned i = 0; i < datagrams; ++i) {
    sender.send(packets(i, each));
    ASSERT_TRUE(waitFor([this, i] {
      source_->due(0);
      return counters().datagrams == i + 1;
    }));
  }
  EXPECT_EQ(counters().dropped, std::uint64_t{datagrams} * each - DatagramSource::packetsMost);
  EXPECT_TRUE(comes(DatagramSource::packetsMost));
  EXPECT_EQ(out_.size(), DatagramSource::packetsMost);
}

TEST_F(DatagramSourceTest, ASmallReceiveBufferIsToldOnce) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> none{};
  ASSERT_EQ(syscall(SYS_capset, &header, none.data()), 0);
  const std::string url = openUnicast("udp", "?rcvbuf=1000000000");
  EXPECT_TRUE(events_.empty());
  source_->due(1);
  source_->due(2);
  ASSERT_EQ(events_.size(), 1U);
  EXPECT_EQ(events_[0].kind(), EventKind::BufferSmall);
  const std::uint64_t got = std::get<event::BufferSmall>(events_[0].facts).bytes;
  EXPECT_GT(got, 0U);
  EXPECT_EQ(std::get<event::BufferSmall>(events_[0].facts).asked, 1000000000U);
  EXPECT_EQ(chassis::wordsOf(events_[0]).what,
            "the receive buffer has " + std::to_string(got) + " of the 1000000000 bytes asked for");
  EXPECT_EQ(chassis::wordsOf(events_[0]).why,
            "the machine allows no more: sysctl -w net.core.rmem_max=1000000000");
}

TEST_F(DatagramSourceTest, AGroup) {
  const std::string port = std::to_string(freePort());
  const std::string group = "udp://@239.255.77.1:" + port + "?iface=lo";
  open(group);
  // A socket of the same port that hears another group, and one that hears the same.
  const Receiver other("udp://239.255.77.2:" + port + "?iface=lo");
  const Receiver same(group);
  Sender("udp://239.255.77.2:" + port + "?iface=lo").send(packets(50, 1));
  const Sender sender(group);
  sender.send(packets(1, 7));
  EXPECT_TRUE(comes(7));
  EXPECT_EQ(out_, numbers(1, 7));
  EXPECT_EQ(same.next(), packets(1, 7));
  EXPECT_EQ(other.next(), packets(50, 1));
}

TEST_F(DatagramSourceTest, AGroupAndASource) {
  const std::string port = std::to_string(freePort());
  const Receiver other("udp://239.255.77.3:" + port + "?iface=lo");
  open("udp://239.255.77.3:" + port + "?iface=lo&source=127.0.0.1");
  Sender("udp://239.255.77.3:" + port + "?iface=lo", "127.0.0.2").send(packets(50, 1));
  Sender("udp://239.255.77.3:" + port + "?iface=lo", "127.0.0.1").send(packets(1, 1));
  // One of another source, though this machine hears both of them.
  EXPECT_TRUE(comes(1));
  EXPECT_EQ(out_, numbers(1, 1));
  EXPECT_EQ(other.next(), packets(50, 1));
  EXPECT_EQ(other.next(), packets(1, 1));
}

TEST_F(DatagramSourceTest, GroupsOfIpv6) {
  enterOwnNetwork();
  const Interface interface("card0");
  addressV6("card0");
  for (const std::string address : {"ff02::77:1", "ff15::77:1"}) {
    out_.clear();
    const std::string port = std::to_string(freePort(true));
    const std::string group = "udp://[" + address + "]:" + port + "?iface=card0";
    open(group);
    Sender(group).send(packets(1, 7));
    EXPECT_TRUE(comes(7)) << address;
  }
}

TEST_F(DatagramSourceTest, AGroupOfIpv6AndASource) {
  enterOwnNetwork();
  const Interface interface("card0");
  const std::string source = addressV6("card0");
  const std::string port = std::to_string(freePort(true));
  const std::string group = "udp://[ff35::77:2]:" + port + "?iface=card0";
  open(group + "&source=2001:db8::7");
  const Receiver other(group);
  Sender(group).send(packets(50, 1));
  EXPECT_EQ(other.next(), packets(50, 1));
  EXPECT_EQ(source_->due(nowMs()), 0U);
  EXPECT_EQ(counters().datagrams, 0U);
  open(group + "&source=" + source);
  Sender(group).send(packets(1, 1));
  EXPECT_TRUE(comes(1));
  EXPECT_EQ(out_, numbers(1, 1));
}

TEST_F(DatagramSourceTest, AnInterfaceThatGoesAndComesBack) {
  enterOwnNetwork();
  const Interface interface("card0");
  const std::string group = "udp://239.255.77.9:" + std::to_string(freePort()) + "?iface=card0";
  open(group);
  Sender(group).send(packets(1, 1));
  ASSERT_TRUE(comes(1));

  interface.remove();
  source_->due(10 * nowMs());
  source_->due(11 * nowMs());
  ASSERT_EQ(kinds(), std::vector<EventKind>{EventKind::InterfaceGone});
  EXPECT_EQ(chassis::wordsOf(events_[0]).what, "the network interface card0 has gone");

  interface.add();
  source_->due(12 * nowMs());
  source_->due(13 * nowMs());
  ASSERT_EQ(kinds(), (std::vector<EventKind>{EventKind::InterfaceGone, EventKind::InterfaceBack}));
  Sender(group).send(packets(2, 1));
  ASSERT_TRUE(comes(2));
  EXPECT_EQ(out_, numbers(1, 2));
}

TEST_F(DatagramSourceTest, WhatCannotBeReceived) {
  EXPECT_EQ(errorOf("udp://192.0.2.77:5000"),
            "'udp://192.0.2.77:5000' cannot be received: Cannot assign requested address; an "
            "address of this machine is needed, or 0.0.0.0 for all of them");
  EXPECT_EQ(errorOf("udp://[2001:db8::77]:5000"),
            "'udp://[2001:db8::77]:5000' cannot be received: Cannot assign requested address; an "
            "address of this machine is needed, or [::] for all of them");
  const std::string url = "udp://127.0.0.1:" + std::to_string(freePort());
  const Receiver first(url);
  EXPECT_EQ(errorOf(url), "'" + url +
                              "' cannot be received: Address already in use; another "
                              "program receives there");
}

TEST_F(DatagramSourceTest, AGroupThatCannotBeJoined) {
  enterOwnNetwork();
  const std::string url = "udp://239.255.77.4:5000";
  EXPECT_EQ(errorOf(url), "'" + url +
                              "' cannot be joined: No such device; an interface that leads "
                              "there is named by ?iface=");
}
