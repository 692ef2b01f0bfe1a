// The alarms that stand, as plain text.
#pragma once

#include <string>
#include <vector>

#include "alarms/AlarmService.h"
#include "console/Layout.h"

namespace chassis {

// One line per alarm in the order in which they were raised, or one that says that none stands.
std::string standingAlarms(const std::vector<AlarmService::Alarm> &alarms, bool colour,
                           std::size_t width = anyWidth);

}  // namespace chassis
