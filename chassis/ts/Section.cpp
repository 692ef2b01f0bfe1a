#include "ts/Section.h"

#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <array>

#include "ts/PacketView.h"

namespace chassis {
namespace {

constexpr std::uint32_t crcPolynomial = 0x04C11DB7;
constexpr std::size_t shortHeaderSize = 3;
constexpr std::uint8_t stuffing = 0xFF;

std::array<std::uint32_t, 256> makeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t crc = i << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1) ^ (crc >> 31 ? crcPolynomial : 0);
    }
    table[i] = crc;
  }
  return table;
}

std::size_t declaredSize(const std::uint8_t *bytes) {
  return shortHeaderSize + ((bytes[1] & 0x0F) << 8 | bytes[2]);
}

bool isLong(const std::uint8_t *bytes) {
  return (bytes[1] & 0x80) != 0;
}

}  // namespace

std::uint32_t crc32(const std::uint8_t *bytes, std::size_t size) {
  static const std::array<std::uint32_t, 256> table = makeCrcTable();
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 0; i < size; ++i) {
    crc = (crc << 8) ^ table[(crc >> 24) ^ bytes[i]];
  }
  return crc;
}

bool soundLongSection(const std::uint8_t *bytes, std::size_t size) {
  return size >= sectionHeaderSize + sectionCrcSize && size <= maxSectionSize && isLong(bytes) &&
         declaredSize(bytes) == size && crc32(bytes, size) == 0;
}

void sealSection(Section &section) {
  const std::size_t length = section.size() + sectionCrcSize - shortHeaderSize;
  section[1] = static_cast<std::uint8_t>((section[1] & 0xF0) | (length >> 8 & 0x0F));
  section[2] = static_cast<std::uint8_t>(length);
  const std::uint32_t crc = crc32(section.data(), section.size());
  for (int shift = 24; shift >= 0; shift -= 8) {
    section.push_back(static_cast<std::uint8_t>(crc >> shift));
  }
}

std::vector<TsPacket> sectionPackets(const Section &section, std::uint16_t pid,
                                     std::uint8_t &continuity) {
  std::vector<TsPacket> packets;
  for (std::size_t done = 0; done < section.size();) {
    TsPacket packet;
    packet.fill(stuffing);
    ts_init(packet.data());
    ts_set_pid(packet.data(), pid);
    ts_set_payload(packet.data());
    ts_set_cc(packet.data(), continuity);
    continuity = (continuity + 1) & 0x0F;
    std::size_t at = TS_HEADER_SIZE;
    if (done == 0) {
      ts_set_unitstart(packet.data());
      packet[at++] = 0;
    }
    const std::size_t part = std::min(section.size() - done, tsPacketSize - at);
    std::copy_n(section.begin() + static_cast<std::ptrdiff_t>(done), part, packet.begin() + at);
    done += part;
    packets.push_back(packet);
  }
  return packets;
}

void SectionAssembler::clear() {
  partial_.clear();
  open_ = false;
  continuity_.reset();
}

// Whether nothing was lost since the packet before.
bool SectionAssembler::continues(const TsPacket &packet) {
  const std::uint8_t counter = PacketView(packet).continuityCounter();
  const bool follows = !continuity_ || counter == ((*continuity_ + 1) & 0x0F);
  continuity_ = counter;
  return follows;
}

void SectionAssembler::push(const TsPacket &packet, const Sink &sink) {
  const PacketView view(packet);
  if (view.payloadSize() == 0 || view.transportError() || view.scrambling() != 0) {
    return;
  }
  const bool starts = view.unitStart();
  const bool sentTwice = continuity_ == view.continuityCounter();
  if (sentTwice && !starts) {
    return;
  }
  if (!continues(packet)) {
    open_ = false;
  }
  const std::uint8_t *at = packet.data() + view.payloadOffset();
  const std::uint8_t *const end = packet.data() + tsPacketSize;
  if (!starts) {
    append(at, end, sink);
    return;
  }
  const std::size_t pointer = *at++;
  if (pointer > static_cast<std::size_t>(end - at)) {
    open_ = false;
    return;
  }
  append(at, at + pointer, sink);
  partial_.clear();
  open_ = true;
  append(at + pointer, end, sink);
}

void SectionAssembler::append(const std::uint8_t *from, const std::uint8_t *to, const Sink &sink) {
  if (!open_) {
    return;
  }
  partial_.insert(partial_.end(), from, to);
  while (takeWhole(sink)) {
  }
}

// Takes one whole section off the front; false when there is none (yet, or any more).
bool SectionAssembler::takeWhole(const Sink &sink) {
  if (partial_.empty() || partial_[0] == stuffing) {
    partial_.clear();
    open_ = false;
    return false;
  }
  if (partial_.size() < shortHeaderSize || partial_.size() < declaredSize(partial_.data())) {
    return false;
  }
  const auto end = partial_.begin() + static_cast<std::ptrdiff_t>(declaredSize(partial_.data()));
  const Section whole(partial_.begin(), end);
  partial_.erase(partial_.begin(), end);
  if (!isLong(whole.data()) || soundLongSection(whole.data(), whole.size())) {
    sink(whole);
  }
  return true;
}

}  // namespace chassis
