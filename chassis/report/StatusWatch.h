// Tells in the timeline what each status check of the module changed.
#pragma once

#include <array>

#include "report/Findings.h"
#include "report/Timeline.h"

namespace chassis {

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
