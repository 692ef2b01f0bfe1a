// The chassis: a rack, the CI library, the alarm service and the firmware that drives the module.
// Everything runs in one thread; time passes only inside run.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <vector>

#include "CiIf.h"
#include "alarms/AlarmService.h"
#include "card/Card.h"
#include "cilib/CiLibrary.h"
#include "event/Event.h"
#include "kernel/Clock.h"
#include "kernel/Loop.h"
#include "platform/Binding.h"
#include "rack/Rack.h"

namespace chassis {

// Work for certain times.
class Agenda {
 public:
  virtual ~Agenda() = default;
  // What happens to the chassis: all that is due by now. Called on every tick, so also while the
  // module pauses; it lets no time pass and calls nothing of the module but descIfRegist. What it
  // throws ends the run.
  virtual void runDue(std::uint64_t nowMs) = 0;
  // What asks the module: all that waits. Called in the supervision task, between two cycles; time
  // may pass.
  virtual void serve() {}
};

// One at a time: the module's platform functions find it by its Binding.
class Chassis {
 public:
  static constexpr std::uint64_t loadMs = 2000;   // until all cards are loaded
  static constexpr std::uint64_t cycleMs = 1000;  // between the starts of two short cycles

  // The loop: where outputs into networks wait for their time.
  Chassis(Clock &clock, Events &events, Loop &loop);
  ~Chassis();
  Chassis(const Chassis &) = delete;
  Chassis &operator=(const Chassis &) = delete;

  Rack &rack() { return rack_; }
  const Rack &rack() const { return rack_; }
  Card &card(std::uint32_t slot) { return rack_.card(slot); }
  void alarmFail(bool on);                                // the alarm service
  void tell(const Event &event) { events_.tell(event); }  // as one of the chassis's own

  // Boots on the first call: the agenda's first work, the start-up task, then the cycles, until
  // the chassis time has come or the run is stopped. A cycle that has begun is finished. Throws
  // what the agenda threw.
  void run(std::uint64_t untilMs, Agenda &agenda);
  // Stops the clock, also in a pause of the module: what is left of a cycle finds nothing out.
  void stop();
  bool booted() const { return booted_; }            // the start-up task is over
  bool supervising() const { return supervising_; }  // in the start-up task or in a cycle
  // Runs what is due in the agenda of the run that goes on; for who has got it between two ticks.
  void letHappen();

  // Called after each status check and alarm check of a card.
  void onChecked(std::function<void(std::uint32_t slot)> listener);

  // Called with each line that the module and the firmware print, as Binding's.
  [[nodiscard]] Printing onPrinted(PrintListener listener) {
    return binding_.onPrinted(std::move(listener));
  }

  const Clock &clock() const { return clock_; }
  const CiLibrary &library() const { return library_; }
  const AlarmService &alarms() const { return alarms_; }

 private:
  struct Slot {
    bool programsChanged = false;
    bool keepsAllFromCams = false;  // the pre-CAM switch, as it was last programmed
  };

  void tick(std::uint64_t nowMs);
  void boot();
  void serve();
  void cycle();
  void check(std::uint32_t slot);
  void takeOverPrograms(std::uint32_t slot);
  void filter(std::uint32_t slot);
  void filterAgainOnceReady(std::uint32_t slot);
  void advanceTo(std::uint64_t ms);

  Clock &clock_;
  Events &events_;
  CiLibrary library_;
  AlarmService alarms_;
  Rack rack_;
  std::array<Slot, MAX_BOARD_NUM> slots_;
  std::vector<std::function<void(std::uint32_t)>> checkedListeners_;
  Agenda *agenda_ = nullptr;  // while a run goes on
  std::exception_ptr failure_;
  bool booted_ = false;
  bool supervising_ = false;
  std::uint64_t nextCycleMs_ = 0;
  Binding binding_;
  Clock::Listening ticking_;
};

}  // namespace chassis
