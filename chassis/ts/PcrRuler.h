// Measures how fast a stream goes by the clock references (PCR) of one PID.
#pragma once

#include <cstdint>

#include "ts/PacketView.h"
#include "ts/TsPacket.h"

namespace chassis {

// Sums up how many packets take how long, leaving out the jumps: those that are told, and steps of
// more than ten seconds.
class PcrRuler {
 public:
  static constexpr std::uint64_t longestStep = 10 * pcrHz;

  // A PCR, in ticks of 27 MHz, and where its packet stands: how many of all PIDs came before it.
  // jump: discontinuity_indicator.
  void add(std::uint64_t pcr, std::uint64_t packet, bool jump) {
    const std::uint64_t step = (pcr + pcrRange - pcr_) % pcrRange;
    if (known_ && !jump && step > 0 && step <= longestStep) {
      ticks_ += step;
      packets_ += packet - packet_;
    }
    known_ = true;
    pcr_ = pcr;
    packet_ = packet;
  }

  // Both 0 when there are too few PCRs.
  double bitrate() const { return perSecond(tsPacketSize * 8); }  // bit/s
  double packetsPerSecond() const { return perSecond(1); }

 private:
  double perSecond(std::uint64_t ofPacket) const {
    return ticks_ == 0 ? 0
                       : static_cast<double>(packets_) * static_cast<double>(ofPacket * pcrHz) /
                             static_cast<double>(ticks_);
  }

  bool known_ = false;
  std::uint64_t pcr_ = 0;
  std::uint64_t packet_ = 0;
  std::uint64_t ticks_ = 0;
  std::uint64_t packets_ = 0;
};

}  // namespace chassis
