#include "kernel/Clock.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace chassis {

namespace {

constexpr std::uint64_t nsPerSecond = 1000000000;

std::uint64_t realNowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * nsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

void sleepUntilNs(std::uint64_t ns) {
  timespec until{};
  until.tv_sec = static_cast<time_t>(ns / nsPerSecond);
  until.tv_nsec = static_cast<long>(ns % nsPerSecond);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

}  // namespace

Clock::Clock(std::uint32_t startStamp, double speed) : startStamp_(startStamp), speed_(speed) {}

std::uint32_t Clock::stamp() const {
  return startStamp_ + static_cast<std::uint32_t>(elapsedMs_);
}

void Clock::onTick(std::function<void(std::uint64_t)> listener) {
  listeners_.push_back(std::move(listener));
}

void Clock::advance(std::uint32_t ticks) {
  if (advancing_) {
    std::fprintf(stderr, "chassis clock: a tick listener lets time pass\n");
    std::abort();
  }
  advancing_ = true;
  for (std::uint32_t tick = 0; tick < ticks; ++tick) {
    keepPace();
    elapsedMs_ += msPerTick;
    for (const auto &listener : listeners_) {
      listener(elapsedMs_);
    }
  }
  advancing_ = false;
}

// Waits until the real time at which the next tick is due.
void Clock::keepPace() {
  if (speed_ <= 0) {
    return;
  }
  if (realStartNs_ == 0) {
    realStartNs_ = realNowNs();
  }
  const double realMs = static_cast<double>(elapsedMs_ + msPerTick) / speed_;
  sleepUntilNs(realStartNs_ + static_cast<std::uint64_t>(realMs * 1e6));
}

}  // namespace chassis
