#include "ts/Resync.h"

#include <cstring>

namespace chassis {
namespace {

// Less than these stand by chance in any bytes.
constexpr std::size_t fewSyncs = 3;

// The next sync byte from an offset on; end when there is none before it.
std::size_t nextSync(const std::uint8_t *bytes, std::size_t offset, std::size_t end) {
  const void *found = offset < end ? std::memchr(bytes + offset, syncByte, end - offset) : nullptr;
  return found == nullptr
             ? end
             : static_cast<std::size_t>(static_cast<const std::uint8_t *>(found) - bytes);
}

}  // namespace

// Whether packets in a row start here; the window from here on is there, but for the last bytes.
bool Resync::startsPacket(const View &view, std::size_t offset) const {
  const std::size_t rest = view.size - offset;
  std::size_t syncs = 0;
  for (std::size_t pos = 0; pos < rest && syncs < syncsInARow; pos += tsPacketSize, ++syncs) {
    if (view.bytes[offset + pos] != syncByte) {
      return false;
    }
  }
  const bool allBytes = atStart_ && offset == 0;
  const bool lastPackets = anyPacket_ && rest % tsPacketSize == 0;
  return syncs >= fewSyncs || allBytes || lastPackets;
}

Resync::Step Resync::pass(std::size_t bytes, bool packet) {
  skipped_ += bytes;
  inStep_ = packet;
  anyPacket_ = anyPacket_ || packet;
  atStart_ = atStart_ && bytes == 0 && !packet;
  return {bytes, packet};
}

Resync::Step Resync::search(const View &view) {
  const std::size_t needed = view.last ? tsPacketSize : window;
  if (view.size < needed) {
    return view.last ? pass(view.size, false) : Step{};
  }
  const std::size_t end = view.size - needed + 1;
  std::size_t offset = nextSync(view.bytes, 0, end);
  while (offset < end && !startsPacket(view, offset)) {
    offset = nextSync(view.bytes, offset + 1, end);
  }
  return offset < end ? pass(offset, true) : pass(view.last ? view.size : end, false);
}

}  // namespace chassis
