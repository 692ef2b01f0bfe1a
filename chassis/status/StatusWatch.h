// Follows the status checks of the module: tells as events what each of them changed, and keeps
// what it found. It alone looks at the cards, since a look makes them work; everybody else reads
// its snapshots.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "status/Snapshot.h"
#include "supervision/Chassis.h"

namespace chassis {

class StatusWatch {
 public:
  // Looks at a card after each of its checks. Chassis and receiver outlive the watch, and the
  // chassis does not run on without it.
  StatusWatch(Chassis &chassis, Events &events);

  // What is known now: of each card what its last check found, of a card that has not been checked
  // its programs alone; the alarms and what the CI library has noted as they are. Asking makes
  // nobody work, so the answer is there at any time, also within a cycle.
  std::shared_ptr<const Snapshot> snapshot() const;

  // The run is over: looks at every card that is in once more, since no check will tell what has
  // become of it. Tells no events.
  void lookAtLast();

 private:
  void look(std::uint32_t slot);
  void keep(std::uint32_t slot, CardFinding now);
  std::shared_ptr<const CardFinding> known(std::uint32_t slot) const;

  Chassis &chassis_;
  Events &events_;
  std::array<std::shared_ptr<const CardFinding>, MAX_BOARD_NUM> last_;
  std::array<std::uint32_t, MAX_BOARD_NUM> insertions_{};  // of the card that was looked at last
};

}  // namespace chassis
