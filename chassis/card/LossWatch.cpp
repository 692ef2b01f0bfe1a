#include "card/LossWatch.h"

#include <string>
#include <utility>
#include <vector>

#include "base/Text.h"

namespace chassis {

namespace {

struct Loss {
  std::uint64_t SourceCounters::*count;
  const char *fact;
  const char *unit;
  const char *where;
};

constexpr Loss losses[] = {
    {&SourceCounters::networkLost, "network", "datagram", " in the network"},
    {&SourceCounters::kernelLost, "kernel", "datagram", " at the socket, whose buffer was full"},
    {&SourceCounters::dropped, "dropped", "packet", " here, for want of room"},
};

Fact factOf(const Loss &loss, std::uint64_t lost) {
  return {loss.fact, Fact::Value(lost)};
}

}  // namespace

void LossWatch::start(std::uint64_t nowMs) {
  told_ = {};
  nextMs_ = nowMs;
}

std::optional<Event> LossWatch::step(std::uint64_t nowMs, const SourceCounters &counters) {
  if (nowMs < nextMs_) {
    return std::nullopt;
  }
  std::vector<std::string> parts;
  std::vector<Fact> facts;
  for (const Loss &loss : losses) {
    const std::uint64_t lost = counters.*loss.count - told_.*loss.count;
    if (lost > 0) {
      parts.push_back(std::to_string(lost) + " " + loss.unit + (lost == 1 ? "" : "s") + loss.where);
      facts.push_back(factOf(loss, lost));
    }
  }
  if (parts.empty()) {
    return std::nullopt;
  }
  told_ = counters;
  nextMs_ = nowMs + everyMs;
  return Event{EventKind::InputLost, {},       "packets of " + whose_ + " were lost", joined(parts),
               std::move(facts),     Tone::Bad};
}

}  // namespace chassis
