// What was found of every card, CAM, program and PID, and the alarms that stand, as JSON for
// programs (docs/status.schema.json).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "status/Snapshot.h"

namespace chassis {

// losses: what the outputs have lost, a sentence each. wallMs: the machine's clock, since 1970 in
// UTC. Indented, with an end of line.
std::string statusJson(const Snapshot &snapshot, const std::vector<std::string> &losses,
                       std::int64_t wallMs);

}  // namespace chassis
