#include "cam/CaObjects.h"

#include <algorithm>
#include <cstddef>

namespace chassis::cam {
namespace {

constexpr std::size_t tagSize = 3;
constexpr std::uint8_t longLength = 0x80;
constexpr std::uint8_t caDescriptorTag = 0x09;
constexpr std::uint8_t lastListManagement = static_cast<std::uint8_t>(ListManagement::Update);
constexpr std::uint8_t enableFlag = 0x80;

// Reads forward through bytes; never past their end.
class Reader {
 public:
  Reader(const std::uint8_t *at, const std::uint8_t *end) : at_(at), end_(end) {}

  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  std::uint8_t byte() { return *need(1); }
  std::uint16_t word() {
    const std::uint8_t *at = need(2);
    return static_cast<std::uint16_t>(at[0] << 8 | at[1]);
  }
  Reader part(std::size_t size) {
    const std::uint8_t *at = need(size);
    return Reader(at, at + size);
  }

 private:
  const std::uint8_t *need(std::size_t size) {
    if (left() < size) {
      throw BadObject("it is cut off");
    }
    at_ += size;
    return at_ - size;
  }

  const std::uint8_t *at_;
  const std::uint8_t *end_;
};

// The length field of EN 50221, 7.: one byte below 128, otherwise the number of bytes that follow.
std::size_t readLength(Reader &reader) {
  const std::uint8_t first = reader.byte();
  if ((first & longLength) == 0) {
    return first;
  }
  Reader digits = reader.part(first & ~longLength);
  if (digits.left() == 0 || digits.left() > sizeof(std::uint32_t)) {
    throw BadObject("its length field is of no use");
  }
  std::size_t length = 0;
  while (digits.left() > 0) {
    length = length << 8 | digits.byte();
  }
  return length;
}

void writeLength(std::vector<std::uint8_t> &bytes, std::size_t length) {
  if (length < longLength) {
    bytes.push_back(static_cast<std::uint8_t>(length));
    return;
  }
  const int digits = length > 0xFFFF ? 3 : length > 0xFF ? 2 : 1;
  bytes.push_back(static_cast<std::uint8_t>(longLength | digits));
  for (int shift = 8 * (digits - 1); shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(length >> shift));
  }
}

void writeWord(std::vector<std::uint8_t> &bytes, unsigned word) {
  bytes.push_back(static_cast<std::uint8_t>(word >> 8));
  bytes.push_back(static_cast<std::uint8_t>(word));
}

Command commandOf(std::uint8_t code) {
  if (code < static_cast<std::uint8_t>(Command::OkDescrambling) ||
      code > static_cast<std::uint8_t>(Command::NotSelected)) {
    throw BadObject("its command is unknown");
  }
  return static_cast<Command>(code);
}

void readDescriptor(Reader &loop, std::vector<CaDescriptor> &ca) {
  const std::uint8_t tag = loop.byte();
  Reader body = loop.part(loop.byte());
  if (tag != caDescriptorTag) {
    return;
  }
  const std::uint16_t casid = body.word();
  ca.push_back({casid, static_cast<std::uint16_t>(body.word() & 0x1FFF)});
}

// A length, and behind it, unless that is 0, a command and descriptors.
CaLevel readLevel(Reader &reader) {
  CaLevel level;
  Reader loop = reader.part(reader.word() & 0x0FFF);
  if (loop.left() > 0) {
    level.command = commandOf(loop.byte());
  }
  while (loop.left() > 0) {
    readDescriptor(loop, level.ca);
  }
  return level;
}

CaPmtStream readStream(Reader &reader) {
  reader.byte();
  CaPmtStream stream;
  stream.pid = reader.word() & 0x1FFF;
  stream.level = readLevel(reader);
  return stream;
}

// Without an enable the flag is 0 and the other bits are reserved.
std::uint8_t enableByte(CaEnable enable) {
  return enable == CaEnable::None
             ? static_cast<std::uint8_t>(~enableFlag)
             : static_cast<std::uint8_t>(enableFlag | static_cast<int>(enable));
}

}  // namespace

bool CaPmt::commands(Command command) const {
  return level.command == command ||
         std::any_of(streams.begin(), streams.end(), [command](const CaPmtStream &stream) {
           return stream.level.command == command;
         });
}

bool CaPmt::commandsNothing() const {
  return level.command == Command::None &&
         std::all_of(streams.begin(), streams.end(), [](const CaPmtStream &stream) {
           return stream.level.command == Command::None;
         });
}

Object decodeObject(const std::vector<std::uint8_t> &apdu) {
  Reader reader(apdu.data(), apdu.data() + apdu.size());
  Object object;
  for (std::size_t i = 0; i < tagSize; ++i) {
    object.tag = object.tag << 8 | reader.byte();
  }
  const std::size_t length = readLength(reader);
  if (length != reader.left()) {
    throw BadObject("its length field does not tell its length");
  }
  object.body.assign(apdu.end() - static_cast<std::ptrdiff_t>(length), apdu.end());
  return object;
}

std::vector<std::uint8_t> encodeObject(const Object &object) {
  std::vector<std::uint8_t> apdu;
  for (int shift = 16; shift >= 0; shift -= 8) {
    apdu.push_back(static_cast<std::uint8_t>(object.tag >> shift));
  }
  writeLength(apdu, object.body.size());
  apdu.insert(apdu.end(), object.body.begin(), object.body.end());
  return apdu;
}

CaPmt decodeCaPmt(const std::vector<std::uint8_t> &body) {
  Reader reader(body.data(), body.data() + body.size());
  CaPmt pmt;
  const std::uint8_t list = reader.byte();
  if (list > lastListManagement) {
    throw BadObject("its list management is unknown");
  }
  pmt.list = static_cast<ListManagement>(list);
  pmt.program = reader.word();
  pmt.versionByte = reader.byte();
  pmt.level = readLevel(reader);
  while (reader.left() > 0) {
    pmt.streams.push_back(readStream(reader));
  }
  return pmt;
}

std::vector<std::uint8_t> encodeCaInfo(const std::vector<std::uint16_t> &caSystems) {
  Object info{tagCaInfo, {}};
  for (const std::uint16_t casid : caSystems) {
    writeWord(info.body, casid);
  }
  return encodeObject(info);
}

std::vector<std::uint8_t> encodeCaPmtReply(const CaPmtReply &reply) {
  Object object{tagCaPmtReply, {}};
  writeWord(object.body, reply.program);
  object.body.push_back(reply.versionByte);
  object.body.push_back(enableByte(reply.enable));
  for (const CaPmtReply::Stream &stream : reply.streams) {
    writeWord(object.body, 0xE000u | stream.pid);
    object.body.push_back(enableByte(stream.enable));
  }
  return encodeObject(object);
}

}  // namespace chassis::cam
