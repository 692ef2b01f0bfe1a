// Keeps what is told, for tests of what tells it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "event/Event.h"
#include "status/EventWords.h"

namespace testing_events {

class RecordedEvents : public chassis::Events {
 public:
  // slot: where all of it must be; none: anywhere.
  explicit RecordedEvents(std::optional<int> slot = std::nullopt) : slot_(slot) {}

  void tell(const chassis::Event &event) override {
    EXPECT_EQ(event.place.slot, slot_.value_or(event.place.slot));
    const chassis::EventWords words = chassis::wordsOf(event);
    what.push_back(words.what);
    lines.push_back(words.what + ": " + words.why);
    places.push_back(event.place);
    all.push_back(event);
  }

  // Those whose words have this part.
  std::size_t count(const std::string &part) const {
    return static_cast<std::size_t>(std::count_if(
        what.begin(), what.end(),
        [&part](const std::string &words) { return words.find(part) != std::string::npos; }));
  }

  std::vector<std::string> what;
  std::vector<std::string> lines;  // with the reasons
  std::vector<chassis::Place> places;
  std::vector<chassis::Event> all;

 private:
  const std::optional<int> slot_;
};

}  // namespace testing_events
