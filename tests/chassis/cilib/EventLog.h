// Keeps what the chassis reports.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "event/Event.h"

namespace chassis {

class EventLog : public Events {
 public:
  struct Line {
    Place place;
    std::string what;
    std::string why;
  };

  void tell(const Event &event) override {
    lines.push_back({event.place, event.what, event.why});
    if (event.tone == Tone::Alarm) {
      alerts.push_back(event.what);
    }
  }

  long count(const std::string &what) const {
    return std::count_if(lines.begin(), lines.end(),
                         [&](const Line &line) { return line.what == what; });
  }

  // The reason of the last line that says so; "(none)" when there is no such line.
  std::string why(const std::string &what) const {
    const auto line = std::find_if(lines.rbegin(), lines.rend(),
                                   [&](const Line &candidate) { return candidate.what == what; });
    return line != lines.rend() ? line->why : "(none)";
  }

  std::vector<Line> lines;
  std::vector<std::string> alerts;  // those that nobody may miss
};

}  // namespace chassis
