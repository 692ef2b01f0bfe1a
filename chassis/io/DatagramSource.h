// Packets that come as UDP or RTP from a network.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "io/DatagramPackets.h"
#include "io/PacketSource.h"
#include "io/Socket.h"
#include "io/Url.h"

namespace chassis {

// A datagram of packets alone is taken at rtp:// too, and RTP at udp://.
class DatagramSource : public PacketSource {
 public:
  static constexpr std::size_t datagramMost = 9216;  // bytes, a jumbo frame; longer ones are cut
  static constexpr std::size_t datagramsPerCall = 1024;
  static constexpr std::size_t packetsMost = 1 << 15;  // that wait to be taken

  // The chassis time in ns at a real time in ns of CLOCK_MONOTONIC. It is asked when a packet is
  // due or handed on, so that it may change its mind about what waits.
  using ToChassis = std::function<std::uint64_t(std::uint64_t realNs)>;

  // Throws InputError that names the URL, what is wrong and what would be right. tell is called
  // from due alone: SenderChanged, InputForeign, BufferSmall, InterfaceGone, InterfaceBack.
  DatagramSource(const Url &url, ToChassis toChassis, Tell tell);

  // Takes what the socket has, but so much a call that a flood does not hold the chassis up.
  std::size_t due(std::uint64_t nowMs) override;
  bool next(TsPacket &packet, std::uint64_t &cameNs) override;
  std::uint64_t beginnings() const override { return packets_.beginnings(); }
  bool ended() const override { return false; }
  const SourceCounters &counters() const override { return packets_.counters(); }

 private:
  struct Batch;
  struct BatchEnd {
    void operator()(Batch *batch) const;
  };

  void receive();
  std::size_t receiveBatch(std::int64_t realtimeAhead);
  void take(const mmsghdr &message, const std::uint8_t *bytes, std::uint64_t nowNs,
            std::int64_t realtimeAhead);
  void countOverflow(std::uint32_t overflow);

  void watchInterface(std::uint64_t nowMs);
  void interfaceGone();
  void openAgain(unsigned index);
  void tellNotices(std::uint64_t nowMs);
  void tellForeign(std::uint64_t nowMs);
  void tellSender(std::uint64_t nowMs);
  void tellBuffer();

  const Url url_;
  const ToChassis toChassis_;
  const Tell tell_;
  Socket socket_;
  unsigned interface_;
  DatagramPackets packets_{packetsMost};
  std::unique_ptr<Batch, BatchEnd> batch_;
  std::size_t due_ = 0;
  std::uint64_t handedNs_ = 0;
  std::uint64_t emptyNs_ = 0;  // real time: what the socket has came later
  std::uint32_t overflow_ = 0;

  bool gone_ = false;
  bool bufferTold_ = false;
  bool foreignTold_ = false;
  std::uint64_t foreignSeen_ = 0;
  std::uint64_t foreignMs_ = 0;  // when the last one was seen
  std::uint64_t sendersTold_ = 1;
  std::uint64_t senderTellMs_ = 0;
  std::uint64_t interfaceLookMs_ = 0;
};

}  // namespace chassis
