#include "ts/Rtp.h"

#include <bitstream/ietf/rtp.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace chassis {
namespace {

static_assert(rtpPayloadTypeTs == RTP_TYPE_TS);

// From the begin of the datagram; more than `size`: it does not fit.
std::size_t payloadBegin(const std::uint8_t *bytes, std::size_t size) {
  const std::size_t lists = RTP_HEADER_SIZE + std::size_t{4} * rtp_get_cc(bytes);
  if (!rtp_check_extension(bytes)) {
    return lists;
  }
  const bool fits = lists + RTP_EXTENSION_SIZE <= size;
  return lists + RTP_EXTENSION_SIZE +
         (fits ? std::size_t{4} * rtpx_get_length(bytes + lists) : std::size_t{0});
}

// Padding tells its own length, itself included, so none of no length is right.
std::optional<std::size_t> paddingOf(const std::uint8_t *bytes, std::size_t size,
                                     std::size_t begin) {
  if (!rtp_check_padding(bytes)) {
    return 0;
  }
  const std::size_t padding = bytes[size - 1];
  return padding == 0 || begin + padding > size ? std::nullopt : std::optional(padding);
}

}  // namespace

std::optional<RtpHeader> readRtp(const std::uint8_t *bytes, std::size_t size) {
  if (size < RTP_HEADER_SIZE || !rtp_check_hdr(bytes)) {
    return std::nullopt;
  }
  RtpHeader header;
  header.payloadBegin = payloadBegin(bytes, size);
  const auto padding =
      header.payloadBegin > size ? std::nullopt : paddingOf(bytes, size, header.payloadBegin);
  if (!padding) {
    return std::nullopt;
  }
  header.payloadSize = size - header.payloadBegin - *padding;
  header.payloadType = rtp_get_type(bytes);
  header.sequence = rtp_get_seqnum(bytes);
  header.timestamp = rtp_get_timestamp(bytes);
  header.ssrc = rtp_get_int_ssrc(bytes);
  return header;
}

// Negative: behind the next one.
int RtpSequence::ahead(std::uint16_t sequence) const {
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(sequence - next_));
}

void RtpSequence::begin(std::uint16_t sequence) {
  next_ = sequence;
  highest_ = static_cast<std::uint16_t>(sequence - 1);
  had_.reset();
  for (Slot &slot : slots_) {
    slot.taken = false;
  }
}

void RtpSequence::beginSender(const RtpHeader &header) {
  flush();
  dropProbe();
  begin(header.sequence);
  begun_ = true;
  ssrc_ = header.ssrc;
  ++counters_.senders;
  ++beginnings_;
}

void RtpSequence::take(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
                       std::uint64_t cameNs) {
  expire(cameNs);
  const bool known = begun_ && header.ssrc == ssrc_;
  if (!known && size > 0) {
    beginSender(header);
  } else if (!known) {
    return;
  }
  const int distance = ahead(header.sequence);
  if (distance >= jumpAhead || distance < -behindMost) {
    jump(header, payload, size, cameNs);
  } else if (distance >= 0) {
    place(header, payload, size, cameNs);
  } else if (size > 0) {
    tooLate(header.sequence);
  }
}

void RtpSequence::place(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
                        std::uint64_t cameNs) {
  while (ahead(header.sequence) >= windowMost) {
    step();
  }
  const bool counts = size > 0;
  Slot &place = slot(header.sequence);
  if (place.taken) {
    counters_.duplicates += counts ? 1 : 0;
    return;
  }
  dropProbe();
  const bool before = static_cast<std::int16_t>(header.sequence - highest_) < 0;
  counters_.reordered += before && counts ? 1 : 0;
  if (!before) {
    highest_ = header.sequence;
    timestamp_ = header.timestamp;
    cameNs_ = cameNs;
  }
  keep(place, payload, size, cameNs);
  releaseReady();
}

void RtpSequence::keep(Slot &slot, const std::uint8_t *payload, std::size_t size,
                       std::uint64_t cameNs) {
  slot.taken = true;
  slot.payload.assign(payload, payload + size);
  slot.cameNs = cameNs;
  held_ += size > 0 ? 1 : 0;
}

// The same again, when its place is not given up, or once it has come late.
void RtpSequence::tooLate(std::uint16_t sequence) {
  auto had = had_[sequence % historyMost];
  ++(had ? counters_.duplicates : counters_.late);
  had = true;
}

void RtpSequence::jump(const RtpHeader &header, const std::uint8_t *payload, std::size_t size,
                       std::uint64_t cameNs) {
  if (size == 0) {
    return;
  }
  if (probe_ && probe_->header.sequence == header.sequence) {
    ++counters_.duplicates;
  } else if (probe_ && static_cast<std::uint16_t>(probe_->header.sequence + 1) == header.sequence) {
    confirmJump();
    place(header, payload, size, cameNs);
  } else {
    dropProbe();
    probe_ = Probe{header, {payload, payload + size}, cameNs};
  }
}

// Two in sequence: from here it goes on, with the first of them.
void RtpSequence::confirmJump() {
  const Probe first = std::move(*probe_);
  probe_.reset();
  flush();
  if (isLoss(first)) {
    counters_.lost += static_cast<std::uint16_t>(first.header.sequence - next_);
  } else {
    ++beginnings_;
  }
  begin(first.header.sequence);
  place(first.header, first.payload.data(), first.payload.size(), first.cameNs);
}

bool RtpSequence::isLoss(const Probe &probe) const {
  const auto ticks = static_cast<std::int32_t>(probe.header.timestamp - timestamp_);
  const std::int64_t stamped = ticks / static_cast<std::int32_t>(rtpTicksPerMs);
  const std::int64_t came = static_cast<std::int64_t>(probe.cameNs - cameNs_) / 1000000;
  return ahead(probe.header.sequence) > 0 && std::abs(stamped - came) < agreeMs;
}

void RtpSequence::dropProbe() {
  counters_.late += probe_ ? 1 : 0;
  probe_.reset();
}

// Past the next place, whether its datagram has come or is given up.
void RtpSequence::step() {
  Slot &first = slot(next_);
  had_[next_ % historyMost] = first.taken;
  ++next_;
  if (first.taken) {
    release(first);
  } else {
    ++counters_.lost;
  }
}

void RtpSequence::release(Slot &slot) {
  slot.taken = false;
  if (!slot.payload.empty()) {
    --held_;
    deliver_(slot.payload.data(), slot.payload.size(), slot.cameNs);
  }
}

void RtpSequence::releaseReady() {
  while (slot(next_).taken) {
    step();
  }
}

void RtpSequence::flush() {
  while (held_ > 0) {
    step();
  }
}

std::uint64_t RtpSequence::oldestNs() const {
  std::uint64_t oldest = UINT64_MAX;
  for (const Slot &slot : slots_) {
    if (slot.taken && !slot.payload.empty()) {
      oldest = std::min(oldest, slot.cameNs);
    }
  }
  return oldest;
}

void RtpSequence::expire(std::uint64_t nowNs) {
  while (held_ > 0 && nowNs >= windowNs && oldestNs() <= nowNs - windowNs) {
    step();
  }
  releaseReady();
}

}  // namespace chassis
