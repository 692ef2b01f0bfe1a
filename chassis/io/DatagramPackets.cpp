#include "io/DatagramPackets.h"

#include <algorithm>

#include "base/Text.h"
#include "ts/Resync.h"

namespace chassis {
namespace {

bool isPackets(const std::uint8_t *bytes, std::size_t size) {
  return size > 0 && size % tsPacketSize == 0 && bytes[0] == syncByte;
}

}  // namespace

void DatagramPackets::take(const std::uint8_t *bytes, std::size_t size, bool cut,
                           std::uint64_t cameNs) {
  ++counters_.datagrams;
  const auto rtp = readRtp(bytes, size);
  if (rtp && rtp->payloadType == rtpPayloadTypeTs) {
    takeRtp(*rtp, bytes, size, cut, cameNs);
  } else if (cut) {
    refuse({event::ForeignReason::Cut, size, 0});
  } else if (isPackets(bytes, size)) {
    push(bytes, size, cameNs);
  } else {
    const unsigned first = size > 0 ? bytes[0] : 0;
    refuse(rtp ? event::ForeignDatagram{event::ForeignReason::PayloadType, size, rtp->payloadType}
               : event::ForeignDatagram{event::ForeignReason::Noise, size, first});
  }
  count();
}

// What cannot be used has come all the same: nobody shall wait for it.
void DatagramPackets::takeRtp(const RtpHeader &rtp, const std::uint8_t *bytes, std::size_t size,
                              bool cut, std::uint64_t cameNs) {
  const std::uint8_t *payload = bytes + rtp.payloadBegin;
  const bool good = !cut && isPackets(payload, rtp.payloadSize);
  if (!good) {
    refuse({cut ? event::ForeignReason::Cut : event::ForeignReason::Payload, size, 0});
  }
  sequence_.take(rtp, payload, good ? rtp.payloadSize : 0, cameNs);
}

void DatagramPackets::refuse(const event::ForeignDatagram &foreign) {
  ++counters_.foreign;
  foreign_ = foreign;
}

void DatagramPackets::push(const std::uint8_t *bytes, std::size_t size, std::uint64_t cameNs) {
  cameNs_ = std::max(cameNs_, cameNs);
  for (std::size_t at = 0; at < size; at += tsPacketSize) {
    pushPacket(bytes + at);
  }
}

void DatagramPackets::pushPacket(const std::uint8_t *bytes) {
  if (bytes[0] != syncByte) {
    counters_.skippedBytes += tsPacketSize;
  } else if (size() >= packetsMost_) {
    ++counters_.dropped;
  } else {
    Packet &packet = waiting_.emplace_back();
    std::copy_n(bytes, tsPacketSize, packet.bytes.begin());
    packet.cameNs = cameNs_;
    packet.beginnings = sequence_.beginnings();
  }
}

bool DatagramPackets::next(TsPacket &packet, std::uint64_t &cameNs) {
  if (size() == 0) {
    return false;
  }
  packet = waiting_[first_].bytes;
  cameNs = waiting_[first_].cameNs;
  beginnings_ = waiting_[first_].beginnings;
  ++counters_.packets;
  ++first_;
  // Mostly all are taken; where not, each is moved about once.
  if (first_ > size()) {
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
  }
  return true;
}

void DatagramPackets::countNetworkLost(std::uint64_t gaps) {
  const std::uint64_t fresh = gaps - gaps_;
  const std::uint64_t kernels = std::min(fresh, kernelGaps_);
  gaps_ = gaps;
  kernelGaps_ -= kernels;
  counters_.networkLost += fresh - kernels;
}

void DatagramPackets::countKernelLost(std::uint64_t datagrams) {
  counters_.kernelLost += datagrams;
  kernelGaps_ += datagrams;
  kernelNs_ = 0;
}

// What the kernel has lost need not have been of a sequence: what has left no gap in time leaves
// none.
void DatagramPackets::expire(std::uint64_t nowNs) {
  sequence_.expire(nowNs);
  count();
  if (kernelGaps_ > 0 && kernelNs_ == 0) {
    kernelNs_ = nowNs + 2 * RtpSequence::windowNs;
  }
  kernelGaps_ = nowNs < kernelNs_ ? kernelGaps_ : 0;
}

void DatagramPackets::count() {
  const RtpCounters &rtp = sequence_.counters();
  countNetworkLost(rtp.lost);
  counters_.reordered = rtp.reordered;
  counters_.duplicates = rtp.duplicates;
  counters_.late = rtp.late;
  counters_.senders = rtp.senders;
}

}  // namespace chassis
