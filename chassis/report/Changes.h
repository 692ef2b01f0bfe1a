// What a status check of a card changed, in words.
#pragma once

#include <string>
#include <vector>

#include "Events.h"
#include "report/Findings.h"
#include "report/Words.h"

namespace chassis {

struct Change {
  Place place;
  std::string what;
  std::string why;
  Tone tone = Tone::Plain;
};

// What a person wants to know about the step from one finding of a card to the next: the card's
// controller, each CAM's fields, each program's state. Programs that share a change share a line.
std::vector<Change> changesBetween(const CardFinding &before, const CardFinding &now);

}  // namespace chassis
