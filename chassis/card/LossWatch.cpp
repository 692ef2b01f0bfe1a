#include "card/LossWatch.h"

namespace chassis {

void LossWatch::start(std::uint64_t nowMs) {
  told_ = {};
  nextMs_ = nowMs;
}

std::optional<Event> LossWatch::step(std::uint64_t nowMs, const SourceCounters &counters) {
  const event::InputLost lost{counters.networkLost - told_.networkLost,
                              counters.kernelLost - told_.kernelLost,
                              counters.dropped - told_.dropped};
  if (nowMs < nextMs_ || !lost.any()) {
    return std::nullopt;
  }
  told_ = counters;
  nextMs_ = nowMs + everyMs;
  return Event{{}, lost};
}

}  // namespace chassis
