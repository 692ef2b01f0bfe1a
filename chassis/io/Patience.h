// How long somebody who takes nothing is waited for.
#pragma once

#include <chrono>
#include <cstdint>

namespace chassis {

class Patience {
 public:
  explicit Patience(int ms) : time_(ms) {}

  // progress: whatever changes with it. True: for so long there has been none, counted from the
  // first call.
  bool isUsedUp(std::uint64_t progress) {
    const Time::time_point now = Time::now();
    if (!begun_ || progress != progress_) {
      begun_ = true;
      progress_ = progress;
      since_ = now;
    }
    return now - since_ > time_;
  }

 private:
  using Time = std::chrono::steady_clock;

  std::chrono::milliseconds time_;
  bool begun_ = false;
  std::uint64_t progress_ = 0;
  Time::time_point since_;
};

}  // namespace chassis
