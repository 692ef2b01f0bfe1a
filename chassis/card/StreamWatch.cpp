#include "card/StreamWatch.h"

#include <utility>

#include "base/Text.h"

namespace chassis {

void StreamWatch::start(std::uint64_t nowMs) {
  lastMs_ = nowMs;
  begun_ = silent_ = false;
}

Event StreamWatch::cameBack(std::uint64_t forMs) {
  silent_ = false;
  const std::string time = secondsText(forMs);
  if (!std::exchange(begun_, true)) {
    return {EventKind::StreamBegun, {}, whose_ + " has begun", "after " + time, {}, Tone::Good};
  }
  return {EventKind::StreamBack,  {},
          whose_ + " is back",    "after " + time + " without packets",
          {{"silent_ms", forMs}}, Tone::Good};
}

Event StreamWatch::fellSilent() const {
  const std::string why = "no packets for " + secondsText(silentMs);
  return {EventKind::StreamSilent,
          {},
          whose_ + " is silent",
          begun_ ? why : "nothing has come yet",
          {},
          Tone::Bad};
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
  return fellSilent();
}

}  // namespace chassis
