#include "ts/TsFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "base/InputError.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::TsFile;
using chassis::TsPacket;

namespace {

StreamWriter packetsOf(unsigned pid, unsigned count) {
  StreamWriter stream;
  for (unsigned i = 0; i < count; ++i) {
    stream.payload(pid);
  }
  return stream;
}

Bytes bytesFrom(const Bytes &all, std::size_t begin, std::size_t end) {
  return Bytes(all.begin() + static_cast<std::ptrdiff_t>(begin),
               all.begin() + static_cast<std::ptrdiff_t>(end));
}

std::vector<TsPacket> readAll(TsFile &file) {
  std::vector<TsPacket> packets;
  TsPacket packet;
  while (file.next(packet)) {
    packets.push_back(packet);
  }
  return packets;
}

std::string errorOf(const std::string &path) {
  try {
    TsFile file(path);
  } catch (const chassis::InputError &error) {
    return error.what();
  }
  return "";
}

void expectError(const std::string &path, const std::string &reason) {
  const std::string error = errorOf(path);
  EXPECT_NE(error.find(path), std::string::npos) << error;
  EXPECT_NE(error.find(reason), std::string::npos) << error;
}

}  // namespace

TEST(TsFile, ReadsEveryPacketAsItStands) {
  const StreamWriter stream = packetsOf(0x100, 3000);
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  const auto packets = readAll(reader);
  ASSERT_EQ(packets.size(), 3000U);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_EQ(packets[i], stream.packet(i)) << i;
  }
  EXPECT_EQ(reader.packets(), 3000U);
  EXPECT_EQ(reader.skippedBytes(), 0U);
}

TEST(TsFile, ReadsOnePacket) {
  const StreamWriter stream = packetsOf(0x100, 1);
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader), std::vector<TsPacket>{stream.packet(0)});
}

TEST(TsFile, RewindReadsTheSameAgain) {
  const TemporaryFile file(packetsOf(0x100, 20).raw(Bytes(50, 0x11)).bytes());
  TsFile reader(file.path());
  const auto first = readAll(reader);
  EXPECT_EQ(reader.skippedBytes(), 50U);
  reader.rewind();
  EXPECT_EQ(reader.packets(), 0U);
  EXPECT_EQ(reader.skippedBytes(), 0U);
  EXPECT_EQ(readAll(reader), first);
  EXPECT_EQ(reader.packets(), 20U);
  EXPECT_EQ(reader.skippedBytes(), 50U);
}

TEST(TsFile, SkipsBytesBeforeTheFirstPacket) {
  StreamWriter stream;
  // a sync byte in the noise, which no packet follows
  Bytes noise(1000, 0x00);
  noise[17] = 0x47;
  stream.raw(noise);
  for (int i = 0; i < 10; ++i) {
    stream.payload(0x100);
  }
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  const auto packets = readAll(reader);
  EXPECT_EQ(packets.size(), 10U);
  EXPECT_EQ(reader.skippedBytes(), 1000U);
}

TEST(TsFile, AStraySyncByteHidesNoPacketBehindIt) {
  const StreamWriter stream = packetsOf(0x100, 20);
  for (const std::size_t strays : {1u, 2u, 3u}) {
    Bytes all(strays, 0x47);
    const Bytes packets = stream.bytes();
    all.insert(all.end(), packets.begin(), packets.end());
    const TemporaryFile temporary(all);
    TsFile file(temporary.path());
    const std::vector<TsPacket> read = readAll(file);
    ASSERT_EQ(read.size(), 20U) << strays;
    EXPECT_EQ(read.front(), stream.packet(0)) << strays;
    EXPECT_EQ(file.skippedBytes(), strays);
  }
}

TEST(TsFile, SkipsMoreNoiseThanItBuffers) {
  StreamWriter stream;
  stream.raw(Bytes(1000000, 0x00));
  for (int i = 0; i < 10; ++i) {
    stream.payload(0x100);
  }
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader).size(), 10U);
  EXPECT_EQ(reader.skippedBytes(), 1000000U);
}

TEST(TsFile, SkipsBytesBetweenPackets) {
  StreamWriter stream = packetsOf(0x100, 10);
  stream.raw(Bytes(100, 0x00));
  for (int i = 0; i < 10; ++i) {
    stream.payload(0x101);
  }
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  const auto packets = readAll(reader);
  ASSERT_EQ(packets.size(), 20U);
  EXPECT_EQ(packets[9], stream.packet(9));
  EXPECT_EQ(packets[10][2], 0x01);
  EXPECT_EQ(reader.skippedBytes(), 100U);
}

TEST(TsFile, GoesOnBehindLostBytes) {
  const StreamWriter stream = packetsOf(0x100, 20);
  Bytes bytes = stream.bytes();
  bytes.erase(bytes.begin() + 5 * 188 + 10, bytes.begin() + 5 * 188 + 30);
  const TemporaryFile file(bytes);
  TsFile reader(file.path());
  const auto packets = readAll(reader);
  // the cut packet takes the head of the next one with it
  ASSERT_EQ(packets.size(), 19U);
  EXPECT_EQ(packets[4], stream.packet(4));
  EXPECT_EQ(packets[6], stream.packet(7));
  EXPECT_EQ(reader.skippedBytes(), 168U);
}

TEST(TsFile, SkipsATruncatedLastPacket) {
  const StreamWriter stream = packetsOf(0x100, 20);
  const TemporaryFile file(bytesFrom(stream.bytes(), 0, 20 * 188 - 1));
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader).size(), 19U);
  EXPECT_EQ(reader.skippedBytes(), 187U);
}

TEST(TsFile, ReadsAShortFileCutInItsSecondPacket) {
  const TemporaryFile file(bytesFrom(packetsOf(0x100, 2).bytes(), 0, 300));
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader).size(), 1U);
  EXPECT_EQ(reader.skippedBytes(), 112U);
}

TEST(TsFile, FindsFewPacketsAtTheEnd) {
  StreamWriter stream = packetsOf(0x100, 10);
  stream.raw(Bytes(70, 0x00)).payload(0x100).payload(0x100);
  const TemporaryFile file(stream.bytes());
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader).size(), 12U);
  EXPECT_EQ(reader.skippedBytes(), 70U);
}

TEST(TsFile, TakesNoStraySyncByteAtTheEndForAPacket) {
  Bytes noise(400, 0x00);
  noise[100] = 0x47;
  const TemporaryFile file(packetsOf(0x100, 10).raw(noise).bytes());
  TsFile reader(file.path());
  EXPECT_EQ(readAll(reader).size(), 10U);
  EXPECT_EQ(reader.skippedBytes(), 400U);
}

namespace {

// The same packets with bytes before and behind each.
Bytes spread(const StreamWriter &stream, std::size_t before, std::size_t behind) {
  Bytes bytes;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    const TsPacket packet = stream.packet(i);
    bytes.insert(bytes.end(), before, static_cast<std::uint8_t>(i));
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    bytes.insert(bytes.end(), behind, static_cast<std::uint8_t>(i));
  }
  return bytes;
}

}  // namespace

TEST(TsFile, HandsOnTheSamePacketsOfEachSize) {
  const StreamWriter stream = packetsOf(0x100, 3000);
  for (const auto &[before, behind] : {std::pair{4U, 0U}, std::pair{0U, 16U}}) {
    const TemporaryFile file(spread(stream, before, behind));
    TsFile reader(file.path());
    for (int time = 0; time < 2; ++time) {
      const auto packets = readAll(reader);
      ASSERT_EQ(packets.size(), 3000U);
      for (std::size_t i = 0; i < packets.size(); ++i) {
        ASSERT_EQ(packets[i], stream.packet(i)) << i;
      }
      EXPECT_EQ(reader.packets(), 3000U);
      EXPECT_EQ(reader.skippedBytes(), 0U);
      reader.rewind();
    }
  }
}

TEST(TsFile, ReadsOnThroughAllSizesAndNoiseBetweenThem) {
  const StreamWriter stream = packetsOf(0x100, 1500);
  Bytes bytes = spread(stream, 4, 0);
  append(bytes, stream.bytes());
  append(bytes, Bytes(1000, 0x00));
  append(bytes, spread(stream, 0, 16));
  const TemporaryFile file(bytes);
  TsFile reader(file.path());
  const auto packets = readAll(reader);
  ASSERT_EQ(packets.size(), 4500U);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    ASSERT_EQ(packets[i], stream.packet(i % 1500)) << i;
  }
  EXPECT_EQ(reader.skippedBytes(), 1000U);
}

TEST(TsFile, SaysThatAFileIsMissing) {
  expectError("/nonexistent/stream.ts", "cannot be opened");
}

TEST(TsFile, SaysThatADirectoryIsNoFile) {
  expectError(std::filesystem::temp_directory_path().string(), "not a regular file");
}

TEST(TsFile, SaysThatAFileIsEmpty) {
  const TemporaryFile file;
  expectError(file.path(), "is empty");
}

// Nothing is mapped at the begin of a program's memory.
TEST(TsFile, SaysThatAFileCannotBeRead) {
  expectError("/proc/self/mem", "cannot be read to its end: Input/output error");
}

TEST(TsFile, SaysThatAFileHoldsNoTransportStream) {
  for (const std::size_t size : {1, 187, 189, 5000, 300000}) {
    Bytes text(size);
    for (std::size_t i = 0; i < size; ++i) {
      text[i] = static_cast<std::uint8_t>("GNU GENERAL TEXT\n"[i % 17]);
    }
    const TemporaryFile file(text);
    expectError(
        file.path(),
        "holds no transport stream: no packets of 188, 192 or 204 bytes with sync byte 0x47");
  }
}

TEST(TsFile, OneSyncByteBehindTheFirstByteIsNoTransportStream) {
  for (std::size_t size = 189; size <= 10 * 188; ++size) {
    Bytes bytes(size, 1);
    bytes[1] = 0x47;
    const TemporaryFile file(bytes);
    expectError(file.path(), "holds no transport stream");
  }
}

TEST(TsFile, TakesNoFifoAndDoesNotWaitForIt) {
  const TemporaryFile place;
  std::filesystem::remove(place.path());
  ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
  expectError(place.path(), "not a regular file");
}

TEST(TsFile, TheSearchForAPacketCanBeBrokenOff) {
  const TemporaryFile file(Bytes(32 << 20, 0));
  int asked = 0;
  EXPECT_THROW(TsFile(file.path(), [&asked](const chassis::Progress &) { return ++asked < 2; }),
               chassis::Interrupted);
  EXPECT_EQ(asked, 2);
}

TEST(TsFile, AFileThatWasBrokenOffIsReadAgainFromItsBegin) {
  Bytes bytes = packetsOf(0x100, 10).bytes();
  bytes.resize(32 << 20);
  const TemporaryFile file(bytes);
  int asked = 0;
  TsFile reader(file.path(), [&asked](const chassis::Progress &) { return ++asked != 2; });
  EXPECT_EQ(readAll(reader).size(), 10U);
  EXPECT_EQ(asked, 2);
  EXPECT_THROW(reader.requireUninterrupted(), chassis::Interrupted);
  reader.rewind();
  EXPECT_EQ(readAll(reader).size(), 10U);
  EXPECT_GT(asked, 3);
}

// However far into the file the damage is.
TEST(TsFile, NobodyIsAskedForALittleDamage) {
  StreamWriter stream = packetsOf(0x100, 50000);
  for (int i = 0; i < 20; ++i) {
    stream.raw(Bytes(100, 0x00));
    for (int packet = 0; packet < 10; ++packet) {
      stream.payload(0x100);
    }
  }
  const TemporaryFile file(stream.bytes());
  int asked = 0;
  TsFile reader(file.path(), [&asked](const chassis::Progress &) { return ++asked == 0; });
  EXPECT_EQ(readAll(reader).size(), 50200U);
  EXPECT_EQ(asked, 0);
}
