// The chassis: six card slots of two CAM slots each, the CI library and the firmware that drives
// the module. Everything runs in one thread; time passes only inside run.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CiIf.h"
#include "alarms/AlarmService.h"
#include "cam/Cam.h"
#include "card/Card.h"
#include "cilib/CiLibrary.h"
#include "event/Event.h"
#include "io/Files.h"
#include "io/Ports.h"
#include "kernel/Clock.h"
#include "kernel/Loop.h"
#include "platform/Binding.h"

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

// One at a time: the module's platform functions find it by its Binding. A slot or CAM slot that
// does not exist is a programming error of the caller; what people can get wrong throws InputError.
class Chassis {
 public:
  static constexpr std::uint64_t loadMs = 2000;   // until all cards are loaded
  static constexpr std::uint64_t cycleMs = 1000;  // between the starts of two short cycles

  // The loop: where outputs into networks wait for their time.
  Chassis(Clock &clock, Events &events, Loop &loop);
  ~Chassis();
  Chassis(const Chassis &) = delete;
  Chassis &operator=(const Chassis &) = delete;

  // What people do to a chassis. A card or CAM that is there already is replaced. A CAM that is
  // named must be there, and so must a program: these throw InputError.
  // stream: a file, which is played in a loop (bitrate in bit/s, 0: from its PCRs), or an URL or a
  // pipe, which comes at its own and has chassis time go at the machine's clock.
  void cardInsert(std::uint32_t slot, const std::string &stream, std::uint64_t bitrate);
  // A receiver elsewhere: what goes into it and what comes out of it are streams. Two files are
  // played once, aligned by their PCRs.
  struct Probe {
    std::string before;
    std::string behind;
    ProgramNumbers numbers;                // behind, of programs that the receiver renumbers
    std::vector<std::uint16_t> programs;   // that are judged; empty: all that have CA descriptors
    std::vector<std::uint16_t> caSystems;  // of its CAM; empty: the first that the programs carry
    std::function<void()> onReset;         // the module would reset its CAM
  };
  void probeInsert(std::uint32_t slot, const Probe &probe);
  void cardRemove(std::uint32_t slot);  // with its CAMs
  void camInsert(std::uint32_t slot, std::uint32_t cam, const std::vector<std::uint16_t> &casids);
  void camRemove(std::uint32_t slot, std::uint32_t cam);
  void progAssign(std::uint32_t slot, std::uint16_t program, std::uint8_t camMask);
  void progAssignAll(std::uint32_t slot, std::uint8_t camMask);  // also programs that come later
  void camEntitle(std::uint32_t slot, std::uint32_t cam, std::uint16_t program, bool on);
  void camRefuse(std::uint32_t slot, std::uint32_t cam, std::uint16_t program, bool on);
  void camFault(std::uint32_t slot, std::uint32_t cam, CamFault fault, bool on);
  void cardFault(std::uint32_t slot, CardFault fault, bool on);
  void pidFault(std::uint32_t slot, PidFault fault, std::uint16_t pid, bool on);
  void alarmMask(std::uint32_t slot, std::uint32_t cam, bool on);
  void alarmFail(bool on);                                     // the alarm service
  void tell(const Event &event) { events_.tell(event); }       // as one of the chassis's own
  void output(std::uint32_t slot, const std::string &stream);  // a file, a pipe or an URL
  std::vector<std::string> endOutputs();  // what they have lost, a sentence each

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
    return binding_->onPrinted(std::move(listener));
  }

  const Clock &clock() const { return clock_; }
  Files &files() { return files_; }
  Ports &ports() { return ports_; }
  Card &card(std::uint32_t slot) { return *slots_[slot].card; }
  bool streamsEnded() const;  // those of all cards: played files of probes, pipes
  const CiLibrary &library() const { return library_; }
  const AlarmService &alarms() const { return alarms_; }

 private:
  struct Slot {
    std::unique_ptr<Card> card;
    std::array<std::unique_ptr<Cam>, MAX_CAM_NUM> cams;
    bool programsChanged = false;
    Probe probe;
    std::uint16_t probedBy = 0;     // CA system; 0: none is known yet
    bool keepsAllFromCams = false;  // the pre-CAM switch, as it was last programmed
  };

  Cam &cam(std::uint32_t slot, std::uint32_t cam);
  void goLive(const std::string &stream);
  Card::ProbeInputs probeInputs(std::uint32_t slot, const Probe &probe);
  void observe(std::uint32_t slot);
  void tellObserved(std::uint32_t slot, const std::vector<std::uint16_t> &carried);
  void tellUnassigned(std::uint32_t slot, std::uint32_t cam, std::uint16_t program);
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
  Files files_;
  Ports ports_;
  CiLibrary library_;
  AlarmService alarms_;
  std::array<Slot, MAX_BOARD_NUM> slots_;
  std::vector<std::function<void(std::uint32_t)>> checkedListeners_;
  Agenda *agenda_ = nullptr;  // while a run goes on
  std::exception_ptr failure_;
  bool booted_ = false;
  bool supervising_ = false;
  std::uint64_t nextCycleMs_ = 0;
  std::optional<Binding> binding_;
  Clock::Listening ticking_;
};

}  // namespace chassis
