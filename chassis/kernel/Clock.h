// Chassis time. It advances only when somebody asks it to, one kernel tick at a time, and every
// tick lets the world move: streams flow, CAMs work. A run is therefore deterministic, whatever
// the speed at which it is played.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace chassis {

class Clock {
 public:
  static constexpr std::uint32_t ticksPerSecond = 100;
  static constexpr std::uint32_t msPerTick = 1000 / ticksPerSecond;

  // startStamp: the 32-bit millisecond stamp at elapsed time 0, anywhere, also just before its
  // wrap. speed: chassis seconds per real second; 0 as fast as it can.
  explicit Clock(std::uint32_t startStamp = 0, double speed = 0);

  std::uint64_t elapsedMs() const { return elapsedMs_; }  // since the chassis started
  std::uint32_t stamp() const;                            // what OSTimeGet answers

  // Called on every tick, in the order of registration, with elapsedMs() already advanced, for as
  // long as its owner keeps what this returns.
  using Listener = std::function<void(std::uint64_t elapsedMs)>;
  using Listening = std::shared_ptr<const Listener>;
  [[nodiscard]] Listening onTick(Listener listener);

  // From now on; time that the run has fallen behind the real clock is not caught up.
  void setSpeed(double speed);
  double speed() const { return speed_; }
  void forgetDelay() { setSpeed(speed_); }  // the same at the same speed

  // From now on chassis time is real time, at speed 1: after a stall it jumps, in one tick, and
  // what was due meanwhile is due then. For good.
  void goLive();
  bool live() const { return live_; }
  static constexpr std::uint64_t stallMs =
      200;  // what is later than this is not caught up in steps

  // What waits for the real time, in ns of CLOCK_MONOTONIC, at which a tick is due: called before
  // each tick, with 0 when the clock goes as fast as it can. It may return early: the tick then
  // comes early. Null, as at the start: sleeps.
  using Wait = std::function<void(std::uint64_t dueNs)>;
  void setWait(Wait wait) { wait_ = std::move(wait); }

  // At speed 1: the chassis time in ns at a real time in ns of CLOCK_MONOTONIC, and back. What lies
  // before the pace began is at its begin.
  std::uint64_t chassisNs(std::uint64_t realNs);
  std::uint64_t realNs(std::uint64_t chassisNs);

  // Lets a number of ticks pass; at a speed above 0 it keeps the pace of the real clock.
  // Reentrant calls (a listener that delays) are a programming error and abort.
  void advance(std::uint32_t ticks);

  // The run is over: from now on time stands still, and who waits for it is back at once. So a run
  // ends at its time also in the middle of a pause of the module.
  void stop() { stopped_ = true; }
  bool stopped() const { return stopped_; }

 private:
  void keepPace();
  std::uint32_t ticksDue();
  void tellListeners();
  std::uint64_t dueNs();
  void beginPace();

  std::uint32_t startStamp_;
  double speed_;
  Wait wait_;
  std::uint64_t elapsedMs_ = 0;
  std::uint64_t paceFromMs_ = 0;  // the pace is kept from this chassis time on,
  std::uint64_t paceFromNs_ = 0;  // which was at this real time; 0: not begun
  bool advancing_ = false;
  bool stopped_ = false;
  bool live_ = false;
  std::vector<std::weak_ptr<const Listener>> listeners_;
};

}  // namespace chassis
