// The kernel's objects that CiPlatform.h leaves open. The chassis is one task: nobody else can give
// a semaphore while it waits but the world that moves on the ticks of the chassis clock.
#pragma once

#include <cstdint>

#include "CiPlatform.h"

// A binary semaphore, created by defining it: semaphore flag; or, free at first, semaphore lock{1}.
// It must outlive every use of its address as a SEM_ID.
struct semaphore {
  int available = 0;  // 0 taken, 1 free
};

namespace chassis {

// Longest wait of a semTake "forever", in chassis time. Nothing that the chassis runs holds a
// semaphore for that long, so a longer wait would never end: it aborts with a message.
constexpr std::uint32_t longestWaitMs = 60000;

}  // namespace chassis
