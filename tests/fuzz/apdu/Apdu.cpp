// The application objects between host and CAM, and the sections of the laboratory CA system:
// arbitrary bytes are decoded, and what decodes must survive being encoded again; what host and CAM
// read and write is held against a second reading.
#include <algorithm>
#include <iterator>
#include <numeric>

#include "Framing.h"
#include "Input.h"
#include "Reading.h"
#include "cam/CaObjects.h"
#include "cam/LabCa.h"
#include "cilib/ApduCodec.h"

using chassis::Apdu;
using fuzz::Input;
using fuzz::Noise;
using fuzz::require;

namespace {

bool same(const chassis::CaReply &a, const chassis::CaReply &b) {
  const auto sameStream = [](const auto &x, const auto &y) {
    return x.pid == y.pid && x.caEnable == y.caEnable;
  };
  return a.program == b.program && a.version == b.version && a.current == b.current &&
         a.caEnable == b.caEnable &&
         std::equal(a.streams.begin(), a.streams.end(), b.streams.begin(), b.streams.end(),
                    sameStream);
}

// A level without descriptors is sent without a command.
bool same(const chassis::cam::CaLevel &a, const chassis::cam::CaLevel &b) {
  const auto sameCa = [](const auto &x, const auto &y) {
    return x.casid == y.casid && x.ecmPid == y.ecmPid;
  };
  const bool commands = a.ca.empty() || a.command == b.command;
  return commands && std::equal(a.ca.begin(), a.ca.end(), b.ca.begin(), b.ca.end(), sameCa);
}

bool same(const chassis::cam::CaPmt &a, const chassis::cam::CaPmt &b) {
  const auto sameStream = [](const auto &x, const auto &y) {
    return x.pid == y.pid && same(x.level, y.level);
  };
  return a.list == b.list && a.program == b.program &&
         (a.versionByte & 0x3E) == (b.versionByte & 0x3E) && same(a.level, b.level) &&
         std::equal(a.streams.begin(), a.streams.end(), b.streams.begin(), b.streams.end(),
                    sameStream);
}

void checkCaInfo(const Apdu &apdu) {
  const auto decoded = chassis::decodeCaInfo(apdu);
  require(decoded.object.has_value() == decoded.reason.empty(), "CA info without a verdict");
  if (decoded.object) {
    const auto again = chassis::decodeCaInfo(chassis::cam::encodeCaInfo(decoded.object->caSystems));
    require(again.object && again.object->caSystems == decoded.object->caSystems,
            "CA info changed by coding");
  }
}

chassis::cam::CaPmtReply camSide(const chassis::CaReply &reply) {
  chassis::cam::CaPmtReply result;
  result.program = reply.program;
  result.versionByte = static_cast<uint8_t>(0xC0 | reply.version << 1 | (reply.current ? 1 : 0));
  result.enable = static_cast<chassis::cam::CaEnable>(reply.caEnable);
  for (const auto &stream : reply.streams) {
    result.streams.push_back({stream.pid, static_cast<chassis::cam::CaEnable>(stream.caEnable)});
  }
  return result;
}

void checkReply(const Apdu &apdu) {
  const auto decoded = chassis::decodeCaPmtReply(apdu);
  require(decoded.object.has_value() == decoded.reason.empty(), "reply without a verdict");
  if (decoded.object) {
    const auto again =
        chassis::decodeCaPmtReply(chassis::cam::encodeCaPmtReply(camSide(*decoded.object)));
    require(again.object && same(*again.object, *decoded.object), "reply changed by coding");
  }
}

template <typename Level>
bool fillLevel(Level &record, const chassis::cam::CaLevel &level) {
  record.cmdId = static_cast<uint8_t>(level.command);
  record.caNum = static_cast<uint8_t>(std::min<size_t>(level.ca.size(), 32));
  for (size_t k = 0; k < record.caNum; ++k) {
    record.casid[k] = level.ca[k].casid;
    record.caPid[k] = level.ca[k].ecmPid;
  }
  return level.ca.size() <= 32;
}

// The host's record of a CA PMT as the CAM read it; false when it holds more than a record does.
bool hostSide(const chassis::cam::CaPmt &pmt, CaPmtProg &record) {
  record = {};
  record.listMgmt = static_cast<uint8_t>(pmt.list);
  record.progNum = pmt.program;
  record.version = pmt.versionByte >> 1 & 0x1F;
  bool fits = fillLevel(record, pmt.level) && pmt.streams.size() <= 32;
  for (size_t s = 0; s < pmt.streams.size() && s < 32; ++s) {
    record.ele[s].pid = pmt.streams[s].pid;
    fits = fillLevel(record.ele[s], pmt.streams[s].level) && fits;
    ++record.eleNum;
  }
  return fits;
}

chassis::cam::CaPmt decodeSent(const Apdu &apdu) {
  const auto object = chassis::cam::decodeObject(apdu);
  require(object.tag == chassis::caPmtTag, "CA PMT with another tag");
  return chassis::cam::decodeCaPmt(object.body);
}

void checkCaPmt(const std::vector<uint8_t> &body) {
  chassis::cam::CaPmt pmt;
  try {
    pmt = chassis::cam::decodeCaPmt(body);
  } catch (const chassis::cam::BadObject &) {
    return;
  }
  static CaPmtProg record;
  if (hostSide(pmt, record)) {
    const auto encoded = chassis::encodeCaPmt(record);
    require(encoded.leftOut.empty(), "a CA PMT that was read cannot be sent");
    require(same(pmt, decodeSent(encoded.apdu)), "CA PMT changed by coding");
  }
}

void checkObject(const Apdu &apdu) {
  chassis::cam::Object object;
  try {
    object = chassis::cam::decodeObject(apdu);
  } catch (const chassis::cam::BadObject &) {
    return;
  }
  const auto encoded = chassis::cam::encodeObject(object);
  const auto again = chassis::cam::decodeObject(encoded);
  require(encoded.size() <= apdu.size(), "an object grew by coding");
  require(again.tag == object.tag && again.body == object.body, "object changed by coding");
  require(chassis::apduTag(apdu) == object.tag, "host and CAM read different tags");
  checkCaPmt(object.body);
}

void checkObjects(Input input) {
  const Apdu raw = input.bytes(input.left());
  fuzz::checkApdu(raw);
  checkCaInfo(raw);
  checkReply(raw);
  checkObject(raw);
  for (const uint32_t tag : {chassis::caInfoTag, chassis::caPmtTag, chassis::caPmtReplyTag}) {
    const Apdu framed = chassis::cam::encodeObject({tag, raw});
    checkCaInfo(framed);
    checkReply(framed);
    checkObject(framed);
  }
}

template <typename Level>
void randomLevel(Level &level, Input &input) {
  level.cmdId = static_cast<uint8_t>(1 + input.below(4));
  level.caNum = input.byte() % 40;
  const uint8_t seed = input.byte();
  Noise noise(seed);
  const uint8_t shape = input.byte();
  std::iota(std::begin(level.privData), std::end(level.privData), seed);
  for (size_t k = 0; k < 32; ++k) {
    level.casid[k] = static_cast<uint16_t>(noise.next());
    level.caPid[k] = static_cast<uint16_t>(noise.below((shape & 1) != 0 ? 0x2100 : 0x2000));
    level.privLen[k] = static_cast<uint16_t>(noise.below((shape & 2) != 0 ? 300 : 8));
    level.privOff[k] = static_cast<uint8_t>(noise.below((shape & 4) != 0 ? 256 : 8));
  }
}

size_t descriptors(const chassis::cam::CaPmt &pmt) {
  size_t count = pmt.level.ca.size();
  for (const auto &stream : pmt.streams) {
    count += stream.level.ca.size();
  }
  return count;
}

// Any record has an APDU that the CAM understands, and what is not in it is told.
void checkSending(Input input) {
  static CaPmtProg record;
  record = {};
  record.listMgmt = static_cast<uint8_t>(input.below(6));
  record.progNum = input.word();
  record.version = input.byte();
  randomLevel(record, input);
  record.eleNum = input.byte() % 40;
  size_t announced = record.caNum;
  for (size_t s = 0; s < record.eleNum && s < 32; ++s) {
    record.ele[s].pid = input.word() & 0x20FF;
    record.ele[s].streamType = static_cast<uint8_t>(record.ele[s].pid + s);
    randomLevel(record.ele[s], input);
    announced += record.ele[s].caNum;
  }
  const auto encoded = chassis::encodeCaPmt(record);
  const auto pmt = decodeSent(encoded.apdu);
  require(pmt.program == record.progNum, "another program was sent");
  const bool whole = pmt.streams.size() == record.eleNum && descriptors(pmt) == announced;
  require(whole == encoded.leftOut.empty(), "what was left out of a CA PMT was not told");
  const auto framed = reading::framed(encoded.apdu, 2);
  require(framed && framed->shortest, "a CA PMT is not framed as briefly as it can be");
  const auto said = reading::caPmt(framed->body);
  require(said && *said == reading::wanted(record), "a CA PMT does not say what its record does");
}

void checkEcmBytes(const chassis::Section &section) {
  const auto ecm = chassis::labca::decodeEcm(section.data(), section.size());
  require(!ecm || chassis::labca::encodeEcm(*ecm) == section, "ECM changed by coding");
  using chassis::labca::checksumsRight;
  require(!ecm || (checksumsRight(ecm->even) && checksumsRight(ecm->odd)),
          "a wrong word was taken");
  const auto heartbeat = chassis::labca::decodeEmm(section.data(), section.size());
  require(!heartbeat || chassis::labca::encodeEmm(*heartbeat) == section, "EMM changed by coding");
}

void checkSections(Input input) {
  chassis::Section section = input.bytes(input.left());
  checkEcmBytes(section);
  if (section.size() >= 3 && section.size() < chassis::maxSectionSize - 4) {
    chassis::sealSection(section);
    checkEcmBytes(section);
  }
}

void checkEcm(Input input) {
  chassis::labca::Ecm ecm;
  ecm.tier = input.word();
  const uint32_t high = input.word();
  ecm.period = high << 16 | input.word();
  ecm.cipher = static_cast<chassis::labca::Cipher>(input.below(2));
  for (auto *word : {&ecm.even, &ecm.odd}) {
    std::generate(word->begin(), word->end(), [&input] { return input.byte(); });
    chassis::labca::setChecksums(*word);
  }
  chassis::Section section = chassis::labca::encodeEcm(ecm);
  const auto decoded = chassis::labca::decodeEcm(section.data(), section.size());
  require(decoded && *decoded == ecm, "an ECM is not what was put into it");
  const uint32_t at = input.below(static_cast<uint32_t>(section.size() - chassis::sectionCrcSize));
  section[at] = static_cast<uint8_t>(section[at] ^ (1 + input.below(255)));
  require(!chassis::labca::decodeEcm(section.data(), section.size()), "a damaged ECM was taken");
  section.resize(section.size() - chassis::sectionCrcSize);
  chassis::sealSection(section);
  checkEcmBytes(section);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  switch (input.below(6)) {
    case 0:
      checkObjects(input);
      break;
    case 1:
      checkSending(input);
      break;
    case 2:
      checkSections(input);
      break;
    case 3:
      checkEcm(input);
      break;
    case 4:
      fuzz::checkFraming(input);
      break;
    default:
      fuzz::checkMadeCaPmt(input);
      break;
  }
  return 0;
}
