// Tells as events what each status check of the module changed, and keeps what it found.
#pragma once

#include <array>

#include "status/Findings.h"

namespace chassis {

class StatusWatch {
 public:
  // Looks at a card after each of its checks. Chassis and receiver outlive the watch, and the
  // chassis does not run on without it.
  StatusWatch(Chassis &chassis, Events &events);

  // What the last check of the card that is in found; null: it has not been checked yet, or there
  // is none. Asking makes nobody work, so the answer is there at any time.
  const CardFinding *snapshot(std::uint32_t slot) const;

 private:
  void look(std::uint32_t slot);

  Chassis &chassis_;
  Events &events_;
  std::array<CardFinding, MAX_BOARD_NUM> last_;
  std::array<std::uint32_t, MAX_BOARD_NUM> insertions_{};  // of the card that was looked at last
};

}  // namespace chassis
