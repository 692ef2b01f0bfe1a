// Six card slots of two CAM slots each, what is in them, and what people do to them.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CiIf.h"
#include "cam/Cam.h"
#include "card/Card.h"
#include "cilib/CiLibrary.h"
#include "event/Event.h"
#include "io/Files.h"
#include "io/Ports.h"
#include "kernel/Clock.h"
#include "kernel/Loop.h"

namespace chassis {

// A slot or CAM slot that does not exist is a programming error of the caller; what people can get
// wrong throws InputError.
class Rack {
 public:
  // The loop: where outputs into networks wait for their time. The library is told of every CAM.
  Rack(Clock &clock, Events &events, Loop &loop, CiLibrary &library);
  Rack(const Rack &) = delete;
  Rack &operator=(const Rack &) = delete;

  // Called when a card has been put in, before anything else is done to it.
  void onCardInserted(std::function<void(std::uint32_t slot)> listener);
  // Called as Card's: the programs of a card that is in changed.
  void onProgramsChanged(const std::function<void(std::uint32_t slot)> &listener);

  // What people do to it. A card or CAM that is there already is replaced. A CAM that is named must
  // be there, and so must a program: these throw InputError.
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
  void output(std::uint32_t slot, const std::string &stream);  // a file, a pipe or an URL
  // All together, so that each lets go at its own time. What they have lost, a sentence each.
  std::vector<std::string> endOutputs();

  // Lets time pass for the cards, then for the CAMs; the library is its owner's.
  void tick(std::uint64_t nowMs);
  // Has the CAM of a receiver elsewhere follow what the programs carry now.
  void observe(std::uint32_t slot);

  Files &files() { return files_; }
  Ports &ports() { return ports_; }
  Card &card(std::uint32_t slot) { return *slots_[slot].card; }
  bool streamsEnded() const;  // those of all cards: played files of probes, pipes

 private:
  struct Slot {
    std::unique_ptr<Card> card;
    std::array<std::unique_ptr<Cam>, MAX_CAM_NUM> cams;
    Probe probe;
    std::uint16_t probedBy = 0;  // CA system; 0: none is known yet
  };

  Cam &cam(std::uint32_t slot, std::uint32_t cam);
  void goLive(const std::string &stream);
  bool outputsLetGo();
  Card::ProbeInputs probeInputs(std::uint32_t slot, const Probe &probe);
  void tellUnassigned(std::uint32_t slot, std::uint32_t cam, std::uint16_t program);

  Clock &clock_;
  Events &events_;
  Loop &loop_;
  CiLibrary &library_;
  Files files_;
  Ports ports_;
  std::array<Slot, MAX_BOARD_NUM> slots_;
  std::function<void(std::uint32_t slot)> cardInserted_ = [](std::uint32_t) {};
};

}  // namespace chassis
