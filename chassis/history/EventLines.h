// Every event as a line of JSON, for programs (docs/events.schema.json).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/WallClock.h"
#include "event/Event.h"

namespace chassis {

// When an event happened, and which it is of a run.
struct EventStamp {
  std::uint64_t number = 0;     // from 1
  std::uint64_t chassisMs = 0;  // chassis time
  std::int64_t wallMs = 0;      // the machine's clock, since 1970 in UTC
};

// Without the line's end. What is not UTF-8 in a text is replaced by U+FFFD.
std::string eventLine(const Event &event, const EventStamp &stamp);

class EventLines : public Events {
 public:
  using Write = std::function<void(const std::string &line)>;

  // write: gets each line with its end, as the event happens. nowMs: chassis time.
  EventLines(Write write, std::function<std::uint64_t()> nowMs,
             std::function<std::int64_t()> wallMs = wallClockMs);

  void tell(const Event &event) override;

 private:
  const Write write_;
  const std::function<std::uint64_t()> nowMs_;
  const std::function<std::int64_t()> wallMs_;
  std::uint64_t number_ = 0;
};

}  // namespace chassis
