// Transport streams in RTP: the header of a datagram, and the order of datagrams by their sequence
// numbers (RFC 3550).
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace chassis {

constexpr std::uint8_t rtpPayloadTypeTs = 33;
constexpr std::uint32_t rtpTicksPerMs = 90;

struct RtpHeader {
  std::uint8_t payloadType = 0;  // 0..127
  std::uint16_t sequence = 0;
  std::uint32_t timestamp = 0;  // of 90 kHz
  std::uint32_t ssrc = 0;
  // Of the datagram, in bytes; without CSRC list, extension and padding. The payload may be empty.
  std::size_t payloadBegin = 0;
  std::size_t payloadSize = 0;
};

// None: no version 2, or a list, extension or padding that goes beyond the datagram.
std::optional<RtpHeader> readRtp(const std::uint8_t *bytes, std::size_t size);

// All since it was made; of datagrams with a payload.
struct RtpCounters {
  std::uint64_t lost = 0;        // sequence numbers given up; `late` ones came after that
  std::uint64_t reordered = 0;   // put back into their place
  std::uint64_t duplicates = 0;  // dropped
  // Came when their place was given up or gone by, or had a number far from all others; dropped.
  std::uint64_t late = 0;
  std::uint64_t senders = 0;
};

// Datagrams in, payloads out in the order of the sequence numbers. What comes in order goes out at
// once; what is behind a gap waits for it, within the window.
class RtpSequence {
 public:
  // A gap is given up when a datagram comes that is this far ahead of it,
  static constexpr int windowMost = 64;
  // or when one behind it has waited so long.
  static constexpr std::uint64_t windowNs = 50000000;
  // A number this far ahead of the next, or further behind than the other, is a jump: the sender
  // has begun anew, if the one behind it comes next.
  static constexpr int jumpAhead = 3000;
  static constexpr int behindMost = 100;
  // A jump ahead whose time stamp has gone on as the clock did, within this, is a loss.
  static constexpr std::int64_t agreeMs = 500;

  // The bytes are there during the call. cameNs: as it was taken with it; from one call to the
  // next it may fall.
  using Deliver =
      std::function<void(const std::uint8_t *payload, std::size_t size, std::uint64_t cameNs)>;
  explicit RtpSequence(Deliver deliver) : deliver_(std::move(deliver)) {}

  // A datagram's payload, and the time at which it came. An empty one takes its place, if it is one
  // of the sender heard now and not far away, and counts nowhere: its sequence number is not lost.
  void take(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
            std::uint64_t cameNs);

  // Gives up what was waited for long enough.
  void expire(std::uint64_t nowNs);

  // With a payload, taken and neither delivered nor dropped yet.
  std::size_t held() const { return held_ + (probe_ ? 1 : 0); }
  const RtpCounters &counters() const { return counters_; }
  // How often what is delivered has begun anew: another sender, or a jump that is no loss.
  std::uint64_t beginnings() const { return beginnings_; }

 private:
  static constexpr std::size_t historyMost = 128;
  static_assert(historyMost > behindMost);

  struct Slot {
    bool taken = false;
    std::vector<std::uint8_t> payload;
    std::uint64_t cameNs = 0;
  };
  struct Probe {
    RtpHeader header;
    std::vector<std::uint8_t> payload;
    std::uint64_t cameNs;
  };

  int ahead(std::uint16_t sequence) const;
  Slot &slot(std::uint16_t sequence) { return slots_[sequence % slots_.size()]; }
  void begin(std::uint16_t sequence);
  void beginSender(const RtpHeader &header);
  void place(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
             std::uint64_t cameNs);
  void keep(Slot &slot, const std::uint8_t *payload, std::size_t size, std::uint64_t cameNs);
  void tooLate(std::uint16_t sequence);
  void jump(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
            std::uint64_t cameNs);
  void confirmJump();
  bool isLoss(const Probe &probe) const;
  void dropProbe();
  void step();
  void release(Slot &slot);
  void releaseReady();
  void flush();
  std::uint64_t oldestNs() const;

  const Deliver deliver_;
  bool begun_ = false;
  std::uint32_t ssrc_ = 0;
  std::uint16_t next_ = 0;     // to be delivered
  std::uint16_t highest_ = 0;  // taken
  std::uint32_t timestamp_ = 0;
  std::uint64_t cameNs_ = 0;  // with the time stamp
  std::array<Slot, windowMost> slots_;
  std::size_t held_ = 0;
  std::bitset<historyMost> had_;  // of the numbers just gone by: delivered, not given up
  std::optional<Probe> probe_;
  RtpCounters counters_;
  std::uint64_t beginnings_ = 0;
};

}  // namespace chassis
