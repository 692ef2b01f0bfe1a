#include "platform/Kernel.h"

#include <cstdio>
#include <cstdlib>

#include "kernel/Clock.h"

namespace {

constexpr int ok = 0;
constexpr int error = -1;
constexpr int waitForever = -1;

chassis::Clock *boundClock = nullptr;

int waitTicks(semaphore &sem, int ticks) {
  for (int waited = 0; waited < ticks; ++waited) {
    taskDelay(1);
    if (sem.take()) {
      return ok;
    }
  }
  return error;
}

int waitUntilFree(semaphore &sem) {
  constexpr int bound = chassis::longestWaitMs / chassis::Clock::msPerTick;
  if (waitTicks(sem, boundClock != nullptr ? bound : 0) == ok) {
    return ok;
  }
  if (boundClock != nullptr && boundClock->stopped()) {
    return error;
  }
  std::fprintf(stderr, "semTake: nobody gives the semaphore that the one task waits for\n");
  std::abort();
}

}  // namespace

namespace chassis {

void bindClock(Clock *clock) {
  boundClock = clock;
}

}  // namespace chassis

extern "C" {

int semTake(SEM_ID semId, int timeout) {
  if (semId == nullptr) {
    return error;
  }
  if (semId->take()) {
    return ok;
  }
  return timeout == waitForever ? waitUntilFree(*semId) : waitTicks(*semId, timeout);
}

int semGive(SEM_ID semId) {
  if (semId == nullptr) {
    return error;
  }
  semId->give();
  return ok;
}

int taskDelay(int ticks) {
  if (boundClock != nullptr && ticks > 0) {
    boundClock->advance(static_cast<std::uint32_t>(ticks));
  }
  return ok;
}

int sysClkRateGet(void) {
  return chassis::Clock::ticksPerSecond;
}

uint32_t OSTimeGet(void) {
  return boundClock != nullptr ? boundClock->stamp() : 0;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return OSTimeGet() - stamp;
}

}  // extern "C"
