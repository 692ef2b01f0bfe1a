#include "io/FileSource.h"

#include <bitstream/mpeg/ts.h>

#include <utility>

#include "base/InputError.h"
#include "base/Units.h"
#include "ts/PacketView.h"

namespace chassis {

namespace {

constexpr std::uint64_t packetCost = tsPacketSize * 8 * 1000;

}  // namespace

FileSource::FileSource(const std::string &path, const Pace &pace, GoOn goOn)
    : file_(path, std::move(goOn)), pace_(pace), nowMs_(pace.startMs) {}

std::size_t FileSource::due(std::uint64_t nowMs) {
  if (nowMs <= nowMs_) {
    return waiting_;
  }
  credit_ += (nowMs - nowMs_) * pace_.bitrate;
  nowMs_ = nowMs;
  waiting_ += credit_ / packetCost;
  credit_ %= packetCost;
  return waiting_;
}

bool FileSource::read(TsPacket &packet) {
  if (file_.next(packet)) {
    return true;
  }
  if (pace_.repeat == Repeat::Once) {
    return false;
  }
  startAgain();
  return file_.next(packet);
}

// The next packet of the file, or of its begin.
bool FileSource::take(TsPacket &packet) {
  try {
    ended_ = !read(packet);
    unreadable_ = ended_ && pace_.repeat == Repeat::InALoop;
  } catch (const InputError &) {
    ended_ = unreadable_ = true;
  }
  waiting_ = ended_ ? 0 : waiting_ - 1;
  return !ended_;
}

bool FileSource::next(TsPacket &packet, std::uint64_t &cameNs) {
  if (waiting_ == 0 || !take(packet)) {
    return false;
  }
  ++counters_.packets;
  cameNs = nowMs_ * nsPerMs - (credit_ + waiting_ * packetCost) * nsPerMs / pace_.bitrate;
  if (!PacketView(packet).transportError()) {
    carryOn(packet);
  }
  return true;
}

void FileSource::carryOn(TsPacket &packet) {
  const PacketView view(packet);
  const std::uint16_t pid = view.pid();
  ts_set_cc(packet.data(),
            static_cast<std::uint8_t>(view.continuityCounter() + ccOffset_[pid]) & 0x0F);
  if (jumped_.test(pid) && view.pcr()) {
    jumped_.reset(pid);
    tsaf_set_discontinuity(packet.data());
  }
}

void FileSource::startAgain() {
  file_.rewind();
  jumped_.set();
  for (std::size_t pid = 0; pid < pidCount; ++pid) {
    ccOffset_[pid] = static_cast<std::uint8_t>((ccOffset_[pid] + pace_.ccStep[pid]) & 0x0F);
  }
}

}  // namespace chassis
