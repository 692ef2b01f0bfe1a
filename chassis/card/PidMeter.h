// What the FPGA counts of every PID at one point of a card: presence, continuity, rates, and what
// it sees in the packets.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

#include "card/Card.h"
#include "ts/PacketView.h"
#include "ts/TsPacket.h"

namespace chassis {

class PidMeter {
 public:
  PidMeter();

  // Forgets everything; the seconds of the rates are counted from here.
  void restart(std::uint64_t nowMs);

  // The PIDs whose PES starts are to be read: audio and video.
  void watchPes(const std::bitset<pidCount> &pids) { pesPids_ = pids; }

  // Packets in stream order; nowMs is the chassis time at which they pass, never falling.
  void count(const TsPacket &packet, std::uint64_t nowMs);
  // The same in two parts, for packets whose payload comes later: whether the second is needed.
  bool countHeader(const TsPacket &packet, std::uint64_t nowMs);
  void readPesStart(const TsPacket &packet);
  // Ends the seconds that are over; to be called after the packets of a time.
  void tick(std::uint64_t nowMs);

  // A PID above 0x1FFF was never present and cannot be set.
  bool present(std::uint16_t pid) const;  // since the flags were cleared
  void clearPresence() { present_.reset(); }
  std::uint16_t ccErrors(std::uint16_t pid) const;  // stays at 0xFFFF
  void setCcErrors(std::uint16_t pid, std::uint16_t value);
  // The next packet of a PID, or of each of them, is not held against the ones before it.
  void forgetContinuity(std::uint16_t pid);
  void forgetContinuity();
  const PidEvidence &evidence(std::uint16_t pid) const;

  // kbit/s over the last full second, 0 before its end; PIDs first to last, both included.
  std::uint32_t rate(std::uint16_t first, std::uint16_t last) const;
  std::uint32_t rateOfAll() const { return rate(0, nullPid); }
  std::uint32_t rateOfValid() const { return rate(0, nullPid - 1); }  // all but null packets

 private:
  struct Pid {
    PidEvidence evidence;
    std::uint16_t ccErrors = 0;
    std::uint8_t lastCc = 0;
    bool ccKnown = false;
    bool duplicate = false;  // the last packet with a payload was one
  };

  void checkContinuity(Pid &pid, const PacketView &view);

  std::vector<Pid> pids_;
  std::bitset<pidCount> present_;
  std::bitset<pidCount> pesPids_;
  std::vector<std::uint32_t> second_;      // packets by PID in the running second
  std::vector<std::uint32_t> lastSecond_;  // and in the last full one
  std::uint64_t secondEndMs_ = 0;
};

}  // namespace chassis
