#include "card/StreamWatch.h"

#include <utility>

namespace chassis {

void StreamWatch::start(std::uint64_t nowMs) {
  lastMs_ = nowMs;
  begun_ = silent_ = false;
}

Event StreamWatch::cameBack(std::uint64_t forMs) {
  silent_ = false;
  if (!std::exchange(begun_, true)) {
    return {{}, event::StreamBegun{{forMs}}};
  }
  return {{}, event::StreamBack{{forMs}}};
}

std::optional<Event> StreamWatch::step(std::uint64_t nowMs, bool came) {
  const std::uint64_t forMs = nowMs - lastMs_;
  if (came) {
    lastMs_ = nowMs;
    return !begun_ || silent_ ? std::optional<Event>(cameBack(forMs)) : std::nullopt;
  }
  if (silent_ || forMs < silentMs) {
    return std::nullopt;
  }
  silent_ = true;
  return Event{{}, event::StreamSilent{begun_, silentMs}};
}

}  // namespace chassis
