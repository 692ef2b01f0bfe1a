// Keeps what the chassis reports.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "chassis/LastFacts.h"
#include "event/Event.h"
#include "status/EventWords.h"

namespace chassis {

class EventLog : public Events {
 public:
  struct Line {
    Place place;
    std::string what;
    std::string why;
  };

  void tell(const Event &event) override {
    const EventWords words = wordsOf(event);
    lines.push_back({event.place, words.what, words.why});
    all.push_back(event);
    if (words.tone == Tone::Alarm) {
      alerts.push_back(words.what);
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

  template <typename Kind>
  Kind last() const {
    return testing_events::lastFacts<Kind>(all);
  }

  std::vector<Line> lines;
  std::vector<Event> all;
  std::vector<std::string> alerts;  // those that nobody may miss
};

}  // namespace chassis
