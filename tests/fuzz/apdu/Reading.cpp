#include "Reading.h"

#include <algorithm>
#include <iterator>

namespace reading {
namespace {

// Bytes that are not there read as an impossible number.
constexpr uint32_t missing = 0xFFFFFFFF;

uint32_t number(const Bytes &bytes, size_t at, size_t size) {
  if (at + size > bytes.size()) {
    return missing;
  }
  uint32_t value = 0;
  for (size_t k = 0; k < size; ++k) {
    value = value * 256 + bytes[at + k];
  }
  return value;
}

Bytes part(const Bytes &bytes, size_t at, size_t size) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  return {from, from + static_cast<std::ptrdiff_t>(size)};
}

bool readDescriptors(const Bytes &loop, Level &level) {
  size_t at = 1;
  while (at < loop.size()) {
    const uint32_t size = number(loop, at + 1, 1);
    if (size == missing || at + 2 + size > loop.size() || (loop[at] == 9 && size < 4)) {
      return false;
    }
    if (loop[at] == 9) {
      level.ca.push_back({static_cast<uint16_t>(number(loop, at + 2, 2)),
                          static_cast<uint16_t>(number(loop, at + 4, 2) % 0x2000),
                          part(loop, at + 6, size - 4)});
    }
    at += 2 + size;
  }
  return true;
}

// The level whose length stands at a place; moves the place behind it.
bool readLevel(const Bytes &body, size_t &at, Level &level) {
  const uint32_t field = number(body, at, 2);
  const size_t size = field % 0x1000;
  if (field == missing || at + 2 + size > body.size()) {
    return false;
  }
  const Bytes loop = part(body, at + 2, size);
  at += 2 + size;
  level.command = loop.empty() ? 0 : loop[0];
  const bool known = loop.empty() || (level.command >= 1 && level.command <= 4);
  return known && readDescriptors(loop, level);
}

bool same(const Level &a, const Level &b) {
  return a.command == b.command && std::equal(a.ca.begin(), a.ca.end(), b.ca.begin(), b.ca.end(),
                                              [](const Descriptor &x, const Descriptor &y) {
                                                return x.casid == y.casid && x.pid == y.pid &&
                                                       x.privateData == y.privateData;
                                              });
}

// The level as it is sent, and how many bytes it takes behind its length.
template <typename Record>
Level wantedLevel(const Record &record, size_t room, size_t &used) {
  Level level;
  used = 1;
  for (size_t k = 0; k < std::min<size_t>(record.caNum, 32); ++k) {
    const size_t size = record.privLen[k];
    const size_t from = record.privOff[k];
    const bool possible =
        record.caPid[k] < 0x2000 && size + 4 < 256 && from + size <= std::size(record.privData);
    if (possible && used + 6 + size <= room) {
      used += 6 + size;
      const uint8_t *data = record.privData + from;
      level.ca.push_back({record.casid[k], record.caPid[k], {data, data + size}});
    }
  }
  level.command = level.ca.empty() ? 0 : record.cmdId;
  used = level.ca.empty() ? 0 : used;
  return level;
}

}  // namespace

bool operator==(const CaPmt &a, const CaPmt &b) {
  return a.list == b.list && a.program == b.program && a.version == b.version &&
         same(a.level, b.level) &&
         std::equal(a.streams.begin(), a.streams.end(), b.streams.begin(), b.streams.end(),
                    [](const Stream &x, const Stream &y) {
                      return x.type == y.type && x.pid == y.pid && same(x.level, y.level);
                    });
}

std::optional<Framed> framed(const Bytes &apdu, size_t lengthBytes) {
  const uint32_t first = number(apdu, 3, 1);
  const size_t extra = first != missing && first > 0x7F ? first - 0x80 : 0;
  if (first == missing || first == 0x80 || extra > lengthBytes) {
    return std::nullopt;
  }
  const size_t length = extra == 0 ? first : number(apdu, 4, extra);
  const size_t bodyAt = 4 + extra;
  if (apdu.size() < bodyAt || apdu.size() - bodyAt != length) {
    return std::nullopt;
  }
  const size_t needed = length < 0x80 ? 0 : length < 0x100 ? 1 : length < 0x10000 ? 2 : 3;
  return Framed{number(apdu, 0, 3), part(apdu, bodyAt, length), extra == needed};
}

std::optional<CaPmt> caPmt(const Bytes &body) {
  CaPmt pmt;
  if (body.size() < 6 || body[0] > 5) {
    return std::nullopt;
  }
  pmt.list = body[0];
  pmt.program = static_cast<uint16_t>(number(body, 1, 2));
  pmt.version = body[3];
  size_t at = 4;
  bool right = readLevel(body, at, pmt.level);
  while (right && at < body.size()) {
    Stream stream;
    stream.type = body[at];
    stream.pid = static_cast<uint16_t>(number(body, at + 1, 2) % 0x2000);
    at += 3;
    right = at <= body.size() && readLevel(body, at, stream.level);
    pmt.streams.push_back(stream);
  }
  return right ? std::optional<CaPmt>(pmt) : std::nullopt;
}

CaPmt wanted(const CaPmtProg &record) {
  constexpr size_t largestLevel = 0xFFF;
  constexpr size_t largestBody = 0xFFFF;
  CaPmt pmt;
  size_t used = 0;
  pmt.list = record.listMgmt;
  pmt.program = record.progNum;
  pmt.version = static_cast<uint8_t>(0xC1 | (record.version % 32) << 1);
  pmt.level = wantedLevel(record, largestLevel, used);
  size_t size = 6 + used;
  const size_t count = std::min<size_t>(record.eleNum, 32);
  for (size_t s = 0; s < count; ++s) {
    if (record.ele[s].pid < 0x2000) {
      // Room is kept for the heads of the streams that follow.
      size += 5;
      const size_t room = largestBody - size - 5 * (count - s - 1);
      const Level level = wantedLevel(record.ele[s], std::min(largestLevel, room), used);
      pmt.streams.push_back({record.ele[s].streamType, record.ele[s].pid, level});
      size += used;
    }
  }
  return pmt;
}

}  // namespace reading
