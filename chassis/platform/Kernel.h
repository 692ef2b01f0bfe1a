// The kernel's functions of CiPlatform.h. The chassis is one task: nobody else can give a semaphore
// while it waits but the world that moves on the ticks of the chassis clock.
#pragma once

#include <cstdint>

#include "CiPlatform.h"
#include "kernel/Semaphore.h"

namespace chassis {

// Longest wait of a semTake "forever", in chassis time. Nothing that the chassis runs holds a
// semaphore for that long, so a longer wait would never end: it aborts with a message.
constexpr std::uint32_t longestWaitMs = 60000;

}  // namespace chassis
