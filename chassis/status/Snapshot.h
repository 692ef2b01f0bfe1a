// The whole chassis at one time, for whoever tells of it: people, programs, scripts. Nothing in a
// snapshot changes any more, so it may be read at any time and wherever it is taken to, while the
// chassis goes on.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "alarms/AlarmService.h"
#include "cilib/CiLibrary.h"
#include "status/Findings.h"

namespace chassis {

// What the CI library has noted of a CAM slot.
struct CamNotes {
  bool inserted = false;
  std::vector<std::uint16_t> caSystems;  // in the CAM's ca_info
  CiLibrary::History history;
};
using CardCams = std::array<CamNotes, MAX_CAM_NUM>;
CardCams camsOf(const CiLibrary &library, std::uint32_t slot);

struct Snapshot {
  std::uint64_t takenMs = 0;  // chassis time
  // What the last check of each card found, at its own takenMs, with its outputs; null: no card is
  // in.
  std::array<std::shared_ptr<const CardFinding>, MAX_BOARD_NUM> cards;
  std::array<CardCams, MAX_BOARD_NUM> cams;  // as of takenMs, as the alarms
  std::vector<AlarmService::Alarm> alarms;   // that stand, in the order in which they were raised
};

}  // namespace chassis
