// Finds the packets in bytes that come piece by piece, from a file or a pipe.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ts/TsPacket.h"

namespace chassis {

constexpr std::uint8_t syncByte = 0x47;

// Packets have 188 bytes; in some streams four bytes of time stamp stand before each, in others 16
// check bytes behind it: from sync byte to sync byte there are 188, 192 or 204. Those bytes belong
// to the packets, and are passed with them.
//
// Packets go on for as long as each has its sync byte where the one before it lets expect it. Where
// it is missing, they go on at the next place from which five packets of one size in a row have
// one; where several sizes fit, that of the last packet is theirs, or else the smallest. At the end
// of all bytes three must do, or whatever is left when it is a number of whole packets behind
// others, of 188 bytes or of the size of the last. Bytes that begin like a packet of 188 and hold
// no more than a few begin with one; of the larger sizes they must be whole packets and nothing
// else.
class Resync {
 public:
  static constexpr std::size_t syncsInARow = 5;
  // With so many bytes there is always something to take or to pass.
  static constexpr std::size_t window = 4 + syncsInARow * 204;

  struct Step {
    std::size_t passed = 0;  // bytes to go past
    bool packet = false;     // the 188 bytes of a packet stand behind them, and are taken
  };

  // bytes: those behind the last packet and all that was passed, as many as are there. last: no
  // more will come; then they are all passed where there is no packet any more. Otherwise, without
  // a packet, more bytes are needed.
  Step next(const std::uint8_t *bytes, std::size_t size, bool last) {
    const std::size_t between = form_.size - tsPacketSize;
    if (inStep_ && size >= between + tsPacketSize && bytes[between] == syncByte) {
      return {between, true};
    }
    return search({bytes, size, last});
  }

  // Of what was passed, the bytes that belong to no packet. The last few are counted when it is
  // known whether they do.
  std::uint64_t skippedBytes() const {
    return skipped_ + (gap_ > mostBetween ? gap_ - mostBetween : 0);
  }

 private:
  // The bytes from one sync byte to the next, which of them stand around the packet, and how far
  // behind a sync byte there must not be another in each packet; 0: none.
  struct Form {
    std::size_t size;
    std::size_t before;
    std::size_t behind;
    std::size_t twins[4];
  };
  static constexpr Form forms[] = {{tsPacketSize, 0, 0, {}},
                                   {192, 4, 0, {3, 4, 192 / 3, 192 / 2}},
                                   {204, 0, 16, {204 / 17, 204 / 3, 204 / 2}}};
  static constexpr std::size_t mostBetween = 4 + 16;

  struct View {
    const std::uint8_t *bytes;
    std::size_t size;
    bool last;
  };

  static std::size_t row(const View &view, std::size_t offset, const Form &form);
  static bool hasTwin(const View &view, std::size_t offset, const Form &form);
  bool isLast(const View &view, std::size_t offset, const Form &form) const;
  bool begins(const View &view, std::size_t offset, const Form &form) const;
  const Form *formAt(const View &view, std::size_t offset) const;
  Step search(const View &view);
  Step take(std::size_t bytes, const Form &form);
  Step pass(std::size_t bytes, bool last);
  std::size_t ownBehind(const Form &next) const;

  bool inStep_ = false;  // the last step was a packet
  bool anyPacket_ = false;
  Form form_ = forms[0];       // of the last packet
  std::uint64_t gap_ = 0;      // bytes passed since the last packet
  std::uint64_t skipped_ = 0;  // before them
};

}  // namespace chassis
