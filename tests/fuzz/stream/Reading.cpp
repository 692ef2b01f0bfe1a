#include "Reading.h"

#include <algorithm>
#include <string_view>

namespace reading {
namespace {

using View = std::basic_string_view<uint8_t>;

constexpr size_t plain = 188;
constexpr size_t stamped = 192;
constexpr size_t checked = 204;
constexpr size_t stampSize = stamped - plain;
constexpr size_t checkSize = checked - plain;

// Sync bytes at every stride from here on: five, or all that the file has room for; else none.
size_t syncs(View file, size_t at, size_t stride) {
  size_t count = 0;
  while (count < 5 && at + count * stride < file.size()) {
    if (file[at + count++ * stride] != 0x47) {
      return 0;
    }
  }
  return count;
}

// A byte of a stamp in front of the sync byte, or what comes again several times within a stride.
bool looksLikeOther(View file, size_t at, size_t stride) {
  bool other = false;
  for (size_t step = 2; step < stride && stride != plain; ++step) {
    const bool again = step * 2 == stride || step * 3 == stride || step * 17 == stride;
    const bool stamp = stride == stamped && (step == 3 || step == 4);
    other = other || ((again || stamp) && syncs(file, at + step, stride) > 1);
  }
  return other;
}

bool resumesAt(View file, size_t at, size_t stride, const std::vector<Place> &before) {
  const size_t count = syncs(file, at, stride);
  if (at + plain > file.size() || count == 0) {
    return false;
  }
  if (count > 2) {
    return !looksLikeOther(file, at, stride);
  }
  const size_t head = stride == stamped ? stampSize : 0;
  const bool fits = (file.size() - at + head) % stride == 0;
  if (before.empty()) {
    return at == head && (fits || stride == plain);
  }
  return fits && (stride == plain || stride == before.back().stride);
}

bool follows(View file, const std::vector<Place> &before) {
  const size_t at = before.empty() ? 0 : before.back().at + before.back().stride;
  return !before.empty() && at + plain <= file.size() && file[at] == 0x47;
}

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

// What a length byte at `at` tells; nothing when it leads out.
std::optional<View> counted(View bytes, size_t at) {
  if (at >= bytes.size() || at + 1 + bytes[at] > bytes.size()) {
    return std::nullopt;
  }
  return bytes.substr(at + 1, bytes[at]);
}

void name(View descriptor, Service &service) {
  const auto provider = counted(descriptor, 1);
  const auto name = provider ? counted(descriptor, 2 + provider->size()) : std::nullopt;
  if (name) {
    service.provider.assign(provider->begin(), provider->end());
    service.name.assign(name->begin(), name->end());
  }
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

std::vector<Place> places(const std::vector<uint8_t> &file) {
  const View view(file.data(), file.size());
  std::vector<Place> found;
  for (size_t at = 0; at < file.size();) {
    const size_t known = found.size();
    if (follows(view, found)) {
      found.push_back({found.back().at + found.back().stride, found.back().stride});
    } else {
      for (; at < file.size() && found.size() == known; ++at) {
        const size_t last = known == 0 ? plain : found.back().stride;
        for (const size_t stride : {last, plain, stamped, checked}) {
          if (found.size() == known && resumesAt(view, at, stride, found)) {
            found.push_back({at, stride});
          }
        }
      }
    }
    at = found.size() > known ? found.back().at + plain : at;
  }
  return found;
}

size_t strayBytes(const std::vector<uint8_t> &file, const std::vector<Place> &places) {
  std::vector<bool> stray(file.size(), true);
  const auto claim = [&stray](size_t from, size_t to) {
    std::fill(stray.begin() + static_cast<ptrdiff_t>(from),
              stray.begin() + static_cast<ptrdiff_t>(std::min(to, stray.size())), false);
  };
  for (size_t k = 0; k < places.size(); ++k) {
    const size_t end = places[k].at + plain;
    const bool nextChecked = k + 1 < places.size() && places[k + 1].stride == checked &&
                             places[k + 1].at == places[k].at + checked;
    claim(places[k].at, end);
    claim(end, end + (places[k].stride == checked || nextChecked ? checkSize : 0));
    claim(places[k].at - (places[k].stride == stamped ? std::min(places[k].at, stampSize) : 0),
          places[k].at);
  }
  return static_cast<size_t>(std::count(stray.begin(), stray.end(), true));
}

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

std::optional<std::vector<Service>> services(const chassis::Section &section) {
  std::vector<Service> all;
  View rest = body(section);
  View head;
  View loop;
  if (rest.size() < 3) {
    return std::nullopt;
  }
  for (rest.remove_prefix(3); !rest.empty();) {
    if (!cut(rest, 5, head, loop)) {
      return std::nullopt;
    }
    all.push_back({word(head, 0), {}, {}});
    for (; !loop.empty(); loop.remove_prefix(2 + loop[1])) {
      const auto descriptor = counted(loop, 1);
      if (!descriptor) {
        return std::nullopt;
      }
      if (loop[0] == 0x48) {
        name(*descriptor, all.back());
      }
    }
  }
  return all;
}

std::vector<chassis::PsiCa> conditionalAccess(const chassis::Section &section) {
  std::vector<chassis::PsiCa> ca;
  descriptors(body(section), ca);
  return ca;
}

}  // namespace reading
