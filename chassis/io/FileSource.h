// Plays a stream file at a constant bitrate, in a loop or once. Where it starts again, time in the
// stream jumps back: the first clock reference (PCR) of each PID says so by its
// discontinuity_indicator.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <string>

#include "io/PacketSource.h"
#include "ts/TsFile.h"
#include "ts/TsPacket.h"

namespace chassis {

class FileSource : public PacketSource {
 public:
  using CcSteps = std::array<std::uint8_t, pidCount>;
  enum class Repeat { InALoop, Once };

  struct Pace {
    std::uint64_t bitrate = 1;  // bit/s, 1..10^9
    CcSteps ccStep{};           // by PID: what a further loop adds to the continuity_counter
    std::uint64_t startMs = 0;  // chassis time, which may be to come
    Repeat repeat = Repeat::InALoop;
  };

  // Throws as TsFile does; goOn: as TsFile's, which throws for it.
  FileSource(const std::string &path, const Pace &pace, GoOn goOn = nullptr);

  // Those whose last bit is due; nothing is lost to rounding. They stay until they are taken.
  std::size_t due(std::uint64_t nowMs) override;
  // Behind the last one of a loop the file starts again.
  bool next(TsPacket &packet, std::uint64_t &cameNs) override;
  bool ended() const override { return ended_; }
  // The file could not be read to its end, or any more.
  bool unreadable() const { return unreadable_; }
  const SourceCounters &counters() const override { return counters_; }

 private:
  bool take(TsPacket &packet);
  bool read(TsPacket &packet);
  void startAgain();
  void carryOn(TsPacket &packet);

  TsFile file_;
  const Pace pace_;
  CcSteps ccOffset_{};
  std::bitset<pidCount> jumped_;  // PIDs that have not had a PCR since the file started again
  std::uint64_t nowMs_;
  std::uint64_t credit_ = 0;  // thousandths of a bit that no packet was given for
  std::uint64_t waiting_ = 0;
  bool ended_ = false;
  bool unreadable_ = false;
  SourceCounters counters_;
};

}  // namespace chassis
