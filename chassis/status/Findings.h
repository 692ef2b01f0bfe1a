// What the module found out about a card, with the evidence behind it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CiIf.h"
#include "supervision/Chassis.h"

namespace chassis {

// Since the last CA PMT; none: there was none.
using CaPmtAgeMs = std::optional<std::uint64_t>;

// So long after a CA PMT a healthy CAM may not descramble yet: its ECMs come every second or so.
constexpr std::uint64_t beginningMs = 2000;

inline bool mayStillBegin(CaPmtAgeMs age) {
  return age && *age < beginningMs;
}

struct EcmFinding {
  std::uint16_t pid = nullPid;
  bool present = false;  // seen before the CAMs within the last presenceMs
  PidEvidence evidence;  // before the CAMs
};

struct PidFinding {
  std::uint16_t pid = nullPid;
  std::uint16_t streamType = 0;
  std::uint8_t status = DESC_STAT_UNKNOWN;
  std::uint8_t reply = 0;  // CA_enable of the CAM's last reply to a query; 0: none
  bool replyOld = false;   // it came before the last CA PMT
  std::vector<EcmFinding> ecms;
  PidEvidence before;
  PidEvidence behind;
};

struct ProgramFinding {
  std::uint16_t number = 0;
  std::uint8_t camMask = 0;
  std::uint8_t status = DESC_STAT_UNKNOWN;
  std::vector<PidFinding> pids;
  ProbeState probe = ProbeState::None;
  bool clear = false;                    // a CAM has it, though it has no CA descriptors
  CaPmtAgeMs caPmtAgeMs = std::nullopt;  // of the CAMs that have it
  ServiceName service = {};              // as the stream names it
};

struct CamFinding {
  std::uint8_t insert = 0xFF;
  std::uint16_t casid = 0xFF;
  std::uint8_t caPids = 0xFF;
  std::uint8_t descrambling = 0xFF;
  CaPmtAgeMs caPmtAgeMs = std::nullopt;
  std::uint32_t programs = 0;
  std::uint32_t clearPrograms = 0;  // among them
};

// Where a card's packets come from or go to.
struct StreamFinding {
  std::string name;  // as a person wrote it; empty: there is none
  bool live = false;
  bool silent = false;
  SourceCounters counters;
};

struct CardFinding {
  std::uint32_t slot = 0;
  StreamFinding input;
  std::optional<SourceCounters> countersBehind;  // of a probe
  std::string behindName;
  std::size_t unmatchedStreams = 0;  // the same: that do not come out
  bool unaligned = false;            // the same: two files without a time in common
  Card::OutputFigures output;
  std::uint64_t bitrate = 0;
  std::uint64_t transportErrors = 0;  // packets that were not read for that reason
  bool checked = false;  // else its stream and the numbers and names of its programs are known
  std::uint64_t takenMs = 0;
  std::uint8_t controller = 0xFF;
  std::array<CamFinding, MAX_CAM_NUM> cams;
  std::vector<ProgramFinding> programs;
};

constexpr std::uint64_t presenceMs = 2000;

// A card without a record or stream has no programs and nothing checked. It makes the card work:
// what waits for descrambling is descrambled. So the watch alone calls it.
CardFinding examine(Chassis &chassis, std::uint32_t slot);
// Of a card that the module has not checked yet. Nobody works for it.
CardFinding uncheckedFinding(const Card &card, std::uint32_t slot);

// The evidence behind a status, in words.
std::string evidenceText(const PidFinding &pid, std::uint64_t nowMs);
std::string ecmText(const EcmFinding &ecm, std::uint64_t nowMs);
std::string replyText(std::uint8_t reply, bool old);

}  // namespace chassis
