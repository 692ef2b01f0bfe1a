// Tells of what a live stream has lost on its way: at once, then at most every so often.
#pragma once

#include <cstdint>
#include <optional>

#include "event/Event.h"
#include "io/PacketSource.h"

namespace chassis {

class LossWatch {
 public:
  static constexpr std::uint64_t everyMs = 10000;

  void start(std::uint64_t nowMs);
  // After each step of time. What there is to tell; its place is empty.
  std::optional<Event> step(std::uint64_t nowMs, const SourceCounters &counters);

 private:
  SourceCounters told_;
  std::uint64_t nextMs_ = 0;
};

}  // namespace chassis
