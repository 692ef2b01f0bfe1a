#include "card/PidMeter.h"

#include <algorithm>
#include <numeric>

namespace chassis {

namespace {

constexpr std::uint64_t secondMs = 1000;
constexpr std::uint64_t packetBits = tsPacketSize * 8;

// A PES header starts 00 00 01 stream_id; stream ids start at 0xBC (ISO/IEC 13818-1). A payload
// may end within these four bytes.
bool readsAsPes(const std::uint8_t *payload, std::size_t size) {
  constexpr std::uint8_t firstStreamId = 0xBC;
  constexpr std::array<std::uint8_t, 3> startCode = {0x00, 0x00, 0x01};
  const bool startsRight =
      std::equal(payload, payload + std::min(size, startCode.size()), startCode.begin());
  return startsRight && (size <= startCode.size() || payload[startCode.size()] >= firstStreamId);
}

}  // namespace

PidMeter::PidMeter() : pids_(pidCount), second_(pidCount), lastSecond_(pidCount) {}

void PidMeter::restart(std::uint64_t nowMs) {
  std::fill(pids_.begin(), pids_.end(), Pid{});
  std::fill(second_.begin(), second_.end(), 0);
  std::fill(lastSecond_.begin(), lastSecond_.end(), 0);
  present_.reset();
  secondEndMs_ = nowMs + secondMs;
}

void PidMeter::count(const TsPacket &packet, std::uint64_t nowMs) {
  if (countHeader(packet, nowMs)) {
    readPesStart(packet);
  }
}

bool PidMeter::countHeader(const TsPacket &packet, std::uint64_t nowMs) {
  const PacketView view(packet);
  const std::uint16_t number = view.pid();
  Pid &pid = pids_[number];
  present_.set(number);
  ++second_[number];
  ++pid.evidence.packets;
  pid.evidence.scrambled += view.scrambling() != 0 ? 1 : 0;
  pid.evidence.lastSeenMs = nowMs;
  if (number == nullPid) {
    return false;
  }
  checkContinuity(pid, view);
  if (view.payloadSize() == 0) {
    return false;
  }
  pid.evidence.lastScrambled = view.scrambling() != 0;
  return view.unitStart() && view.scrambling() == 0 && pesPids_.test(number);
}

void PidMeter::readPesStart(const TsPacket &packet) {
  const PacketView view(packet);
  pids_[view.pid()].evidence.lastPesBad =
      !readsAsPes(packet.data() + view.payloadOffset(), view.payloadSize());
}

// Only packets with a payload count up; one may come twice, and a discontinuity may be announced.
void PidMeter::checkContinuity(Pid &pid, const PacketView &view) {
  if (view.discontinuity()) {
    pid.ccKnown = false;
  }
  if (!view.hasPayload()) {
    return;
  }
  const std::uint8_t cc = view.continuityCounter();
  const bool again = pid.ccKnown && cc == pid.lastCc && !pid.duplicate;
  const bool next = cc == ((pid.lastCc + 1) & 0x0F);
  if (pid.ccKnown && !again && !next) {
    ++pid.evidence.ccErrors;
    pid.ccErrors = static_cast<std::uint16_t>(std::min(pid.ccErrors + 1, 0xFFFF));
  }
  pid.duplicate = again;
  pid.lastCc = cc;
  pid.ccKnown = true;
}

void PidMeter::tick(std::uint64_t nowMs) {
  for (; nowMs >= secondEndMs_; secondEndMs_ += secondMs) {
    lastSecond_.swap(second_);
    std::fill(second_.begin(), second_.end(), 0);
  }
}

bool PidMeter::present(std::uint16_t pid) const {
  return pid < pidCount && present_.test(pid);
}

std::uint16_t PidMeter::ccErrors(std::uint16_t pid) const {
  return pid < pidCount ? pids_[pid].ccErrors : 0;
}

void PidMeter::setCcErrors(std::uint16_t pid, std::uint16_t value) {
  if (pid < pidCount) {
    pids_[pid].ccErrors = value;
  }
}

void PidMeter::forgetContinuity(std::uint16_t pid) {
  if (pid < pidCount) {
    pids_[pid].ccKnown = false;
  }
}

void PidMeter::forgetContinuity() {
  for (Pid &pid : pids_) {
    pid.ccKnown = false;
  }
}

const PidEvidence &PidMeter::evidence(std::uint16_t pid) const {
  static const PidEvidence none;
  return pid < pidCount ? pids_[pid].evidence : none;
}

std::uint32_t PidMeter::rate(std::uint16_t first, std::uint16_t last) const {
  const std::size_t end = std::min<std::size_t>(last + std::size_t{1}, pidCount);
  std::uint64_t packets = 0;
  for (std::size_t pid = first; pid < end; ++pid) {
    packets += lastSecond_[pid];
  }
  return static_cast<std::uint32_t>(packets * packetBits / 1000);
}

}  // namespace chassis
