#include "card/CamChain.h"

#include <algorithm>
#include <utility>

#include "base/Units.h"
#include "ts/PacketView.h"

namespace chassis {

namespace {

// So many packets fill most of the batches; more hardly help, but leave a processor's cache.
constexpr std::size_t heldMax = 8192;

}  // namespace

void CamChain::setCam(std::uint32_t camSlot, Cam *cam) {
  settle();
  cams_[camSlot] = cam;
}

void CamChain::setOutput(std::unique_ptr<PacketSink> output) {
  settle();
  output_ = std::move(output);
  troubleTold_ = false;
}

bool CamChain::letGoOutput() {
  settle();
  return output_ == nullptr || output_->letGo();
}

std::unique_ptr<PacketSink> CamChain::endOutput() {
  settle();
  if (output_ != nullptr) {
    output_->end();
    tellTrouble();
  }
  return std::move(output_);
}

void CamChain::beginStep(std::size_t packets) {
  if (held_.size() + packets > held_.capacity()) {
    settle();
    held_.reserve(std::max(packets, heldMax));
  }
  stepBegin_ = held_.size();
  seams_.clear();
}

void CamChain::take(const TsPacket &packet, std::uint64_t cameNs) {
  held_.push_back(packet);
  cameNs_.push_back(cameNs);
}

void CamChain::endStep() {
  passThroughCams();
  deliver();
}

// The CAMs work on the packets in their places, so those that go around them rejoin in order.
void CamChain::passThroughCams() {
  throughCams_.clear();
  for (std::size_t i = stepBegin_; i < held_.size(); ++i) {
    const PacketView view(held_[i]);
    if (!view.transportError() && fpga_.passing.test(view.pid())) {
      throughCams_.push_back(&held_[i]);
    }
  }
  for (std::size_t i = 0; i < cams_.size(); ++i) {
    if (cams_[i] != nullptr) {
      passThrough(*cams_[i], i + 1 < cams_.size() ? cams_[i + 1] : nullptr);
    }
  }
}

void CamChain::passThrough(Cam &cam, const Cam *next) {
  cam.process(throughCams_.data(), throughCams_.size(), fpga_.nowMs);
  if (next != nullptr && cam.mustSettleBefore(*next)) {
    cam.settle();
  }
}

void CamChain::deliver() {
  auto seam = seams_.begin();
  for (std::size_t i = stepBegin_; i < held_.size(); ++i) {
    if (seam != seams_.end() && *seam <= i) {
      fpga_.behind.forgetContinuity();
      ++seam;
    }
    const bool read = !PacketView(held_[i]).transportError();
    if (read && fpga_.behind.countHeader(held_[i], fpga_.nowMs)) {
      pesStarts_.push_back(&held_[i]);
    }
  }
  if (outputWaits()) {
    settle();
  }
}

// Cards whose streams began together would all descramble in the same tick, and all datagrams of
// that time would leave late. So each has its turn within the time that its output is patient.
bool CamChain::outputWaits() const {
  return output_ != nullptr && !held_.empty() &&
         (output_->patienceMs() == 0 || turn(cameNs_.front()) < turn(fpga_.nowMs * nsPerMs));
}

std::uint64_t CamChain::turn(std::uint64_t ns) const {
  const std::uint64_t patienceNs = output_->patienceMs() * nsPerMs;
  return (ns + slot_ * patienceNs / MAX_BOARD_NUM) / patienceNs;
}

void CamChain::settle() {
  if (held_.empty()) {
    return;
  }
  for (Cam *cam : cams_) {
    if (cam != nullptr) {
      cam->settle();
    }
  }
  for (const TsPacket *packet : pesStarts_) {
    fpga_.behind.readPesStart(*packet);
  }
  write();
  pesStarts_.clear();
  held_.clear();
  cameNs_.clear();
}

void CamChain::write() {
  if (output_ != nullptr) {
    output_->write(held_.data(), cameNs_.data(), held_.size());
    tellTrouble();
  }
}

void CamChain::tellTrouble() {
  if (!output_->trouble().empty() && !std::exchange(troubleTold_, true)) {
    onTrouble_(*output_);
  }
}

}  // namespace chassis
