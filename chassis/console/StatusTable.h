// The state of every program and PID of a card as a table of plain text.
#pragma once

#include <string>

#include "console/Layout.h"
#include "status/Snapshot.h"

namespace chassis {

// One row per PID: state, cause and the evidence behind them.
std::string statusTable(const CardFinding &card, bool colour, std::size_t width = anyWidth);

// One line per CAM that is in: its last CA PMT and its resets.
std::string camHistory(const CardCams &cams, std::size_t width = anyWidth);

}  // namespace chassis
