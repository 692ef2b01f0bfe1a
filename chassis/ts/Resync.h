// Finds the packets in bytes that come piece by piece, from a file or a pipe.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ts/TsPacket.h"

namespace chassis {

constexpr std::uint8_t syncByte = 0x47;

// Packets stand one behind the other for as long as each begins with a sync byte. Where it is
// missing, they go on at the next place from which five packets in a row begin with one. At the end
// of all bytes three must do, or whatever is left when it is a number of whole packets behind
// others; and bytes whose very first is a sync byte begin with a packet when they are no more.
class Resync {
 public:
  static constexpr std::size_t syncsInARow = 5;
  // With so many bytes there is always something to take or to pass.
  static constexpr std::size_t window = syncsInARow * tsPacketSize;

  struct Step {
    std::size_t passed = 0;  // bytes to go past, in no packet
    bool packet = false;     // a whole packet stands behind them, and is taken
  };

  // bytes: those behind the last packet and all that was passed, as many as are there. last: no
  // more will come; then they are all passed where there is no packet any more. Otherwise, without
  // a packet, more bytes are needed.
  Step next(const std::uint8_t *bytes, std::size_t size, bool last) {
    if (inStep_ && size >= tsPacketSize && *bytes == syncByte) {
      return {0, true};
    }
    return search({bytes, size, last});
  }

  std::uint64_t skippedBytes() const { return skipped_; }  // passed so far

 private:
  struct View {
    const std::uint8_t *bytes;
    std::size_t size;
    bool last;
  };

  Step search(const View &view);
  bool startsPacket(const View &view, std::size_t offset) const;
  Step pass(std::size_t bytes, bool packet);

  bool inStep_ = false;  // the last step was a packet
  bool atStart_ = true;
  bool anyPacket_ = false;
  std::uint64_t skipped_ = 0;
};

}  // namespace chassis
