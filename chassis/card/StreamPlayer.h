// Plays a stream file in a loop at a constant bitrate. Where it starts again, time in the stream
// jumps back: the first clock reference (PCR) of each PID says so by its discontinuity_indicator.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <string>

#include "ts/TsFile.h"
#include "ts/TsPacket.h"

namespace chassis {

class StreamPlayer {
 public:
  using CcSteps = std::array<std::uint8_t, pidCount>;

  // bitrate in bit/s, 1..10^9; ccStep by PID: what a further loop adds to the continuity_counter.
  // goOn: as TsFile's, which throws for it.
  StreamPlayer(const std::string &path, std::uint64_t bitrate, const CcSteps &ccStep,
               std::uint64_t startMs, GoOn goOn = nullptr);

  // How many packets have become due since the last call; nothing is lost to rounding.
  std::uint64_t due(std::uint64_t nowMs);

  // The next packet; behind the last one the file starts again. False when nothing can
  // be read, or the file not to its end.
  bool next(TsPacket &packet);

 private:
  bool take(TsPacket &packet);
  void startAgain();
  void carryOn(TsPacket &packet);

  TsFile file_;
  std::uint64_t bitrate_;
  CcSteps ccStep_;
  CcSteps ccOffset_{};
  std::bitset<pidCount> jumped_;  // PIDs that have not had a PCR since the file started again
  std::uint64_t lastMs_;
  std::uint64_t credit_ = 0;  // thousandths of a bit that no packet was given for
};

}  // namespace chassis
