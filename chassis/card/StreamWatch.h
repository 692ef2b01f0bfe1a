// Notices that a live stream begins, falls silent and comes back.
#pragma once

#include <cstdint>
#include <optional>

#include "event/Event.h"

namespace chassis {

class StreamWatch {
 public:
  static constexpr std::uint64_t silentMs = 1000;  // without a packet

  void start(std::uint64_t nowMs);
  // After each step of time: whether packets came in it. What there is to tell; its place is empty.
  std::optional<Event> step(std::uint64_t nowMs, bool came);
  bool silent() const { return silent_; }

 private:
  Event cameBack(std::uint64_t forMs);

  std::uint64_t lastMs_ = 0;  // of the last packets, or of the start
  bool begun_ = false;
  bool silent_ = false;
};

}  // namespace chassis
