#include "platform/Kernel.h"

#include <cstdio>
#include <cstdlib>

#include "kernel/Clock.h"
#include "platform/Binding.h"

namespace {

constexpr int ok = 0;
constexpr int error = -1;
constexpr int waitForever = -1;

chassis::Clock *boundClock() {
  return chassis::Binding::parts().clock;
}

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
  const chassis::Clock *clock = boundClock();
  constexpr int bound = chassis::longestWaitMs / chassis::Clock::msPerTick;
  if (waitTicks(sem, clock != nullptr ? bound : 0) == ok) {
    return ok;
  }
  if (clock != nullptr && clock->stopped()) {
    return error;
  }
  std::fprintf(stderr, "semTake: nobody gives the semaphore that the one task waits for\n");
  std::abort();
}

}  // namespace

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
  chassis::Clock *clock = boundClock();
  if (clock != nullptr && ticks > 0) {
    clock->advance(static_cast<std::uint32_t>(ticks));
  }
  return ok;
}

int sysClkRateGet(void) {
  return chassis::Clock::ticksPerSecond;
}

uint32_t OSTimeGet(void) {
  const chassis::Clock *clock = boundClock();
  return clock != nullptr ? clock->stamp() : 0;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return OSTimeGet() - stamp;
}

}  // extern "C"
