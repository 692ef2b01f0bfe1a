// The faults that a person puts on PIDs of an incoming stream.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

#include "card/Card.h"
#include "ts/TsPacket.h"

namespace chassis {

class PidFaults {
 public:
  void set(PidFault fault, std::uint16_t pid, bool on);  // a PID above 0x1FFF: nothing
  void clear();

  // Does to a packet what its PID's faults do; false: it is lost.
  bool apply(TsPacket &packet);

 private:
  bool damage(TsPacket &packet, std::uint16_t pid);

  std::bitset<pidCount> dropped_;
  std::bitset<pidCount> damaged_;
  std::vector<std::uint8_t> turn_ = std::vector<std::uint8_t>(pidCount);  // counts to the lost one
};

}  // namespace chassis
