// The chassis at a glance, and what its console lists, as plain text. All of it is what the last
// check of each card found, and what the CI library and the alarm service noted.
#pragma once

#include <string>

#include "alarms/AlarmService.h"
#include "console/Layout.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

namespace chassis {

// One row per CAM slot of the cards that are in: CAM, CA systems, the status fields in words with
// their codes, alarms that stand, last CA PMT, last reset, and when the card was checked.
std::string overview(Chassis &chassis, const StatusWatch &watch, bool colour,
                     std::size_t width = anyWidth);

// Every program and PID of a card with its evidence, and its CAMs' history. Throws InputError: no
// card is in the slot.
std::string cardDetail(Chassis &chassis, const StatusWatch &watch, std::uint32_t slot, bool colour,
                       std::size_t width = anyWidth);

// The alarms that stand, then those that stood, the last one last.
std::string alarmLists(const AlarmService &alarms, bool colour, std::size_t width = anyWidth);

}  // namespace chassis
