// The machine's clock, for people and for other systems; chassis time decides.
#pragma once

#include <cstdint>
#include <string>

namespace chassis {

std::int64_t wallClockMs();  // now, since 1970 in UTC

// "2026-11-21T20:30:00.123Z"
std::string wallClockText(std::int64_t wallMs);

}  // namespace chassis
