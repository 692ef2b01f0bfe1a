#include "kernel/Clock.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "base/Units.h"
#include "kernel/Loop.h"

namespace chassis {

namespace {

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

Clock::Listening Clock::onTick(Listener listener) {
  auto listening = std::make_shared<const Listener>(std::move(listener));
  listeners_.push_back(listening);
  return listening;
}

void Clock::tellListeners() {
  for (const auto &entry : listeners_) {
    if (const Listening listener = entry.lock()) {
      (*listener)(elapsedMs_);
    }
  }
  const auto ended = [](const auto &entry) { return entry.expired(); };
  listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), ended), listeners_.end());
}

void Clock::advance(std::uint32_t ticks) {
  if (advancing_) {
    std::fprintf(stderr, "chassis clock: a tick listener lets time pass\n");
    std::abort();
  }
  advancing_ = true;
  for (std::uint32_t tick = 0; tick < ticks && !stopped_;) {
    keepPace();
    // Who waits for the real time may have found that the run is over.
    if (!stopped_) {
      const std::uint32_t due = ticksDue();
      tick += due;
      elapsedMs_ += std::uint64_t{due} * msPerTick;
      tellListeners();
    }
  }
  advancing_ = false;
}

void Clock::goLive() {
  live_ = true;
  setSpeed(1);
}

std::uint32_t Clock::ticksDue() {
  const std::uint64_t lateMs =
      live_ ? (Loop::nowNs() - std::min(Loop::nowNs(), dueNs())) / nsPerMs : 0;
  return lateMs < stallMs ? 1 : static_cast<std::uint32_t>(lateMs / msPerTick) + 1;
}

void Clock::setSpeed(double speed) {
  speed_ = live_ ? 1 : speed;
  paceFromMs_ = elapsedMs_;
  paceFromNs_ = 0;
}

void Clock::beginPace() {
  if (paceFromNs_ == 0) {
    paceFromNs_ = Loop::nowNs();
  }
}

std::uint64_t Clock::chassisNs(std::uint64_t realNs) {
  beginPace();
  return paceFromMs_ * nsPerMs + (realNs - std::min(realNs, paceFromNs_));
}

std::uint64_t Clock::realNs(std::uint64_t chassisNs) {
  beginPace();
  const std::uint64_t from = paceFromMs_ * nsPerMs;
  return paceFromNs_ + (chassisNs - std::min(chassisNs, from));
}

std::uint64_t Clock::dueNs() {
  beginPace();
  const double realMs = static_cast<double>(elapsedMs_ + msPerTick - paceFromMs_) / speed_;
  return paceFromNs_ + static_cast<std::uint64_t>(realMs * 1e6);
}

// Waits until the real time at which the next tick is due.
void Clock::keepPace() {
  const bool paced = speed_ > 0;
  if (wait_) {
    wait_(paced ? dueNs() : 0);
  } else if (paced) {
    sleepUntilNs(dueNs());
  }
}

}  // namespace chassis
