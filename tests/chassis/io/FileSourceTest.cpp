#include "io/FileSource.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "card/PidFaults.h"
#include "card/PidMeter.h"
#include "card/StreamScan.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::FileSource;
using chassis::PidFault;
using chassis::PidFaults;
using chassis::TsPacket;

namespace {

const ProgramMap program{1, 0x1000, 0x100, {{0x1B, 0x100, {}}}, {}, 0};

off_t readable = std::numeric_limits<off_t>::max();  // of every file

FileSource::Pace pace(std::uint64_t bitrate, const FileSource::CcSteps &ccStep = {}) {
  FileSource::Pace pace;
  pace.bitrate = bitrate;
  pace.ccStep = ccStep;
  return pace;
}

// Takes all that are due; how many those were.
std::size_t taken(FileSource &player, std::uint64_t nowMs) {
  const std::size_t due = player.due(nowMs);
  TsPacket packet;
  std::uint64_t cameNs = 0;
  for (std::size_t i = 0; i < due; ++i) {
    EXPECT_TRUE(player.next(packet, cameNs));
  }
  EXPECT_FALSE(player.next(packet, cameNs)) << "none is due";
  return due;
}

struct Playing {
  explicit Playing(const StreamWriter &written)
      : stream(written),
        file(written.bytes()),
        player(file.path(),
               pace(chassis::maxBitrate, chassis::scanStream(file.path(), 1000000).ccStep)) {}

  // As soon as it is due.
  bool next(TsPacket &packet) {
    player.due(++nowMs);
    return player.next(packet, cameNs);
  }
  TsPacket next() {
    TsPacket packet{};
    EXPECT_TRUE(next(packet));
    return packet;
  }

  StreamWriter stream;
  TemporaryFile file;
  FileSource player;
  std::uint64_t nowMs = 0;
  std::uint64_t cameNs = 0;
};

}  // namespace

// In place of the C library's: a disk that is broken from some byte on.
extern "C" ssize_t read(int file, void *to, std::size_t size) {
  if (lseek(file, 0, SEEK_CUR) >= readable) {
    errno = EIO;
    return -1;
  }
  return syscall(SYS_read, file, to, size);
}

TEST(FileSource, KeepsItsBitrateForHours) {
  const TemporaryFile file(StreamWriter().psi({program}).bytes());
  const std::uint64_t bitrate = 38014706;  // nothing divides it
  FileSource::Pace slow = pace(bitrate);
  slow.startMs = 123;
  FileSource player(file.path(), slow);
  std::uint64_t packets = 0;
  const std::uint64_t hours = 36000000;
  for (std::uint64_t ms = 10000; ms <= hours; ms += 10000) {
    packets = player.due(123 + ms);
    if (ms % 3600000 == 0) {
      EXPECT_EQ(packets, ms * bitrate / (1504 * 1000));
    }
  }
}

TEST(FileSource, TheSizeOfTheStepsIsNoMatter) {
  const TemporaryFile file(StreamWriter().psi({program}).bytes());
  FileSource fine(file.path(), pace(999983));
  FileSource coarse(file.path(), pace(999983));
  std::size_t packets = 0;
  for (std::uint64_t ms = 1; ms <= 7777; ++ms) {
    packets += taken(fine, ms);
  }
  EXPECT_EQ(packets, taken(coarse, 7777));
  EXPECT_EQ(coarse.due(7777), 0U);
  EXPECT_EQ(fine.counters().packets, packets);
}

TEST(FileSource, APacketIsDueWithItsLastBit) {
  const TemporaryFile file(StreamWriter().psi({program}).bytes());
  const std::uint64_t packetPerMs = 1504 * 1000;
  FileSource exact(file.path(), pace(packetPerMs));
  FileSource slower(file.path(), pace(packetPerMs - 1));
  EXPECT_EQ(exact.due(1), 1U);
  EXPECT_EQ(slower.due(1), 0U);
  EXPECT_EQ(slower.due(2), 1U);
}

TEST(FileSource, PacketsComeWhereTheyLieInTime) {
  const TemporaryFile file(StreamWriter().psi({program}).payload(0x100).bytes());
  FileSource player(file.path(), pace(1504 * 400));  // one in 2.5 ms
  EXPECT_EQ(player.due(11), 4U);
  TsPacket packet;
  for (const std::uint64_t ns : {2500000, 5000000, 7500000, 10000000}) {
    std::uint64_t cameNs = 0;
    EXPECT_TRUE(player.next(packet, cameNs));
    EXPECT_EQ(cameNs, ns);
  }
}

TEST(FileSource, OnceEndsWithTheFile) {
  const StreamWriter stream = StreamWriter().psi({program}).payload(0x100);
  const TemporaryFile file(stream.bytes());
  FileSource::Pace once = pace(chassis::maxBitrate);
  once.repeat = FileSource::Repeat::Once;
  FileSource player(file.path(), once);
  player.due(100);
  TsPacket packet;
  std::uint64_t cameNs = 0;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    EXPECT_TRUE(player.next(packet, cameNs));
    EXPECT_FALSE(player.ended());
  }
  EXPECT_FALSE(player.next(packet, cameNs));
  EXPECT_TRUE(player.ended());
  EXPECT_FALSE(player.unreadable());
}

TEST(FileSource, LoopsWithoutContinuityErrors) {
  StreamWriter stream;
  stream.psi({program}).counter(0x100, 11);
  for (int i = 0; i < 7; ++i) {
    stream.payload(0x100).payload(0x101).payload(0x101).adaptation(0x101, 0x10, 0, false);
  }
  Playing playing(stream);
  chassis::PidMeter meter;
  meter.restart(0);
  for (std::size_t i = 0; i < stream.packets() * 40; ++i) {
    meter.count(playing.next(), 0);
  }
  for (const std::uint16_t pid : {0x0000, 0x0100, 0x0101, 0x1000}) {
    EXPECT_EQ(meter.evidence(pid).ccErrors, 0U) << pid;
    EXPECT_GE(meter.evidence(pid).packets, 40U) << pid;
  }
}

TEST(FileSource, ALoopOfSixteenComesOutUnchanged) {
  StreamWriter stream;
  for (int i = 0; i < 16; ++i) {
    stream.psi({program});
  }
  stream.counter(0x100, 5);
  for (int i = 0; i < 48; ++i) {
    stream.payload(0x100).null();
  }
  Playing playing(stream);
  for (std::size_t i = 0; i < stream.packets() * 3; ++i) {
    ASSERT_EQ(playing.next(), stream.packet(i % stream.packets())) << i;
  }
}

TEST(FileSource, ChangesNothingButTheCounter) {
  StreamWriter stream;
  stream.psi({program}).payload(0x100, {1, 2, 3}, true, 2);
  Playing playing(stream);
  for (std::size_t i = 0; i < stream.packets() * 3; ++i) {
    TsPacket expected = stream.packet(i % stream.packets());
    expected[3] = static_cast<std::uint8_t>((expected[3] & 0xF0) | i / stream.packets());
    ASSERT_EQ(playing.next(), expected) << i;
  }
}

TEST(FileSource, TheFirstClockOfAPidTellsThatTimeHasJumped) {
  StreamWriter stream;
  stream.psi({program}).payload(0x100).pcr(0x100, 5).pcr(0x100, 6).pcr(0x101, 7);
  Playing playing(stream);
  for (std::size_t i = 0; i < stream.packets() * 3; ++i) {
    const std::size_t at = i % stream.packets();
    const bool again = i >= stream.packets();
    TsPacket expected = stream.packet(at);
    const chassis::PacketView view(expected);
    const bool first = view.pcr() && *view.pcr() != 6;
    if (first && again) {
      expected[5] |= 0x80;
    }
    TsPacket got = playing.next();
    got[3] = expected[3];
    ASSERT_EQ(got, expected) << i;
  }
}

TEST(FileSource, LeavesBrokenPacketsAsTheyAre) {
  StreamWriter stream;
  stream.psi({program}).payload(0x100);
  TsPacket broken = StreamWriter().pcr(0x100, 5).packet(0);
  broken[1] |= 0x80;
  stream.add(broken);
  Playing playing(stream);
  for (std::size_t i = 0; i < stream.packets() * 3; ++i) {
    const TsPacket got = playing.next();
    if (i % stream.packets() == stream.packets() - 1) {
      ASSERT_EQ(got, broken) << i;
    }
  }
}

TEST(FileSource, EndsWhenTheFileIsGone) {
  Playing playing(StreamWriter().psi({program}));
  playing.next();
  playing.next();
  playing.file.write({});
  TsPacket packet;
  EXPECT_FALSE(playing.next(packet));
  EXPECT_FALSE(playing.next(packet));
}

// Whose first part is not played for the whole.
TEST(FileSource, EndsWhereTheFileCannotBeRead) {
  StreamWriter stream;
  stream.psi({program});
  while (stream.packets() < 3000) {
    stream.payload(0x100);
  }
  Playing playing(stream);
  readable = 188 * 1000;
  TsPacket packet;
  std::size_t played = 0;
  while (played < stream.packets() && playing.next(packet)) {
    EXPECT_EQ(packet, stream.packet(played++));
  }
  EXPECT_GE(played, 1000U);
  EXPECT_LT(played, stream.packets());
  EXPECT_FALSE(playing.next(packet));
  readable = std::numeric_limits<off_t>::max();
}

TEST(PidFaults, ADroppedPidIsLost) {
  PidFaults faults;
  faults.set(PidFault::Drop, 0x100, true);
  StreamWriter stream;
  stream.payload(0x100).payload(0x101);
  TsPacket packet = stream.packet(0);
  EXPECT_FALSE(faults.apply(packet));
  packet = stream.packet(1);
  EXPECT_TRUE(faults.apply(packet));
  EXPECT_EQ(packet, stream.packet(1));
  faults.set(PidFault::Drop, 0x100, false);
  packet = stream.packet(0);
  EXPECT_TRUE(faults.apply(packet));
}

TEST(PidFaults, DamageHitsPayloadsAndLosesEveryFourth) {
  PidFaults faults;
  faults.set(PidFault::Damage, 0x100, true);
  StreamWriter stream;
  for (int i = 0; i < 12; ++i) {
    stream.adaptation(0x100, 0x10, 0, true);
  }
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    const TsPacket whole = stream.packet(i);
    TsPacket packet = whole;
    ASSERT_EQ(faults.apply(packet), i % 4 != 3) << i;
    if (i % 4 != 3) {
      EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + 12, packet.begin()));
      for (std::size_t at = 12; at < whole.size(); ++at) {
        ASSERT_EQ(packet[at], whole[at] ^ 0x24) << at;
      }
    }
  }
  faults.clear();
  TsPacket packet = stream.packet(0);
  EXPECT_TRUE(faults.apply(packet));
  EXPECT_EQ(packet, stream.packet(0));
}

TEST(PidFaults, APidOutOfRangeHasNone) {
  PidFaults faults;
  faults.set(PidFault::Drop, 0x2100, true);
  StreamWriter stream;
  TsPacket packet = stream.payload(0x100).packet(0);
  EXPECT_TRUE(faults.apply(packet));
}
