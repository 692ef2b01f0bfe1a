#include "card/StreamPlayer.h"

#include "ts/PacketView.h"

namespace chassis {

StreamPlayer::StreamPlayer(const std::string &path, std::uint64_t bitrate, const CcSteps &ccStep,
                           std::uint64_t startMs)
    : file_(path), bitrate_(bitrate), ccStep_(ccStep), lastMs_(startMs) {}

std::uint64_t StreamPlayer::due(std::uint64_t nowMs) {
  constexpr std::uint64_t packetCost = tsPacketSize * 8 * 1000;
  credit_ += (nowMs - lastMs_) * bitrate_;
  lastMs_ = nowMs;
  const std::uint64_t packets = credit_ / packetCost;
  credit_ %= packetCost;
  return packets;
}

bool StreamPlayer::next(TsPacket &packet) {
  if (!file_.next(packet)) {
    startAgain();
    if (!file_.next(packet)) {
      return false;
    }
  }
  const std::uint8_t offset = ccOffset_[PacketView(packet).pid()];
  packet[3] = static_cast<std::uint8_t>((packet[3] & 0xF0) | ((packet[3] + offset) & 0x0F));
  return true;
}

void StreamPlayer::startAgain() {
  file_.rewind();
  for (std::size_t pid = 0; pid < pidCount; ++pid) {
    ccOffset_[pid] = static_cast<std::uint8_t>((ccOffset_[pid] + ccStep_[pid]) & 0x0F);
  }
}

}  // namespace chassis
