// The parts of a card; private to Card.cpp and CardFlow.cpp.
#pragma once

#include <array>
#include <bitset>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "card/Card.h"
#include "card/Fpga.h"
#include "card/MuxCardForm.h"
#include "card/PidFaults.h"
#include "card/StreamPlayer.h"
#include "card/Tables.h"
#include "io/LiveOutput.h"
#include "ts/Psi.h"

namespace chassis {

struct Card::State {
  State(std::uint32_t slotNo, Events &receiver, Files &filesOfAll);

  void tell(EventKind kind, const std::string &what, const std::string &why,
            std::vector<Fact> facts = {});
  void remove();

  // Card.cpp: the tables of the stream's programs
  void rebuildTables();
  void tellProgramsChanged();
  std::string changedPrograms(const Psi &before) const;
  std::vector<std::uint16_t> programNumbers() const;

  // CardFlow.cpp: the packets
  void step(std::uint64_t nowMs);
  void makeRoom(std::size_t packets);
  void takeDuePackets();
  void takeBroken(const TsPacket &packet);
  void passThroughCams();
  void passThrough(Cam &cam, const Cam *next);
  void deliver();
  void settle();
  void write();
  std::string endOutput();
  void tellTrouble();
  void followPsi();

  const std::uint32_t slot;
  Events &events;
  Files &files;
  const std::string streamName;  // as the users of files are named
  const std::string outputName;
  Fpga fpga;
  PidFaults pidFaults;
  std::array<Cam *, MAX_CAM_NUM> cams{};
  std::function<void(std::uint32_t)> listener;

  std::uint32_t insertions = 0;
  std::unique_ptr<LiveOutput> output;
  bool troubleTold = false;

  // while a card is in
  std::unique_ptr<StreamPlayer> player;
  std::unique_ptr<PsiReader> psi;
  std::uint32_t psiChanges = 0;  // of psi, when the tables were built
  Psi builtFrom;                 // what it told then
  std::bitset<pidCount> streamPids;
  std::uint64_t bitrate = 0;
  std::uint64_t transportErrors = 0;  // packets with transport_error_indicator
  bool unreadable = false;            // the stream's file went bad and that was told
  CamMasks masks;
  std::vector<ProgramInfo> programs;
  CardTables nextTables{};  // follow the programs at once
  CardTables tables{};      // those that were published

  // Packets that the CAMs may still be descrambling: those of the steps since anybody looked behind
  // the CAMs. They never move.
  std::vector<TsPacket> held;
  std::size_t stepBegin = 0;                // the first packet of this step
  std::vector<const TsPacket *> pesStarts;  // held ones that the meter behind the CAMs is to read
  std::vector<TsPacket *> throughCams;
};

}  // namespace chassis
