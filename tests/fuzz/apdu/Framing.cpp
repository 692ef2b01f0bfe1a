#include "Framing.h"

#include <algorithm>
#include <iterator>

#include "Reading.h"
#include "cam/CaObjects.h"
#include "cilib/ApduCodec.h"

using Bytes = std::vector<uint8_t>;

namespace fuzz {
namespace {

constexpr size_t hostLengthBytes = 2;
constexpr size_t camLengthBytes = 4;

std::optional<Bytes> bodyOf(const Bytes &apdu, uint32_t tag) {
  const auto framed = reading::framed(apdu, hostLengthBytes);
  return framed && framed->tag == tag ? std::optional<Bytes>(framed->body) : std::nullopt;
}

void checkCaInfo(const Bytes &apdu) {
  const auto decoded = chassis::decodeCaInfo(apdu);
  const auto body = bodyOf(apdu, chassis::caInfoTag);
  const bool right = body && body->size() % 2 == 0;
  require(decoded.object.has_value() == right, "CA info taken or refused wrongly");
  for (size_t k = 0; right && k < body->size() / 2; ++k) {
    require(decoded.object->caSystems.at(k) == (*body)[2 * k] * 256 + (*body)[2 * k + 1],
            "CA info is not what its bytes say");
  }
  require(!right || decoded.object->caSystems.size() == body->size() / 2, "CA systems added");
}

uint8_t enableOf(uint8_t byte) {
  return byte < 0x80 ? 0 : byte - 0x80;
}

void checkReply(const Bytes &apdu) {
  const auto decoded = chassis::decodeCaPmtReply(apdu);
  const auto body = bodyOf(apdu, chassis::caPmtReplyTag);
  const bool right = body && body->size() % 3 == 1 && body->size() > 3;
  require(decoded.object.has_value() == right, "reply taken or refused wrongly");
  if (!right) {
    return;
  }
  const auto &[program, version, current, enable, streams] = *decoded.object;
  const Bytes &bytes = *body;
  require(program == bytes[0] * 256 + bytes[1] && version == bytes[2] / 2 % 32 &&
              current == (bytes[2] % 2 == 1) && enable == enableOf(bytes[3]) &&
              streams.size() == bytes.size() / 3 - 1,
          "reply is not what its bytes say");
  for (size_t s = 0; s < streams.size(); ++s) {
    const size_t at = 4 + 3 * s;
    require(streams[s].pid == (bytes[at] % 32) * 256 + bytes[at + 1] &&
                streams[s].caEnable == enableOf(bytes[at + 2]),
            "a stream of a reply is not what its bytes say");
  }
}

bool sameLevel(const chassis::cam::CaLevel &level, const reading::Level &expected) {
  return static_cast<uint8_t>(level.command) == expected.command &&
         std::equal(
             level.ca.begin(), level.ca.end(), expected.ca.begin(), expected.ca.end(),
             [](const auto &a, const auto &b) { return a.casid == b.casid && a.ecmPid == b.pid; });
}

bool samePmt(const chassis::cam::CaPmt &pmt, const reading::CaPmt &expected) {
  return static_cast<uint8_t>(pmt.list) == expected.list && pmt.program == expected.program &&
         pmt.versionByte == expected.version && sameLevel(pmt.level, expected.level) &&
         std::equal(pmt.streams.begin(), pmt.streams.end(), expected.streams.begin(),
                    expected.streams.end(), [](const auto &a, const auto &b) {
                      return a.pid == b.pid && sameLevel(a.level, b.level);
                    });
}

void checkCaPmt(const Bytes &body) {
  const auto expected = reading::caPmt(body);
  try {
    const chassis::cam::CaPmt pmt = chassis::cam::decodeCaPmt(body);
    require(expected.has_value(), "a bad CA PMT was taken");
    require(samePmt(pmt, *expected), "CA PMT is not what its bytes say");
  } catch (const chassis::cam::BadObject &) {
    require(!expected, "a good CA PMT was refused");
  }
}

void checkObject(const Bytes &apdu) {
  const auto expected = reading::framed(apdu, camLengthBytes);
  try {
    const chassis::cam::Object object = chassis::cam::decodeObject(apdu);
    require(expected && object.tag == expected->tag && object.body == expected->body,
            "an object is not what its bytes say");
    checkCaPmt(object.body);
  } catch (const chassis::cam::BadObject &) {
    require(!expected, "a good object was refused");
  }
}

Bytes frame(uint32_t tag, size_t lengthBytes, size_t length, const Bytes &body) {
  Bytes apdu{static_cast<uint8_t>(tag >> 16), static_cast<uint8_t>(tag >> 8),
             static_cast<uint8_t>(tag)};
  apdu.push_back(static_cast<uint8_t>(lengthBytes == 0 ? length : 0x80 + lengthBytes));
  for (size_t left = lengthBytes; left > 0; --left) {
    apdu.push_back(left > sizeof length ? 0 : static_cast<uint8_t>(length >> 8 * (left - 1)));
  }
  apdu.insert(apdu.end(), body.begin(), body.end());
  return apdu;
}

Bytes someBody(Input &input) {
  constexpr size_t turns[] = {0, 1, 4, 0x7F, 0x80, 0xFF, 0x100, 0xFFFF, 0x10000};
  const uint8_t shape = input.byte();
  if (shape < 0x40) {
    return input.bytes(input.left());
  }
  const size_t turn = turns[shape % std::size(turns)] + input.below(8);
  Noise noise(input.byte());
  Bytes body(turn < 4 ? 0 : turn - 4);
  std::generate(body.begin(), body.end(), [&noise] { return static_cast<uint8_t>(noise.next()); });
  return body;
}

// One length of the CA PMT is too long or short, or none.
class CaPmtMaker {
 public:
  CaPmtMaker(uint8_t shape, Noise noise) : shape_(shape), noise_(noise) {}

  Bytes make() {
    Bytes body{static_cast<uint8_t>(noise_.below((shape_ & 0x10) != 0 ? 8 : 6)), byte(), byte(),
               byte()};
    level(body);
    for (uint32_t left = noise_.below(4); left > 0; --left) {
      body.insert(body.end(), {byte(), byte(), byte()});
      level(body);
    }
    body.resize(body.size() - ((shape_ & 3) == 2 ? noise_.below(6) : 0));
    return body;
  }

 private:
  uint8_t byte() { return static_cast<uint8_t>(noise_.next()); }

  size_t length(size_t right) {
    const bool wrong = (shape_ & 3) == 1 && noise_.below(5) == 0;
    return right + (wrong ? noise_.below(5) - 2 : 0);
  }

  Bytes loop() {
    Bytes bytes;
    const uint32_t count = noise_.below(4);
    const uint32_t commands = (shape_ & 0x0C) == 0x0C ? 6 : 4;
    if (count > 0) {
      bytes.push_back(static_cast<uint8_t>((commands == 4 ? 1 : 0) + noise_.below(commands)));
    }
    for (uint32_t k = 0; k < count; ++k) {
      const size_t size = noise_.below(12) == 0 ? noise_.below(4) : 4 + noise_.below(6);
      bytes.push_back(noise_.below(4) == 0 ? byte() : 9);
      bytes.push_back(static_cast<uint8_t>(length(size)));
      std::generate_n(std::back_inserter(bytes), size, [this] { return byte(); });
    }
    return bytes;
  }

  void level(Bytes &body) {
    const Bytes inner = loop();
    const size_t told = length(inner.size());
    body.push_back(static_cast<uint8_t>((byte() & 0xF0) | (told >> 8 & 0x0F)));
    body.push_back(static_cast<uint8_t>(told));
    body.insert(body.end(), inner.begin(), inner.end());
  }

  uint8_t shape_;
  Noise noise_;
};

}  // namespace

void checkApdu(const Bytes &apdu) {
  checkCaInfo(apdu);
  checkReply(apdu);
  checkObject(apdu);
}

void checkFraming(Input &input) {
  constexpr uint32_t tags[] = {chassis::caInfoTag, chassis::caPmtTag, chassis::caPmtReplyTag};
  const uint32_t tag = tags[input.below(3)];
  const Bytes body = someBody(input);
  for (size_t lengthBytes = 0; lengthBytes <= 5; ++lengthBytes) {
    for (const size_t length : {body.size(), body.size() + 1, body.size() - 1}) {
      checkApdu(frame(tag, lengthBytes, length, body));
    }
  }
  const auto framed = reading::framed(chassis::cam::encodeObject({tag, body}), 3);
  require(framed && framed->tag == tag && framed->body == body, "an object is sent as another");
  require(framed->shortest, "an object is sent with too long a length_field");
}

void checkMadeCaPmt(Input &input) {
  for (int made = 0; made < 8; ++made) {
    const uint8_t shape = input.byte();
    CaPmtMaker maker(shape, Noise(input.word()));
    checkCaPmt(maker.make());
  }
}

}  // namespace fuzz
