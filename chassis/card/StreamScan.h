// What must be known of a stream file before it is played: a pass over the whole of it.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "base/LongWork.h"
#include "ts/Psi.h"
#include "ts/TsPacket.h"

namespace chassis {

struct StreamScan {
  std::unique_ptr<PsiReader> psi;  // as the file begins
  std::uint64_t bitrate = 0;       // bit/s, 1..maxBitrate
  std::uint64_t packets = 0;
  std::uint64_t skippedBytes = 0;
  std::bitset<pidCount> pids;  // of all packets
  struct PcrMark {
    std::uint64_t pcr = 0;     // in units of 27 MHz
    std::uint64_t packet = 0;  // so many packets before it
  };
  std::map<std::uint16_t, PcrMark> firstPcrs;  // by PID
  // What must be added to a PID's continuity_counter when the file starts again, so that it goes
  // on from where the file ended.
  std::array<std::uint8_t, pidCount> ccStep{};
};

constexpr std::uint64_t maxBitrate = 1000000000;

// bitrate 0: from the stream's PCRs. Throws InputError that names the file: not readable, empty, no
// transport stream, no PAT, no program with a PMT, no PCR and no bitrate, an impossible bitrate.
// Throws Interrupted when goOn says no.
StreamScan scanStream(const std::string &path, std::uint64_t bitrate, const GoOn &goOn = nullptr);

// What scanStream throws where the file does not tell its bitrate by its PCRs; empty: it does. No
// more is read than shows it. Throws Interrupted when goOn says no.
std::string bitrateTrouble(const std::string &path, const GoOn &goOn = nullptr);

// Throws InputError that names the file when what was read of it has no PAT or no program with a
// PMT.
void requirePrograms(const std::string &path, const PsiReader &psi);

}  // namespace chassis
