// The chassis at a glance, and what its console lists, as plain text.
#pragma once

#include <deque>
#include <string>

#include "alarms/AlarmService.h"
#include "console/Layout.h"
#include "status/Snapshot.h"

namespace chassis {

// One row per CAM slot of the cards that are in: CAM, CA systems, the status fields in words with
// their codes, alarms that stand, last CA PMT, last reset, and when the card was checked.
std::string overview(const Snapshot &snapshot, bool colour, std::size_t width = anyWidth);

// Every program and PID of a card with its evidence, and its CAMs' history. Throws InputError: no
// card is in the slot.
std::string cardDetail(const Snapshot &snapshot, std::uint32_t slot, bool colour,
                       std::size_t width = anyWidth);

// The alarms that stand, then those that stood, the last one last.
std::string alarmLists(const Snapshot &snapshot, const std::deque<AlarmService::Alarm> &history,
                       bool colour, std::size_t width = anyWidth);

}  // namespace chassis
