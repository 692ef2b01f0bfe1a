// The history of a run as aligned plain text, one line as it happens:
// chassis time, slot and CAM, what happened, why.
#pragma once

#include <functional>
#include <ostream>
#include <set>
#include <string>

#include "console/Layout.h"
#include "event/Event.h"
#include "status/EventWords.h"

namespace chassis {

class Timeline : public Events {
 public:
  struct Config {
    bool colour = false;
    Width width;  // of the terminal; null: nothing is broken
  };

  // now: chassis time in milliseconds.
  Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now);

  // A line of the module's console that was printed already since the last other event is counted,
  // not shown; the count comes before the next other line.
  void tell(const Event &event) override;

  // Shows the count that is still held back.
  void flush();

 private:
  struct Line;
  void print(const std::string &printer, const EventWords &words);
  void write(const Line &line);

  std::ostream &out_;
  const Config config_;
  const std::function<std::uint64_t()> now_;
  std::set<std::string> printed_;  // since the last other event
  std::uint64_t lastPrintedMs_ = 0;
  std::uint64_t repeats_ = 0;
};

}  // namespace chassis
