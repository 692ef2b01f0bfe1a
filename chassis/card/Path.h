// What lies between the two meters of a card: the CAMs that the packets flow through, or a receiver
// elsewhere that is only watched.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ts/TsPacket.h"

namespace chassis {

// For each step of time: beginStep, take for each packet, endStep.
class Path {
 public:
  virtual ~Path() = default;
  virtual void beginStep(std::size_t packets) = 0;  // so many will be taken at most
  // With the next packet the stream begins anew.
  virtual void beginAnew() = 0;
  // A packet that the meter in front has seen; with transport_error_indicator it counts nowhere.
  virtual void take(const TsPacket &packet, std::uint64_t cameNs) = 0;
  virtual void endStep() = 0;
  // Makes the meter behind what it is when nothing is put off.
  virtual void settle() = 0;
};

}  // namespace chassis
