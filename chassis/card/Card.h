// A card of the chassis: a transport stream from a file flows through its pre-CAM switch, its two
// CAMs, one behind the other, and out again; its FPGA counts and checks every PID before and after
// them. What the module sees of it is in CardDriver.h.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CiIf.h"
#include "CiPlatform.h"
#include "cam/Cam.h"
#include "card/MuxCardForm.h"
#include "card/PidMatch.h"
#include "event/Event.h"
#include "io/Files.h"
#include "io/PacketSink.h"
#include "io/PacketSource.h"
#include "ts/ServiceNames.h"
#include "ts/TsPacket.h"

namespace chassis {

// Faults that a person can put on a card.
enum class CardFault {
  Offline,    // GetCardOnline answers 0
  Busy,       // GetCardBusy answers 1
  NotReady,   // GetCardReady answers 0
  NoSync,     // cimax_sync_ok answers 0
  PllLost,    // PllLock answers 0
  FpgaError,  // rdDescStat answers 0xFF
  RateLow,    // cimax_sys_rate and its kin read a tenth of the true rate
  Masked      // CamAlarmMask answers 1, per CAM
};

// Faults of one PID of the incoming stream.
enum class PidFault {
  Drop,   // every packet is lost before the card
  Damage  // every packet's payload has bits flipped, and every fourth packet is lost
};

// Whether a program can be judged by what goes into somebody else's receiver and what comes out.
enum class ProbeState {
  None,           // no receiver is watched, or it is not asked for
  Learning,       // the programs behind are not known yet
  Judged,         // the module measures it
  MissingBehind,  // the programs behind are known, and it is not among them
  NothingBehind,  // it is among them, but none of its packets comes out
  SilentBefore,   // nothing goes in
  SilentBehind,   // nothing comes out
  SilentBoth
};

// One elementary stream or program as the stream's own PSI tells it.
struct StreamInfo {
  std::uint8_t streamType = 0;
  std::uint16_t pid = nullPid;
};
struct ProgramInfo {
  std::uint16_t number = 0;
  std::uint16_t pmtPid = nullPid;
  std::uint16_t pcrPid = nullPid;
  std::vector<StreamInfo> streams;
  std::uint8_t camMask = 0;  // bit n: assigned to CAM n
  ProbeState probe = ProbeState::None;
  ServiceName service;  // as the stream names it by now
};

// Evidence about one PID, on one side of the CAMs; never reset by the module.
struct PidEvidence {
  std::uint64_t packets = 0;
  std::uint64_t ccErrors = 0;
  std::uint64_t scrambled = 0;   // packets with transport_scrambling_control not 00
  bool lastScrambled = false;    // of the last packet with a payload
  bool lastPesBad = false;       // the last PES start did not read as a PES header
  std::uint64_t lastSeenMs = 0;  // chassis time of the last packet
};

class Card {
 public:
  // slot 0..5. Nothing flows until insert. files: what others read and write.
  Card(std::uint32_t slot, Events &events, Files &files);
  ~Card();  // without a word about its output: endOutput tells
  Card(const Card &) = delete;
  Card &operator=(const Card &) = delete;

  // Puts the card in with a stream; bitrate in bit/s, 0: from the stream's PCRs. Reads the whole
  // file's PSI first. Throws InputError that names the file: not readable, empty, no transport
  // stream, no PAT, no program with a PMT, no PCR and no bitrate. A card that was in is replaced,
  // unless this throws. Also: somebody writes the file.
  void insert(const std::string &path, std::uint64_t bitrate, std::uint64_t nowMs);
  // The same with a stream that is found out while it flows: the card starts without tables. The
  // name is as a person wrote it. What the source tells, it tells through tell.
  void insertLive(std::unique_ptr<PacketSource> source, const std::string &name,
                  std::uint64_t nowMs);
  // What goes into a receiver elsewhere and what comes out of it: live streams, or files that are
  // played once. Programs with CA descriptors are given to CAM 0, but those that are not behind.
  struct ProbeInputs {
    std::unique_ptr<PacketSource> before;
    std::unique_ptr<PacketSource> behind;
    std::string name;                     // as a person wrote it
    std::string behindName;               // the same
    ProgramNumbers numbers;               // behind, of those that the receiver renumbers
    std::vector<std::uint16_t> programs;  // that are judged; empty: all
    bool unaligned = false;               // two files without a time in common
  };
  void insertProbe(ProbeInputs inputs, std::uint64_t nowMs);
  bool probing() const;
  std::vector<std::uint16_t> probedCaSystems() const;  // of the programs that are judged, in order
  // Of the probe, as of a card: what comes behind, and whether the streams are over.
  const std::string &behindName() const;
  const SourceCounters &countersBehind() const;
  std::size_t unmatchedStreams() const;  // that do not come out, though their programs do
  bool unaligned() const;                // two files without a time in common
  bool ended() const;
  // For a source that is being made: tells as the card.
  Tell teller(Side side = Side::None);
  // Takes the card out; faults, masks and assignments go with it.
  void remove();
  bool inserted() const;
  std::uint32_t insertions() const;  // so many cards have been put in

  // Gives a program of the stream to CAMs by mask 0..3 (0: to none). Throws InputError that names
  // the program and lists those that there are; a live stream may carry it later. False: it does
  // not carry it yet.
  bool assign(std::uint16_t program, std::uint8_t camMask);
  // All programs, also those that come later.
  void assignAll(std::uint8_t camMask);

  void setFault(CardFault fault, bool on);
  void setAlarmMask(std::uint32_t camSlot, bool on);  // camSlot 0..1
  void setPidFault(PidFault fault, std::uint16_t pid, bool on);

  // The CAM in a slot, null for none; the card does not own it and uses it until the next call.
  void setCam(std::uint32_t camSlot, Cam *cam);

  // Where the stream behind the CAMs goes from now on, when the output before it has ended; the
  // user of the files is outputName.
  void setOutput(std::unique_ptr<PacketSink> output);
  const std::string &outputName() const;  // "the output of slot 0"
  // The output lets go of what it holds, as PacketSink's.
  bool letGoOutput();
  // Ends the output. What it has lost, in a sentence; empty: nothing.
  std::string endOutput();

  // Lets the packets flow that are due until nowMs (chassis time).
  void tick(std::uint64_t nowMs);

  // Called when the programs changed: by assign, or by the stream's own PSI. The tables for the
  // module and the firmware stay as they are until they are published.
  void onProgramsChanged(std::function<void(std::uint32_t slot)> listener);
  // Makes the tables follow the programs: never while the module works with them.
  void publishTables();

  // For people: what the stream carries, and evidence.
  const std::vector<ProgramInfo> &programs() const;
  // Throws InputError: the stream does not carry it. Null: a live one does not carry it now.
  const ProgramInfo *program(std::uint16_t number) const;
  // Empty: the stream does not carry the program, or tells no name.
  std::string programName(std::uint16_t number) const;
  std::uint64_t bitrate() const;  // bit/s; of a live stream over the last full second
  bool live() const;
  bool silent() const;                    // a live stream from which nothing comes
  const std::string &streamName() const;  // as a person wrote it; empty while no card is in
  const SourceCounters &counters() const;
  struct OutputFigures {
    std::string name;  // empty: there was none
    std::uint64_t packets = 0;
    std::uint64_t lostPackets = 0;
    std::optional<Lateness> lateness;  // of datagrams
  };
  OutputFigures output() const;           // of the last one, also when it has ended
  bool carries(std::uint16_t pid) const;  // anywhere in the stream, before any fault
  // Packets with transport_error_indicator since the card was put in. They come out as they went in
  // and count nowhere else, since nothing in their headers can be trusted.
  std::uint64_t transportErrors() const;
  const PidEvidence &before(std::uint16_t pid) const;  // before the CAMs
  const PidEvidence &behind(std::uint16_t pid) const;  // behind both CAMs

  // For the module, through CardDriver and the firmware: as they were last published.
  CiDesc *descTable();       // null while no card is in
  InPortForm *inPortForm();  // null while no card is in: CA systems and CA PIDs of PMTs and CAT
  MuxCardForm *muxForm();    // null while no card is in: all programs of the stream
  struct Fpga;               // figures and switches; CardDriver.cpp is its only user outside
  Fpga &fpga();              // up to date until the next tick

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace chassis
