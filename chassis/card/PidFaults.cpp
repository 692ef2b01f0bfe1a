#include "card/PidFaults.h"

#include "ts/PacketView.h"

namespace chassis {

void PidFaults::set(PidFault fault, std::uint16_t pid, bool on) {
  if (pid < pidCount) {
    (fault == PidFault::Drop ? dropped_ : damaged_).set(pid, on);
    turn_[pid] = 0;
  }
}

void PidFaults::clear() {
  dropped_.reset();
  damaged_.reset();
}

bool PidFaults::apply(TsPacket &packet) {
  const std::uint16_t pid = PacketView(packet).pid();
  if (dropped_.test(pid)) {
    return false;
  }
  return !damaged_.test(pid) || damage(packet, pid);
}

bool PidFaults::damage(TsPacket &packet, std::uint16_t pid) {
  constexpr std::uint8_t lostTurn = 4;
  constexpr std::uint8_t flippedBits = 0x24;
  if (++turn_[pid] == lostTurn) {
    turn_[pid] = 0;
    return false;
  }
  for (std::size_t i = PacketView(packet).payloadOffset(); i < tsPacketSize; ++i) {
    packet[i] ^= flippedBits;
  }
  return true;
}

}  // namespace chassis
