#include "ts/PacketView.h"

#include <bitstream/mpeg/ts.h>

#include <algorithm>

namespace chassis {

namespace {

constexpr std::size_t flagsLength = 1;
constexpr std::size_t pcrLength = 6;

}  // namespace

std::size_t PacketView::adaptationLength() const {
  if (!ts_has_adaptation(bytes_.data())) {
    return 0;
  }
  const std::size_t length = ts_get_adaptation(bytes_.data());
  return TS_HEADER_SIZE + 1 + length <= tsPacketSize ? length : 0;
}

bool PacketView::discontinuity() const {
  return adaptationLength() >= flagsLength && tsaf_has_discontinuity(bytes_.data());
}

std::optional<std::uint64_t> PacketView::pcr() const {
  if (adaptationLength() < flagsLength + pcrLength || !tsaf_has_pcr(bytes_.data())) {
    return std::nullopt;
  }
  return (tsaf_get_pcr(bytes_.data()) * 300 + tsaf_get_pcrext(bytes_.data())) % pcrRange;
}

std::size_t PacketView::payloadOffset() const {
  if (!hasPayload()) {
    return tsPacketSize;
  }
  if (!ts_has_adaptation(bytes_.data())) {
    return TS_HEADER_SIZE;
  }
  const std::size_t offset = TS_HEADER_SIZE + 1 + ts_get_adaptation(bytes_.data());
  return std::min(offset, tsPacketSize);
}

}  // namespace chassis
