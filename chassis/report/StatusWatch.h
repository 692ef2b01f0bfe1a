// Tells in the timeline what each status check of the module changed.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "report/Findings.h"
#include "report/Timeline.h"

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

class StatusWatch {
 public:
  // Looks at a card after each of its checks. Chassis and timeline outlive the watch, and the
  // chassis does not run on without it.
  StatusWatch(Chassis &chassis, Timeline &timeline);

 private:
  void look(std::uint32_t slot);

  Chassis &chassis_;
  Timeline &timeline_;
  std::array<CardFinding, MAX_BOARD_NUM> last_;
};

}  // namespace chassis
