#include "card/StreamPlayer.h"

#include <bitstream/mpeg/ts.h>

#include <utility>

#include "base/InputError.h"
#include "ts/PacketView.h"

namespace chassis {

StreamPlayer::StreamPlayer(const std::string &path, std::uint64_t bitrate, const CcSteps &ccStep,
                           std::uint64_t startMs, GoOn goOn)
    : file_(path, std::move(goOn)), bitrate_(bitrate), ccStep_(ccStep), lastMs_(startMs) {}

std::uint64_t StreamPlayer::due(std::uint64_t nowMs) {
  constexpr std::uint64_t packetCost = tsPacketSize * 8 * 1000;
  credit_ += (nowMs - lastMs_) * bitrate_;
  lastMs_ = nowMs;
  const std::uint64_t packets = credit_ / packetCost;
  credit_ %= packetCost;
  return packets;
}

// The next packet of the file, or of its begin.
bool StreamPlayer::take(TsPacket &packet) {
  try {
    if (file_.next(packet)) {
      return true;
    }
    startAgain();
    return file_.next(packet);
  } catch (const InputError &) {
    return false;
  }
}

bool StreamPlayer::next(TsPacket &packet) {
  if (!take(packet)) {
    return false;
  }
  if (!PacketView(packet).transportError()) {
    carryOn(packet);
  }
  return true;
}

void StreamPlayer::carryOn(TsPacket &packet) {
  const PacketView view(packet);
  const std::uint16_t pid = view.pid();
  ts_set_cc(packet.data(),
            static_cast<std::uint8_t>(view.continuityCounter() + ccOffset_[pid]) & 0x0F);
  if (jumped_.test(pid) && view.pcr()) {
    jumped_.reset(pid);
    tsaf_set_discontinuity(packet.data());
  }
}

void StreamPlayer::startAgain() {
  file_.rewind();
  jumped_.set();
  for (std::size_t pid = 0; pid < pidCount; ++pid) {
    ccOffset_[pid] = static_cast<std::uint8_t>((ccOffset_[pid] + ccStep_[pid]) & 0x0F);
  }
}

}  // namespace chassis
