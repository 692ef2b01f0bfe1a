#include "cilib/ApduCodec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace chassis {
namespace {

std::unique_ptr<CaPmtProg> makeProgram(std::uint16_t number) {
  auto program = std::make_unique<CaPmtProg>();
  program->mark = 1;
  program->cmdId = cmdOkDescrambling;
  program->listMgmt = 3;
  program->progNum = number;
  program->version = 1;
  return program;
}

template <typename Level>
void addCa(Level &level, std::uint16_t casid, std::uint16_t pid, std::uint16_t privLen = 0,
           std::uint8_t privOff = 0) {
  level.casid[level.caNum] = casid;
  level.caPid[level.caNum] = pid;
  level.privLen[level.caNum] = privLen;
  level.privOff[level.caNum] = privOff;
  ++level.caNum;
}

CaPmtElem &addStream(CaPmtProg &program, std::uint8_t type, std::uint16_t pid) {
  CaPmtElem &stream = program.ele[program.eleNum++];
  stream.streamType = type;
  stream.pid = pid;
  stream.cmdId = program.cmdId;
  return stream;
}

// The body of an APDU, with its length field checked against what follows.
Apdu bodyOf(const Apdu &apdu) {
  EXPECT_GE(apdu.size(), 4u);
  std::size_t at = 4;
  std::size_t length = apdu[3];
  if (apdu[3] == 0x81) {
    length = apdu[4];
    at = 5;
  } else if (apdu[3] == 0x82) {
    length = apdu[4] << 8 | apdu[5];
    at = 6;
  }
  EXPECT_EQ(length, apdu.size() - at);
  return Apdu(apdu.begin() + static_cast<std::ptrdiff_t>(at), apdu.end());
}

bool mentions(const std::vector<std::string> &clauses, const std::string &text) {
  return std::any_of(clauses.begin(), clauses.end(), [&](const std::string &clause) {
    return clause.find(text) != std::string::npos;
  });
}

TEST(CaPmt, WithoutDescriptorsHasNoCommandAtEitherLevel) {
  auto program = makeProgram(0x1234);
  addStream(*program, 0x02, 0x0101);
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  EXPECT_EQ(encoded.apdu, (Apdu{0x9F, 0x80, 0x32, 0x0B, 0x03, 0x12, 0x34, 0xC3, 0xF0, 0x00, 0x02,
                                0xE1, 0x01, 0xF0, 0x00}));
  EXPECT_TRUE(encoded.leftOut.empty());
}

TEST(CaPmt, ProgramLevelDescriptorFollowsTheCommand) {
  auto program = makeProgram(101);
  program->listMgmt = 1;
  program->version = 30;
  addCa(*program, 0x0500, 0x1ABC, 2, 7);
  program->privData[7] = 0xAA;
  program->privData[8] = 0xBB;
  EXPECT_EQ(encodeCaPmt(*program).apdu,
            (Apdu{0x9F, 0x80, 0x32, 0x0F, 0x01, 0x00, 0x65, 0xFD, 0xF0, 0x09, 0x01, 0x09, 0x06,
                  0x05, 0x00, 0xFA, 0xBC, 0xAA, 0xBB}));
}

TEST(CaPmt, StreamLevelDescriptorsFollowTheStreamsCommand) {
  auto program = makeProgram(102);
  program->cmdId = cmdQuery;
  program->listMgmt = 4;
  CaPmtElem &video = addStream(*program, 0x1B, 0x1FFF);
  addCa(video, 0x0500, 0x0001);
  addCa(video, 0x0B00, 0x0002, 1, 255);
  video.privData[255] = 0x5A;
  addStream(*program, 0x03, 0x0000);
  EXPECT_EQ(encodeCaPmt(*program).apdu,
            (Apdu{0x9F, 0x80, 0x32, 0x1E, 0x04, 0x00, 0x66, 0xC3, 0xF0, 0x00,  // program
                  0x1B, 0xFF, 0xFF, 0xF0, 0x0E, 0x03,                          // video
                  0x09, 0x04, 0x05, 0x00, 0xE0, 0x01,                          //
                  0x09, 0x05, 0x0B, 0x00, 0xE0, 0x02, 0x5A,                    //
                  0x03, 0xE0, 0x00, 0xF0, 0x00}));                             // sound
}

TEST(CaPmt, BothLevelsKeepTheirOwnCommands) {
  auto program = makeProgram(5);
  program->cmdId = cmdOkDescrambling;
  addCa(*program, 0x0100, 0x0011);
  CaPmtElem &stream = addStream(*program, 0x02, 0x0020);
  stream.cmdId = cmdQuery;
  addCa(stream, 0x0200, 0x0022);
  const Apdu body = bodyOf(encodeCaPmt(*program).apdu);
  ASSERT_EQ(body.size(), 6u + 7 + 5 + 7);
  EXPECT_EQ(body[5], 7);
  EXPECT_EQ(body[6], cmdOkDescrambling);
  EXPECT_EQ(body[17], 7);
  EXPECT_EQ(body[18], cmdQuery);
}

TEST(CaPmt, EveryListManagementAndVersionIsCarried) {
  for (std::uint8_t list = 0; list <= 5; ++list) {
    auto program = makeProgram(1);
    program->listMgmt = list;
    EXPECT_EQ(bodyOf(encodeCaPmt(*program).apdu)[0], list);
  }
  for (std::uint8_t version = 0; version < 32; ++version) {
    auto program = makeProgram(1);
    program->version = version;
    EXPECT_EQ(bodyOf(encodeCaPmt(*program).apdu)[3], 0xC1 | version << 1);
  }
}

// The body is 6 bytes, 7 for the cmd id and one descriptor, and the private bytes.
struct LengthForm {
  std::uint16_t privLen;
  std::uint16_t secondPrivLen;  // 0: no second descriptor
  Apdu field;
};

TEST(CaPmt, LengthFieldTakesTheShortestForm) {
  const LengthForm forms[] = {{114, 0, {0x7F}},
                              {115, 0, {0x81, 0x80}},
                              {242, 0, {0x81, 0xFF}},
                              {243, 0, {0x82, 0x01, 0x00}},
                              {251, 251, {0x82, 0x02, 0x09}}};
  for (const LengthForm &form : forms) {
    auto program = makeProgram(1);
    addCa(*program, 0x0500, 0x0100, form.privLen);
    if (form.secondPrivLen != 0) {
      addCa(*program, 0x0500, 0x0100, form.secondPrivLen);
    }
    const EncodedCaPmt encoded = encodeCaPmt(*program);
    EXPECT_TRUE(encoded.leftOut.empty());
    const auto field = encoded.apdu.begin() + 3;
    EXPECT_TRUE(std::equal(form.field.begin(), form.field.end(), field)) << form.privLen;
    bodyOf(encoded.apdu);
  }
}

TEST(CaPmt, LeavesOutWhatHasNoFaithfulDescriptor) {
  auto program = makeProgram(1);
  addCa(*program, 0x0001, 0x2000);          // not a PID
  addCa(*program, 0x0002, 0x0100, 252);     // one more than a length byte can tell
  addCa(*program, 0x0003, 0x0100, 7, 250);  // one byte outside the area
  addCa(*program, 0x0004, 0x0100, 0xFFFF);
  addCa(*program, 0x0005, 0x1FFF, 6, 250);  // all of these fit
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  const Apdu body = bodyOf(encoded.apdu);
  EXPECT_EQ(body, (Apdu{0x03, 0x00, 0x01, 0xC3, 0xF0, 0x0D, 0x01, 0x09, 0x0A, 0x00, 0x05, 0xFF,
                        0xFF, 0, 0, 0, 0, 0, 0}));
  ASSERT_EQ(encoded.leftOut.size(), 4u);
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0001 of the program: its CA PID is above 0x1FFF"));
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0002 of the program: it has more than 251"));
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0003 of the program: its private bytes leave"));
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0004 of the program: it has more than 251"));
}

TEST(CaPmt, ADescriptorHolds251PrivateBytes) {
  auto program = makeProgram(1);
  addCa(*program, 0x0001, 0x0100, 251);
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  EXPECT_TRUE(encoded.leftOut.empty());
  EXPECT_EQ(bodyOf(encoded.apdu).size(), 6u + 1 + 2 + 255);
}

TEST(CaPmt, LevelWhoseDescriptorsAreAllLeftOutHasNoCommand) {
  auto program = makeProgram(1);
  addCa(*program, 0x0001, 0x2000);
  EXPECT_EQ(bodyOf(encodeCaPmt(*program).apdu), (Apdu{0x03, 0x00, 0x01, 0xC3, 0xF0, 0x00}));
}

// 15 descriptors of 257 bytes and the cmd id are 3856 bytes; 239 more make 4095.
TEST(CaPmt, InfoLengthNeverLeavesItsTwelveBits) {
  auto program = makeProgram(1);
  CaPmtElem &stream = addStream(*program, 0x02, 0x0100);
  for (int k = 0; k < 15; ++k) {
    addCa(stream, static_cast<std::uint16_t>(k), 0x0100, 251);
  }
  addCa(stream, 0x0A00, 0x0100, 234);  // 240 bytes: one too many
  addCa(stream, 0x0B00, 0x0100, 233);  // exactly the room that is left
  addCa(stream, 0x0C00, 0x0100);
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  const Apdu body = bodyOf(encoded.apdu);
  EXPECT_EQ(body.size(), 6u + 5 + 4095);
  EXPECT_EQ(body[9], 0xFF);
  EXPECT_EQ(body[10], 0xFF);
  ASSERT_EQ(encoded.leftOut.size(), 2u);
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0A00 of PID 0x0100: there is no room"));
  EXPECT_TRUE(mentions(encoded.leftOut, "0x0C00 of PID 0x0100: there is no room"));
}

TEST(CaPmt, LargestRecordStaysWithinASixteenBitLengthAndKeepsEveryStream) {
  auto program = makeProgram(1);
  for (int k = 0; k < 32; ++k) {
    addCa(*program, 0x0500, 0x0100, 251);
  }
  for (std::uint16_t s = 0; s < 32; ++s) {
    CaPmtElem &stream = addStream(*program, 0x02, static_cast<std::uint16_t>(0x0100 + s));
    for (int k = 0; k < 32; ++k) {
      addCa(stream, 0x0500, 0x0100, k < 15 ? 251 : 0);  // the small ones fill every gap
    }
  }
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  const Apdu body = bodyOf(encoded.apdu);
  EXPECT_FALSE(encoded.leftOut.empty());
  std::size_t at = 6 + ((body[4] & 0x0F) << 8 | body[5]);
  for (std::uint16_t s = 0; s < 32; ++s) {
    ASSERT_LE(at + 5, body.size());
    EXPECT_EQ((body[at + 1] & 0x1F) << 8 | body[at + 2], 0x0100 + s);
    at += 5 + ((body[at + 3] & 0x0F) << 8 | body[at + 4]);
  }
  EXPECT_EQ(at, body.size());
}

// 15 descriptors of 257 bytes, the cmd id, and one descriptor of 6 bytes and more.
template <typename Level>
void fillInfo(Level &level, std::uint16_t lastPrivLen) {
  for (int k = 0; k < 15; ++k) {
    addCa(level, 0x0500, 0x0100, 251);
  }
  addCa(level, 0x0A00, 0x0100, lastPrivLen);
}

// A program and 14 streams with 4095 bytes each leave 4029 bytes to the last stream.
TEST(CaPmt, BodyIsFilledToTheLastByteThatItsLengthCanTell) {
  for (const std::uint16_t lastPrivLen : {167, 168}) {
    auto program = makeProgram(1);
    fillInfo(*program, 233);
    for (std::uint16_t s = 0; s < 14; ++s) {
      fillInfo(addStream(*program, 0x02, static_cast<std::uint16_t>(0x0100 + s)), 233);
    }
    fillInfo(addStream(*program, 0x02, 0x0200), lastPrivLen);
    const EncodedCaPmt encoded = encodeCaPmt(*program);
    const bool fits = lastPrivLen == 167;
    EXPECT_EQ(bodyOf(encoded.apdu).size(), fits ? 0xFFFFu : 0xFFFFu - 6 - 167);
    EXPECT_EQ(encoded.leftOut.size(), fits ? 0u : 1u);
  }
}

TEST(CaPmt, CountsAboveThirtyTwoAreCutAndReported) {
  auto program = makeProgram(1);
  program->caNum = 255;
  program->eleNum = 255;
  program->ele[31].caNum = 33;
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  const Apdu body = bodyOf(encoded.apdu);
  EXPECT_EQ(body.size(), 6u + 1 + 32 * 6 + 31 * 5 + 5 + 1 + 32 * 6);
  EXPECT_TRUE(mentions(encoded.leftOut, "223 CA descriptors of the program"));
  EXPECT_TRUE(mentions(encoded.leftOut, "223 streams of the program"));
  EXPECT_TRUE(mentions(encoded.leftOut, "1 CA descriptors of PID 0x0000"));
}

TEST(CaPmt, StreamWithoutARealPidIsLeftOut) {
  auto program = makeProgram(1);
  addStream(*program, 0x02, 0x2000);
  addStream(*program, 0x03, 0x0101);
  const EncodedCaPmt encoded = encodeCaPmt(*program);
  EXPECT_EQ(bodyOf(encoded.apdu),
            (Apdu{0x03, 0x00, 0x01, 0xC3, 0xF0, 0x00, 0x03, 0xE1, 0x01, 0xF0, 0x00}));
  EXPECT_TRUE(mentions(encoded.leftOut, "PID 0x2000"));
}

TEST(CaPmt, AnyRecordWhateverGivesAWellFormedApdu) {
  std::mt19937 random(20);
  auto program = std::make_unique<CaPmtProg>();
  for (int round = 0; round < 300; ++round) {
    auto *bytes = reinterpret_cast<std::uint8_t *>(program.get());
    std::generate(bytes, bytes + sizeof *program,
                  [&] { return static_cast<std::uint8_t>(random()); });
    const Apdu body = bodyOf(encodeCaPmt(*program).apdu);
    std::size_t at = 6 + ((body[4] & 0x0F) << 8 | body[5]);
    while (at + 5 <= body.size()) {
      at += 5 + ((body[at + 3] & 0x0F) << 8 | body[at + 4]);
    }
    ASSERT_EQ(at, body.size());
  }
}

TEST(CaInfoEnquiry, IsATagWithoutABody) {
  EXPECT_EQ(encodeCaInfoEnquiry(), (Apdu{0x9F, 0x80, 0x30, 0x00}));
}

TEST(ApduTag, NeedsThreeBytes) {
  EXPECT_EQ(apduTag({0x9F, 0x80}), std::nullopt);
  EXPECT_EQ(apduTag({}), std::nullopt);
  EXPECT_EQ(apduTag({0x9F, 0x80, 0x33}), 0x9F8033u);
}

// ------------------------------------------------------------------------------------------------

const Apdu goodInfo{0x9F, 0x80, 0x31, 0x04, 0x05, 0x00, 0x0B, 0x01};
const Apdu goodReply{0x9F, 0x80, 0x33, 0x0A,  // two streams
                     0x00, 0x66, 0xC7, 0xF1,  // program 102, version 3, current
                     0xE1, 0x01, 0x81,        // PID 0x0101 possible
                     0xFF, 0xFF, 0xF3};       // PID 0x1FFF technical

TEST(CaInfoDecoding, ReadsEverySystemInOrder) {
  const auto info = decodeCaInfo(goodInfo);
  ASSERT_TRUE(info.object);
  EXPECT_EQ(info.object->caSystems, (std::vector<std::uint16_t>{0x0500, 0x0B01}));
  EXPECT_EQ(info.reason, "");
}

TEST(CaInfoDecoding, NoSystemAtAllIsAnAnswer) {
  const auto info = decodeCaInfo({0x9F, 0x80, 0x31, 0x00});
  ASSERT_TRUE(info.object);
  EXPECT_TRUE(info.object->caSystems.empty());
}

TEST(CaInfoDecoding, TakesAllThreeLengthForms) {
  for (const Apdu &apdu :
       {Apdu{0x9F, 0x80, 0x31, 0x02, 0x05, 0x00}, Apdu{0x9F, 0x80, 0x31, 0x81, 0x02, 0x05, 0x00},
        Apdu{0x9F, 0x80, 0x31, 0x82, 0x00, 0x02, 0x05, 0x00}}) {
    const auto info = decodeCaInfo(apdu);
    ASSERT_TRUE(info.object) << info.reason;
    EXPECT_EQ(info.object->caSystems, std::vector<std::uint16_t>{0x0500});
  }
}

TEST(CaInfoDecoding, ReadsMoreSystemsThanOneLengthByteTells) {
  Apdu apdu{0x9F, 0x80, 0x31, 0x82, 0x02, 0x00};
  for (int k = 0; k < 256; ++k) {
    apdu.insert(apdu.end(), {0x01, static_cast<std::uint8_t>(k)});
  }
  const auto info = decodeCaInfo(apdu);
  ASSERT_TRUE(info.object);
  EXPECT_EQ(info.object->caSystems.size(), 256u);
  EXPECT_EQ(info.object->caSystems.back(), 0x01FF);
}

TEST(CaReplyDecoding, ReadsEveryField) {
  const auto reply = decodeCaPmtReply(goodReply);
  ASSERT_TRUE(reply.object);
  EXPECT_EQ(reply.object->program, 102);
  EXPECT_EQ(reply.object->version, 3);
  EXPECT_TRUE(reply.object->current);
  EXPECT_EQ(reply.object->caEnable, 0x71);
  ASSERT_EQ(reply.object->streams.size(), 2u);
  EXPECT_EQ(reply.object->streams[0].pid, 0x0101);
  EXPECT_EQ(reply.object->streams[0].caEnable, 0x01);
  EXPECT_EQ(reply.object->streams[1].pid, 0x1FFF);
  EXPECT_EQ(reply.object->streams[1].caEnable, 0x73);
}

TEST(CaReplyDecoding, EnableWithoutItsFlagIsNoStatement) {
  const auto reply =
      decodeCaPmtReply({0x9F, 0x80, 0x33, 0x07, 0x00, 0x01, 0xC0, 0x71, 0xE0, 0x10, 0x73});
  ASSERT_TRUE(reply.object);
  EXPECT_FALSE(reply.object->current);
  EXPECT_EQ(reply.object->caEnable, 0);
  EXPECT_EQ(reply.object->streams[0].caEnable, 0);
}

struct Refusal {
  Apdu apdu;
  std::string reason;
};

TEST(CaInfoDecoding, RefusesWithAReason) {
  const Refusal refusals[] = {
      {{}, "tag is not 0x9F8031"},
      {{0x9F, 0x80}, "tag is not 0x9F8031"},
      {{0x9F, 0x80, 0x33, 0x00}, "tag is not 0x9F8031"},
      {{0x9F, 0x80, 0x31}, "no length field"},
      {{0x9F, 0x80, 0x31, 0x80}, "length field starts with 0x80"},
      {{0x9F, 0x80, 0x31, 0x83, 0, 0, 0}, "length field starts with 0x83"},
      {{0x9F, 0x80, 0x31, 0xFF}, "length field starts with 0xFF"},
      {{0x9F, 0x80, 0x31, 0x81}, "length field is cut off"},
      {{0x9F, 0x80, 0x31, 0x82, 0x00}, "length field is cut off"},
      {{0x9F, 0x80, 0x31, 0x02, 0x05}, "length 2, but 1 bytes follow"},
      {{0x9F, 0x80, 0x31, 0x02, 0x05, 0x00, 0x00}, "length 2, but 3 bytes follow"},
      {{0x9F, 0x80, 0x31, 0x82, 0xFF, 0xFF, 0x05}, "length 65535, but 1 bytes follow"},
      {{0x9F, 0x80, 0x31, 0x03, 0x05, 0x00, 0x0B}, "ends within a CA system id"}};
  for (const Refusal &refusal : refusals) {
    const auto info = decodeCaInfo(refusal.apdu);
    EXPECT_FALSE(info.object) << refusal.reason;
    EXPECT_EQ(info.reason, refusal.reason);
  }
}

TEST(CaReplyDecoding, RefusesWithAReason) {
  const Refusal refusals[] = {
      {goodInfo, "tag is not 0x9F8033"},
      {{0x9F, 0x80, 0x33, 0x00}, "ends within the program's entry"},
      {{0x9F, 0x80, 0x33, 0x03, 0x00, 0x66, 0xC7}, "ends within the program's entry"},
      {{0x9F, 0x80, 0x33, 0x05, 0x00, 0x66, 0xC7, 0xF1, 0xE1}, "ends within a stream's entry"},
      {{0x9F, 0x80, 0x33, 0x06, 0x00, 0x66, 0xC7, 0xF1, 0xE1, 0x01},
       "ends within a stream's entry"}};
  for (const Refusal &refusal : refusals) {
    const auto reply = decodeCaPmtReply(refusal.apdu);
    EXPECT_FALSE(reply.object) << refusal.reason;
    EXPECT_EQ(reply.reason, refusal.reason);
  }
}

TEST(CaDecoding, RefusesEveryTruncationAndEveryAddedByte) {
  for (std::size_t size = 0; size < goodInfo.size(); ++size) {
    EXPECT_FALSE(decodeCaInfo(Apdu(goodInfo.begin(), goodInfo.begin() + size)).object) << size;
  }
  for (std::size_t size = 0; size < goodReply.size(); ++size) {
    EXPECT_FALSE(decodeCaPmtReply(Apdu(goodReply.begin(), goodReply.begin() + size)).object);
  }
  Apdu longer = goodInfo;
  longer.push_back(0);
  EXPECT_FALSE(decodeCaInfo(longer).object);
  longer = goodReply;
  longer.push_back(0);
  EXPECT_FALSE(decodeCaPmtReply(longer).object);
}

// Accepted bytes must give objects that account for every byte of them.
void expectConsistent(const Apdu &apdu) {
  const auto info = decodeCaInfo(apdu);
  EXPECT_EQ(info.object.has_value(), info.reason.empty());
  if (info.object) {
    EXPECT_EQ(info.object->caSystems.size() * 2, bodyOf(apdu).size());
  }
  const auto reply = decodeCaPmtReply(apdu);
  EXPECT_EQ(reply.object.has_value(), reply.reason.empty());
  if (reply.object) {
    EXPECT_EQ(4 + reply.object->streams.size() * 3, bodyOf(apdu).size());
    for (const CaReplyStream &stream : reply.object->streams) {
      EXPECT_LE(stream.pid, 0x1FFF);
      EXPECT_LT(stream.caEnable, 0x80);
    }
  }
}

// A flip in tag or length is refused, a flip in the body gives another object of the same kind.
template <typename Decode>
void expectFlips(const Apdu &good, Decode decode) {
  const std::size_t frameBits = 4 * 8;
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Apdu flipped = good;
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
    expectConsistent(flipped);
    EXPECT_EQ(decode(flipped).object.has_value(), bit >= frameBits) << bit;
  }
}

TEST(CaDecoding, EverySingleBitFlipIsRefusedOrConsistent) {
  expectFlips(goodInfo, decodeCaInfo);
  expectFlips(goodReply, decodeCaPmtReply);
}

TEST(CaDecoding, RandomBytesAreRefusedOrConsistent) {
  std::mt19937 random(21);
  for (int round = 0; round < 20000; ++round) {
    Apdu apdu(random() % 40);
    std::generate(apdu.begin(), apdu.end(), [&] { return static_cast<std::uint8_t>(random()); });
    const Apdu head{0x9F, 0x80, static_cast<std::uint8_t>(0x30 + random() % 4)};
    std::copy_n(head.begin(), std::min(apdu.size(), head.size()), apdu.begin());
    if (apdu.size() > 4 && round % 2 == 0) {
      apdu[3] = static_cast<std::uint8_t>(apdu.size() - 4);
    }
    expectConsistent(apdu);
  }
}

}  // namespace
}  // namespace chassis
