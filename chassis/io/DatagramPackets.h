// Packets out of datagrams, in order and bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "event/StreamFacts.h"
#include "io/PacketSource.h"
#include "ts/Rtp.h"
#include "ts/TsPacket.h"

namespace chassis {

// Each datagram is taken for what it is, whatever it was announced as: whole 188-byte packets from
// its first byte on, or RTP with such a payload. Times are those of whoever hands the datagrams in.
class DatagramPackets {
 public:
  explicit DatagramPackets(std::size_t packetsMost) : packetsMost_(packetsMost) {}
  DatagramPackets(const DatagramPackets &) = delete;
  DatagramPackets &operator=(const DatagramPackets &) = delete;

  // A datagram, or as much of it as there was room for (cut), and the time at which it came.
  void take(const std::uint8_t *bytes, std::size_t size, bool cut, std::uint64_t cameNs);

  // Gives up what RTP has waited for long enough.
  void expire(std::uint64_t nowNs);

  // Those that wait to be handed on, and when each of them came, which never falls.
  std::size_t size() const { return waiting_.size() - first_; }
  std::uint64_t cameNs(std::size_t index) const { return waiting_[first_ + index].cameNs; }
  bool next(TsPacket &packet, std::uint64_t &cameNs);
  std::uint64_t beginnings() const { return beginnings_; }  // as PacketSource's

  // They leave gaps in RTP sequences, which are not the network's then.
  void countKernelLost(std::uint64_t datagrams);
  const SourceCounters &counters() const { return counters_; }
  // The last foreign one, once there was one.
  const event::ForeignDatagram &lastForeign() const { return foreign_; }
  // Datagrams that wait for one that is late.
  std::size_t held() const { return sequence_.held(); }

 private:
  struct Packet {
    TsPacket bytes;
    std::uint64_t cameNs;
    std::uint64_t beginnings;  // of RTP, with it
  };

  void takeRtp(const RtpHeader &rtp, const std::uint8_t *bytes, std::size_t size, bool cut,
               std::uint64_t cameNs);
  void refuse(const event::ForeignDatagram &foreign);
  void push(const std::uint8_t *bytes, std::size_t size, std::uint64_t cameNs);
  void pushPacket(const std::uint8_t *bytes);
  void count();
  void countNetworkLost(std::uint64_t gaps);

  const std::size_t packetsMost_;
  std::vector<Packet> waiting_;
  std::size_t first_ = 0;  // of those in waiting_ that are not handed on
  std::uint64_t cameNs_ = 0;
  std::uint64_t beginnings_ = 0;
  event::ForeignDatagram foreign_;
  SourceCounters counters_;
  std::uint64_t gaps_ = 0;        // in RTP sequences, so far
  std::uint64_t kernelGaps_ = 0;  // that the kernel's losses may have left, and are to be counted
  std::uint64_t kernelNs_ = 0;    // by when the last of them must show; 0: not known yet
  RtpSequence sequence_{[this](const std::uint8_t *payload, std::size_t size, std::uint64_t came) {
    push(payload, size, came);
  }};
};

}  // namespace chassis
