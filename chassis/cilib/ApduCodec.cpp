#include "cilib/ApduCodec.h"

#include <algorithm>
#include <cstddef>

#include "base/Text.h"

namespace chassis {
namespace {

constexpr std::size_t tagSize = 3;
constexpr std::size_t maxBody = 0xFFFF;      // what a 3-byte length_field can tell
constexpr std::size_t maxInfo = 0xFFF;       // program_info_length, ES_info_length: 12 bits
constexpr std::size_t maxPrivate = 255 - 4;  // of a descriptor's length byte, 4 are the ids
constexpr std::size_t streamHeaderSize = 5;  // stream_type, elementary_PID, ES_info_length
constexpr std::size_t replyHeaderSize = 4;   // program_number, version, CA_enable
constexpr std::size_t replyStreamSize = 3;   // elementary_PID, CA_enable
constexpr std::uint8_t caDescriptorTag = 9;  // ISO/IEC 13818-1
constexpr std::uint16_t maxPid = 0x1FFF;
constexpr std::size_t maxEntries = 32;  // of every list of a record
constexpr std::uint16_t reservedOfPid = 0xE000;
constexpr std::uint16_t reservedOfLength = 0xF000;

void put16(Apdu &bytes, std::size_t value) {
  bytes.push_back(static_cast<std::uint8_t>(value >> 8));
  bytes.push_back(static_cast<std::uint8_t>(value));
}

std::uint16_t get16(const Apdu &bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void append(Apdu &bytes, const Apdu &more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

void putLength(Apdu &bytes, std::size_t length) {
  if (length < 0x80) {
    bytes.push_back(static_cast<std::uint8_t>(length));
  } else if (length < 0x100) {
    bytes.push_back(0x81);
    bytes.push_back(static_cast<std::uint8_t>(length));
  } else {
    bytes.push_back(0x82);
    put16(bytes, length);
  }
}

Apdu makeApdu(std::uint32_t tag, const Apdu &body) {
  Apdu apdu{static_cast<std::uint8_t>(tag >> 16), static_cast<std::uint8_t>(tag >> 8),
            static_cast<std::uint8_t>(tag)};
  putLength(apdu, body.size());
  append(apdu, body);
  return apdu;
}

// ------------------------------------------------------------------------------------------------
// Encoding
// ------------------------------------------------------------------------------------------------

// Level is CaPmtProg or CaPmtElem: both hold their CA descriptors in fields of the same names.
template <typename Level>
const char *whyNotEncodable(const Level &level, std::size_t k) {
  if (level.caPid[k] > maxPid) {
    return "its CA PID is above 0x1FFF";
  }
  if (level.privLen[k] > maxPrivate) {
    return "it has more than 251 private bytes";
  }
  if (level.privLen[k] > sizeof level.privData - level.privOff[k]) {
    return "its private bytes leave their area";
  }
  return nullptr;
}

template <typename Level>
Apdu encodeDescriptor(const Level &level, std::size_t k) {
  Apdu bytes{caDescriptorTag, static_cast<std::uint8_t>(4 + level.privLen[k])};
  put16(bytes, level.casid[k]);
  put16(bytes, reservedOfPid | level.caPid[k]);
  const std::uint8_t *data = level.privData + level.privOff[k];
  bytes.insert(bytes.end(), data, data + level.privLen[k]);
  return bytes;
}

std::string describe(const std::string &where, std::uint16_t casid, const char *why) {
  return "CA descriptor " + hex(casid, 4) + " of " + where + ": " + why;
}

std::size_t capped(std::size_t count, const char *what, const std::string &where,
                   std::vector<std::string> &leftOut) {
  if (count > maxEntries) {
    leftOut.push_back(std::to_string(count - maxEntries) + " " + what + " of " + where +
                      ": a record holds 32");
  }
  return std::min(count, maxEntries);
}

// The bytes that an info length counts: cmd id and descriptors, or nothing without a descriptor.
template <typename Level>
Apdu encodeInfo(const Level &level, std::size_t room, const std::string &where,
                std::vector<std::string> &leftOut) {
  Apdu info{level.cmdId};
  const std::size_t count = capped(level.caNum, "CA descriptors", where, leftOut);
  for (std::size_t k = 0; k < count; ++k) {
    if (const char *why = whyNotEncodable(level, k)) {
      leftOut.push_back(describe(where, level.casid[k], why));
      continue;
    }
    const Apdu descriptor = encodeDescriptor(level, k);
    if (info.size() + descriptor.size() > room) {
      leftOut.push_back(describe(where, level.casid[k], "there is no room for it"));
      continue;
    }
    append(info, descriptor);
  }
  return info.size() > 1 ? info : Apdu{};
}

void putInfo(Apdu &body, const Apdu &info) {
  put16(body, reservedOfLength | info.size());
  append(body, info);
}

void putProgram(Apdu &body, const CaPmtProg &program, std::vector<std::string> &leftOut) {
  body.push_back(program.listMgmt);
  put16(body, program.progNum);
  body.push_back(static_cast<std::uint8_t>(0xC0 | (program.version & 0x1F) << 1 | 1));
  putInfo(body, encodeInfo(program, maxInfo, "the program", leftOut));
}

void putStream(Apdu &body, const CaPmtElem &stream, std::size_t streamsAfter,
               std::vector<std::string> &leftOut) {
  const std::string where = "PID " + hex(stream.pid, 4);
  if (stream.pid > maxPid) {
    leftOut.push_back("stream with " + where + ": a PID has 13 bits");
    return;
  }
  body.push_back(stream.streamType);
  put16(body, reservedOfPid | stream.pid);
  const std::size_t used = body.size() + 2 + streamsAfter * streamHeaderSize;
  putInfo(body, encodeInfo(stream, std::min(maxInfo, maxBody - used), where, leftOut));
}

// ------------------------------------------------------------------------------------------------
// Decoding
// ------------------------------------------------------------------------------------------------

// Where the body of an APDU starts, once all around it was found right; else the reason.
struct Frame {
  std::size_t bodyAt = 0;
  std::string reason;
};

Frame refuse(const std::string &reason) {
  return {0, reason};
}

Frame openApdu(const Apdu &apdu, std::uint32_t tag) {
  if (apduTag(apdu) != tag) {
    return refuse("tag is not " + hex(tag, 6));
  }
  if (apdu.size() == tagSize) {
    return refuse("no length field");
  }
  const std::uint8_t first = apdu[tagSize];
  const std::size_t extra = first < 0x80 ? 0 : first & 0x7F;
  if (first == 0x80 || extra > 2) {
    return refuse("length field starts with " + hex(first, 2));
  }
  const std::size_t bodyAt = tagSize + 1 + extra;
  if (apdu.size() < bodyAt) {
    return refuse("length field is cut off");
  }
  std::size_t length = extra == 0 ? first : 0;
  for (std::size_t at = tagSize + 1; at < bodyAt; ++at) {
    length = length << 8 | apdu[at];
  }
  const std::size_t present = apdu.size() - bodyAt;
  if (length != present) {
    return refuse("length " + std::to_string(length) + ", but " + std::to_string(present) +
                  " bytes follow");
  }
  return {bodyAt, {}};
}

std::uint8_t decodeCaEnable(std::uint8_t byte) {
  return (byte & 0x80) != 0 ? byte & 0x7F : 0;
}

}  // namespace

std::optional<std::uint32_t> apduTag(const Apdu &apdu) {
  if (apdu.size() < tagSize) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(apdu[0]) << 16 | get16(apdu, 1);
}

EncodedCaPmt encodeCaPmt(const CaPmtProg &program) {
  EncodedCaPmt encoded;
  Apdu body;
  putProgram(body, program, encoded.leftOut);
  const std::size_t streams = capped(program.eleNum, "streams", "the program", encoded.leftOut);
  for (std::size_t s = 0; s < streams; ++s) {
    putStream(body, program.ele[s], streams - s - 1, encoded.leftOut);
  }
  encoded.apdu = makeApdu(caPmtTag, body);
  return encoded;
}

Apdu encodeCaInfoEnquiry() {
  return makeApdu(caInfoEnquiryTag, {});
}

Decoded<CaInfo> decodeCaInfo(const Apdu &apdu) {
  const Frame frame = openApdu(apdu, caInfoTag);
  if (!frame.reason.empty()) {
    return {std::nullopt, frame.reason};
  }
  if ((apdu.size() - frame.bodyAt) % 2 != 0) {
    return {std::nullopt, "ends within a CA system id"};
  }
  CaInfo info;
  for (std::size_t at = frame.bodyAt; at < apdu.size(); at += 2) {
    info.caSystems.push_back(get16(apdu, at));
  }
  return {info, {}};
}

Decoded<CaReply> decodeCaPmtReply(const Apdu &apdu) {
  const Frame frame = openApdu(apdu, caPmtReplyTag);
  if (!frame.reason.empty()) {
    return {std::nullopt, frame.reason};
  }
  std::size_t at = frame.bodyAt;
  if (apdu.size() - at < replyHeaderSize) {
    return {std::nullopt, "ends within the program's entry"};
  }
  if ((apdu.size() - at - replyHeaderSize) % replyStreamSize != 0) {
    return {std::nullopt, "ends within a stream's entry"};
  }
  CaReply reply;
  reply.program = get16(apdu, at);
  reply.version = apdu[at + 2] >> 1 & 0x1F;
  reply.current = (apdu[at + 2] & 1) != 0;
  reply.caEnable = decodeCaEnable(apdu[at + 3]);
  for (at += replyHeaderSize; at < apdu.size(); at += replyStreamSize) {
    reply.streams.push_back(
        {static_cast<std::uint16_t>(get16(apdu, at) & maxPid), decodeCaEnable(apdu[at + 2])});
  }
  return {reply, {}};
}

}  // namespace chassis
