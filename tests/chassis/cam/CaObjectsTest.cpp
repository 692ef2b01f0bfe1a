#include "cam/CaObjects.h"

#include <gtest/gtest.h>

#include <random>

#include "CamRig.h"

namespace {

using namespace chassis::cam;
using testing_cam::Bytes;

Bytes sampleCaPmt() {
  Bytes descriptors = testing_cam::ca(0x0500, 0x1501);
  descriptors.insert(descriptors.end(), {0x52, 0x01, 0xAA});
  const Bytes withPrivate = {0x09, 0x06, 0x05, 0x01, 0xF5, 0x02, 0xDE, 0xAD};
  descriptors.insert(descriptors.end(), withPrivate.begin(), withPrivate.end());
  return testing_cam::caPmt(
      testing_cam::add, 0x0165, testing_cam::level(1, descriptors),
      {testing_cam::caPmtStream(0x1001, testing_cam::level(0, {})),
       testing_cam::caPmtStream(0x1002, testing_cam::level(3, testing_cam::ca(0x0B00, 0x1503)))});
}

CaPmt decoded(const Bytes &apdu) {
  return decodeCaPmt(decodeObject(apdu).body);
}

TEST(CaObjects, CaPmtIsReadWhole) {
  const CaPmt pmt = decoded(sampleCaPmt());
  EXPECT_EQ(pmt.list, ListManagement::Add);
  EXPECT_EQ(pmt.program, 0x0165);
  EXPECT_EQ(pmt.versionByte, 0xCB);
  EXPECT_EQ(pmt.level.command, Command::OkDescrambling);
  ASSERT_EQ(pmt.level.ca.size(), 2u);
  EXPECT_EQ(pmt.level.ca[0].casid, 0x0500);
  EXPECT_EQ(pmt.level.ca[0].ecmPid, 0x1501);
  EXPECT_EQ(pmt.level.ca[1].casid, 0x0501);
  EXPECT_EQ(pmt.level.ca[1].ecmPid, 0x1502);
  ASSERT_EQ(pmt.streams.size(), 2u);
  EXPECT_EQ(pmt.streams[0].pid, 0x1001);
  EXPECT_EQ(pmt.streams[0].level.command, Command::None);
  EXPECT_EQ(pmt.streams[1].level.command, Command::Query);
  EXPECT_EQ(pmt.streams[1].level.ca[0].casid, 0x0B00);
  EXPECT_TRUE(pmt.commands(Command::Query));
  EXPECT_FALSE(pmt.commands(Command::OkMmi));
  EXPECT_FALSE(pmt.commandsNothing());
}

TEST(CaObjects, EveryTruncationIsRejected) {
  const Bytes whole = sampleCaPmt();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_THROW(decodeObject(cut), BadObject) << size;
  }
}

// Cut off and with a length that fits again: whole streams may go, halves of anything may not.
TEST(CaObjects, EveryTruncationOfTheBodyIsRejectedOrLacksWholeStreams) {
  const Bytes body = decodeObject(sampleCaPmt()).body;
  std::vector<std::size_t> read;
  for (std::size_t size = 0; size < body.size(); ++size) {
    const Bytes cut(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(size));
    try {
      decodeCaPmt(cut);
      read.push_back(size);
    } catch (const BadObject &) {
    }
  }
  const std::size_t programLevel = 4 + 2 + 1 + 6 + 3 + 8;
  EXPECT_EQ(read, (std::vector<std::size_t>{programLevel, programLevel + 5}));
}

bool isRead(const Bytes &body) {
  try {
    decodeCaPmt(body);
    return true;
  } catch (const BadObject &) {
    return false;
  }
}

TEST(CaObjects, UnknownCodesAreRejected) {
  const Bytes body = decodeObject(sampleCaPmt()).body;
  for (unsigned code = 0; code < 256; ++code) {
    Bytes list = body;
    Bytes command = body;
    list[0] = command[6] = static_cast<std::uint8_t>(code);
    EXPECT_EQ(isRead(list), code <= 5) << code;
    EXPECT_EQ(isRead(command), code >= 1 && code <= 4) << code;
  }
}

TEST(CaObjects, CaDescriptorTooShortIsRejected) {
  for (std::uint8_t length = 0; length < 4; ++length) {
    Bytes descriptor = {0x09, length};
    descriptor.resize(2u + length);
    const Bytes apdu =
        testing_cam::caPmt(testing_cam::only, 1, testing_cam::level(1, descriptor), {});
    EXPECT_THROW(decoded(apdu), BadObject) << int(length);
  }
}

TEST(CaObjects, LengthFields) {
  for (const std::size_t size : {0u, 1u, 127u, 128u, 255u, 256u, 65535u, 65536u}) {
    const Bytes apdu = encodeObject({0x9F8032, Bytes(size, 0x55)});
    const std::size_t field = size < 128 ? 1 : size < 256 ? 2 : size < 65536 ? 3 : 4;
    EXPECT_EQ(apdu.size(), 3 + field + size);
    const Object back = decodeObject(apdu);
    EXPECT_EQ(back.tag, 0x9F8032u);
    EXPECT_EQ(back.body, Bytes(size, 0x55));
  }
  EXPECT_EQ(decodeObject({0x9F, 0x80, 0x30, 0x84, 0, 0, 0, 1, 7}).body, Bytes{7});
  EXPECT_THROW(decodeObject({0x9F, 0x80, 0x30, 0x80}), BadObject);
  EXPECT_THROW(decodeObject({0x9F, 0x80, 0x30, 0x85, 0, 0, 0, 0, 1, 7}), BadObject);
  EXPECT_THROW(decodeObject({0x9F, 0x80, 0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 7}), BadObject);
  EXPECT_THROW(decodeObject({0x9F, 0x80, 0x30, 0x00, 7}), BadObject);
}

TEST(CaObjects, CaInfo) {
  EXPECT_EQ(encodeCaInfo({0x0500, 0x0B01}), (Bytes{0x9F, 0x80, 0x31, 4, 5, 0, 0x0B, 1}));
  EXPECT_EQ(encodeCaInfo({}), (Bytes{0x9F, 0x80, 0x31, 0}));
  const Bytes many = encodeCaInfo(std::vector<std::uint16_t>(64, 0x0500));
  EXPECT_EQ(Bytes(many.begin(), many.begin() + 5), (Bytes{0x9F, 0x80, 0x31, 0x81, 128}));
}

TEST(CaObjects, CaPmtReply) {
  CaPmtReply reply;
  reply.program = 0x0165;
  reply.versionByte = 0xCB;
  reply.enable = CaEnable::NoEntitlement;
  reply.streams = {{0x1001, CaEnable::None}, {0x0002, CaEnable::Technical}};
  EXPECT_EQ(encodeCaPmtReply(reply), (Bytes{0x9F, 0x80, 0x33, 10, 0x01, 0x65, 0xCB, 0xF1, 0xF0,
                                            0x01, 0x7F, 0xE0, 0x02, 0xF3}));
}

TEST(CaObjects, RandomBytesDoNoHarm) {
  std::mt19937 random(11);
  const Bytes valid = sampleCaPmt();
  unsigned read = 0;
  for (int i = 0; i < 50000; ++i) {
    Bytes apdu = valid;
    for (int change = 0; change < 1 + i % 4; ++change) {
      apdu[random() % apdu.size()] = static_cast<std::uint8_t>(random());
    }
    try {
      const CaPmt pmt = decoded(apdu);
      EXPECT_LE(pmt.streams.size(), apdu.size() / 5);
      ++read;
    } catch (const BadObject &) {
    }
  }
  EXPECT_GT(read, 0u);
  EXPECT_LT(read, 50000u);
}

}  // namespace
