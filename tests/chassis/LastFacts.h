// The facts of what was told last of a kind.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "event/Event.h"

namespace testing_events {

// None of them: a failure, and facts as they are made.
template <typename Kind>
Kind lastFacts(const std::vector<chassis::Event> &events) {
  const auto found = std::find_if(events.rbegin(), events.rend(), [](const chassis::Event &event) {
    return std::holds_alternative<Kind>(event.facts);
  });
  EXPECT_NE(found, events.rend()) << chassis::kindName(Kind::kind) << " was not told";
  return found != events.rend() ? std::get<Kind>(found->facts) : Kind();
}

}  // namespace testing_events
