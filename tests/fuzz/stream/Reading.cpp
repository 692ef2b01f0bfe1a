#include "Reading.h"

#include <string_view>

namespace reading {
namespace {

using View = std::basic_string_view<uint8_t>;

uint16_t word(View bytes, size_t at) {
  return static_cast<uint16_t>(bits(bytes.data(), at * 8, 16));
}

// Cuts off a head with a 12-bit length at its end, and what that length tells.
bool cut(View &rest, size_t headSize, View &head, View &loop) {
  if (rest.size() < headSize) {
    return false;
  }
  head = rest.substr(0, headSize);
  const size_t length = bits(head.data(), headSize * 8 - 12, 12);
  if (headSize + length > rest.size()) {
    return false;
  }
  loop = rest.substr(headSize, length);
  rest.remove_prefix(headSize + length);
  return true;
}

// Takes the descriptors that fit; false when something is left.
bool descriptors(View loop, std::vector<chassis::PsiCa> &ca) {
  while (loop.size() > 1 && loop.size() - 2 >= loop[1]) {
    const View body = loop.substr(2, loop[1]);
    if (loop[0] == 9 && body.size() > 3) {
      const auto pid = static_cast<uint16_t>(bits(body.data(), 19, 13));
      ca.push_back({word(body, 0), pid, {body.begin() + 4, body.end()}});
    }
    loop.remove_prefix(2 + body.size());
  }
  return loop.empty();
}

View body(const chassis::Section &section) {
  return View(section.data(), section.size() - 4).substr(8);
}

uint32_t remainder(const chassis::Section &section) {
  uint32_t rest = 0xFFFFFFFF;
  for (const uint8_t byte : section) {
    rest ^= static_cast<uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      rest = rest << 1 ^ (rest >> 31) * 0x04C11DB7;
    }
  }
  return rest;
}

// Bytes that an adaptation field with its length takes; all and more when it does not fit.
size_t adaptation(const chassis::TsPacket &packet) {
  return bits(packet.data(), 26, 1) == 0 ? 0 : 1u + packet[4];
}

std::optional<uint64_t> clockReference(const chassis::TsPacket &packet) {
  const size_t size = adaptation(packet);
  if (size < 8 || size > 184 || bits(packet.data(), 43, 1) == 0) {
    return std::nullopt;
  }
  const uint64_t whole = bits(packet.data(), 48, 33) * 300 + bits(packet.data(), 87, 9);
  return whole % (300ull << 33);
}

size_t payloadSize(const chassis::TsPacket &packet) {
  const size_t taken = adaptation(packet);
  return bits(packet.data(), 27, 1) == 0 || taken > 184 ? 0 : 184 - taken;
}

bool discontinued(const chassis::TsPacket &packet) {
  const size_t size = adaptation(packet);
  return size > 1 && size <= 184 && bits(packet.data(), 40, 1) == 1;
}

}  // namespace

uint64_t bits(const uint8_t *bytes, size_t first, size_t count) {
  uint64_t value = 0;
  for (size_t at = first; at < first + count; ++at) {
    value = value * 2 + (bytes[at / 8] >> (7 - at % 8)) % 2;
  }
  return value;
}

bool agrees(const chassis::TsPacket &packet, const chassis::PacketView &view) {
  const uint8_t *bytes = packet.data();
  return view.transportError() == (bits(bytes, 8, 1) == 1) &&
         view.unitStart() == (bits(bytes, 9, 1) == 1) && view.pid() == bits(bytes, 11, 13) &&
         view.scrambling() == bits(bytes, 24, 2) &&
         view.hasPayload() == (bits(bytes, 27, 1) == 1) &&
         view.continuityCounter() == bits(bytes, 28, 4) &&
         view.discontinuity() == discontinued(packet) && view.pcr() == clockReference(packet) &&
         view.payloadSize() == payloadSize(packet);
}

bool whole(const chassis::Section &section) {
  return section.size() >= 12 && section.size() <= 4096 && bits(section.data(), 8, 1) == 1 &&
         bits(section.data(), 12, 12) + 3 == section.size() && remainder(section) == 0;
}

bool current(const chassis::Section &section) {
  return whole(section) && bits(section.data(), 47, 1) == 1;
}

std::vector<std::pair<uint16_t, uint16_t>> association(const chassis::Section &section) {
  std::vector<std::pair<uint16_t, uint16_t>> entries;
  for (View rest = body(section); rest.size() >= 4; rest.remove_prefix(4)) {
    entries.emplace_back(word(rest, 0), static_cast<uint16_t>(bits(rest.data(), 19, 13)));
  }
  return entries;
}

std::optional<chassis::PsiProgram> programMap(const chassis::Section &section) {
  chassis::PsiProgram program;
  View rest = body(section);
  View head;
  View loop;
  program.number = word(View(section.data(), section.size()), 3);
  program.version = static_cast<uint8_t>(bits(section.data(), 42, 5));
  if (!cut(rest, 4, head, loop) || !descriptors(loop, program.ca)) {
    return std::nullopt;
  }
  program.pcrPid = static_cast<uint16_t>(bits(head.data(), 3, 13));
  while (!rest.empty()) {
    chassis::PsiStream stream;
    if (!cut(rest, 5, head, loop) || !descriptors(loop, stream.ca)) {
      return std::nullopt;
    }
    stream.type = head[0];
    stream.pid = static_cast<uint16_t>(bits(head.data(), 11, 13));
    program.streams.push_back(stream);
  }
  return program;
}

std::vector<chassis::PsiCa> conditionalAccess(const chassis::Section &section) {
  std::vector<chassis::PsiCa> ca;
  descriptors(body(section), ca);
  return ca;
}

}  // namespace reading
