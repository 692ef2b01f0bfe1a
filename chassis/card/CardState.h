// The parts of a card; private to the files of Card in this folder.
#pragma once

#include <bitset>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "card/CamChain.h"
#include "card/Card.h"
#include "card/Fpga.h"
#include "card/LossWatch.h"
#include "card/MuxCardForm.h"
#include "card/PidFaults.h"
#include "card/ProbePath.h"
#include "card/SeamWatch.h"
#include "card/StreamWatch.h"
#include "card/Tables.h"
#include "io/PacketSource.h"
#include "ts/Psi.h"

namespace chassis {

struct Card::State {
  State(std::uint32_t slotNo, Events &receiver, Files &filesOfAll);

  void tell(Facts facts);
  void remove();

  // CardPrograms.cpp: the tables of the stream's programs
  void rebuildTables();
  std::uint8_t defaultMask(const PsiProgram &program) const;
  void takeNames();
  const ProgramInfo *find(std::uint16_t number) const;
  std::string nameOf(std::uint16_t number) const;
  CamMasks masksOf(const Psi &stream) const;
  void tellProgramsChanged();
  void tellChanged(const Psi &before);
  std::vector<std::uint16_t> programNumbers() const;
  std::string programList() const;

  // CardProbe.cpp: a receiver elsewhere
  bool isProbed(const PsiProgram &program) const;
  ProbeState probeStateOf(const PsiProgram &program) const;
  void followProbe();
  bool followSilentPrograms();
  void tellAbsent();

  // CardFlow.cpp: the packets
  Path &path();
  void step(std::uint64_t nowMs);
  std::size_t takeDuePackets();
  bool takeOne();
  void tellBroken();
  void tellTrouble(const PacketSink &output);
  void begin(std::unique_ptr<PacketSource> packets, const std::string &name, std::uint64_t nowMs);
  void beginLive(std::unique_ptr<PacketSource> packets, const std::string &name,
                 std::uint64_t nowMs);
  void watchLive(std::size_t came);
  void tellAtCard(std::optional<Event> event, Side side);
  bool stillLearning() const;
  void followPsi();

  const std::uint32_t slot;
  Events &events;
  Files &files;
  const std::string streamName;  // as the users of files are named
  const std::string outputName;
  Fpga fpga;
  PidFaults pidFaults;
  CamChain chain;
  OutputFigures endedOutput;
  std::unique_ptr<ProbePath> probe;  // while a receiver elsewhere is watched
  struct Probed {
    std::string behindName;
    std::vector<std::uint16_t> programs;  // that are to be judged; empty: all
    std::vector<std::uint16_t> absent;    // of those, when it was last told
    std::set<std::uint16_t> silent;       // they go in, but nothing of them comes out
    bool unaligned = false;
  };
  Probed probed;  // of that receiver
  std::function<void(std::uint32_t)> listener;

  std::uint32_t insertions = 0;

  // while a card is in
  std::unique_ptr<PacketSource> source;
  std::string sourceName;  // as a person wrote it
  bool live = false;       // what the stream carries is found out while it flows
  StreamWatch watch;       // of a live stream
  LossWatch losses;
  SeamWatch seams;
  std::uint64_t liveSinceMs = 0;
  std::unique_ptr<PsiReader> psi;
  std::uint32_t psiChanges = 0;   // of psi, when the tables were built
  Psi builtFrom;                  // what it told then
  std::uint32_t nameChanges = 0;  // of psi, when the names were taken
  std::bitset<pidCount> streamPids;
  std::uint64_t bitrate = 0;
  std::uint64_t transportErrors = 0;  // packets with transport_error_indicator
  bool unreadable = false;            // the stream's file went bad and that was told
  CamMasks masks;                     // as people gave them
  std::uint8_t othersMask = 0;        // of programs that are not among those
  std::vector<ProgramInfo> programs;
  CardTables nextTables{};  // follow the programs at once
  CardTables tables{};      // those that were published
};

}  // namespace chassis
