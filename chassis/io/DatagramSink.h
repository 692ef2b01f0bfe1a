// Packets that leave as UDP or RTP into a network, spaced as they came.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "io/PacketSink.h"
#include "io/Socket.h"
#include "io/Url.h"
#include "kernel/Loop.h"

namespace chassis {

// A datagram leaves the URL's delay after its first packet came.
class DatagramSink : public PacketSink, private Loop::Timed {
 public:
  static constexpr std::size_t packetsPerDatagram = 7;
  static constexpr std::size_t heldMost = 12000;  // datagrams that wait for their time; 16 MB
  static constexpr std::uint64_t lateNs = 10000000;

  // The real time in ns of CLOCK_MONOTONIC at a chassis time in ns. It is asked whenever it counts,
  // so that it may change its mind about what waits.
  using ToReal = std::function<std::uint64_t(std::uint64_t chassisNs)>;

  // Throws InputError that names the URL, what is wrong and what would be right. The loop outlives
  // it.
  DatagramSink(const Url &url, ToReal toReal, Loop &loop);

  void write(const TsPacket *packets, const std::uint64_t *cameNs, std::size_t count) override;
  // What is left is sent at its time, but little longer than the delay from the first call on.
  bool letGo() override;
  // The same, and waits for that.
  void end() override;
  std::uint64_t patienceMs() const override { return url_.delayMs / 2; }

  const std::string &name() const override { return url_.text; }
  std::uint64_t writtenPackets() const override { return written_; }
  std::uint64_t lostPackets() const override { return lost_; }
  const std::string &trouble() const override { return trouble_; }
  const Lateness *lateness() const override { return &lateness_; }

 private:
  static constexpr std::size_t headerMost = 12;

  struct Datagram {
    std::uint64_t cameNs;  // its first packet
    std::size_t packets;
    // A place for the RTP header first.
    std::array<std::uint8_t, headerMost + packetsPerDatagram * tsPacketSize> bytes;
  };

  std::uint64_t dueNs() const override;
  void serve(std::uint64_t nowNs) override;

  std::uint64_t leavesNs(const Datagram &datagram) const;
  bool takesMore(std::uint64_t cameNs) const;
  void writePacket(const TsPacket &packet, std::uint64_t cameNs);
  void writeHeader(Datagram &datagram, std::uint16_t sequence) const;
  std::size_t countDue(std::uint64_t nowNs) const;
  std::size_t sendBatch(std::size_t most);
  void sent(std::size_t count);
  void cannotSend(int error);
  void openAgain();
  void lose(std::size_t packets, const std::string &why);
  std::size_t headerSize() const { return url_.scheme == Url::Scheme::Rtp ? headerMost : 0; }

  const Url url_;
  const ToReal toReal_;
  Loop &loop_;
  Socket socket_;
  std::deque<Datagram> waiting_;
  std::uint32_t ssrc_;
  std::uint16_t sequence_;
  std::uint64_t letGoNs_ = 0;   // real time; 0: more may be written
  std::uint64_t openedNs_ = 0;  // real time of the last attempt
  std::uint64_t written_ = 0;
  std::uint64_t lost_ = 0;
  std::string trouble_;
  Lateness lateness_;
  Loop::Watching timed_;
};

}  // namespace chassis
