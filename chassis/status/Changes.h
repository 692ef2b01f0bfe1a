// What a status check of a card changed.
#pragma once

#include <string>
#include <vector>

#include "event/Event.h"
#include "status/Findings.h"

namespace chassis {

// What a person wants to know about the step from one finding of a card to the next: the card's
// controller, each CAM's fields, each program's state. Programs that share a change share a line.
std::vector<Event> changesBetween(const CardFinding &before, const CardFinding &now);

}  // namespace chassis
