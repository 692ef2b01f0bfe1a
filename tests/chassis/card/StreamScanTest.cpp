#include "card/StreamScan.h"

#include <gtest/gtest.h>

#include "base/InputError.h"
#include "chassis/StreamWriter.h"
#include "ts/PacketView.h"

using namespace testing_streams;
using chassis::pcrHz;
using chassis::pcrRange;
using chassis::scanStream;

namespace {

const ProgramMap program{1, 0x1000, 0x100, {{0x1B, 0x100, {}}}, {}, 0};

// PCRs every 100 packets; stepTicks of 27 MHz from one to the next.
StreamWriter clocked(std::uint64_t firstPcr, std::uint64_t stepTicks, unsigned steps) {
  StreamWriter stream;
  stream.psi({program});
  for (unsigned i = 0; i <= steps; ++i) {
    stream.pcr(0x100, (firstPcr + i * stepTicks) % pcrRange);
    for (int n = 0; n < 99; ++n) {
      stream.payload(0x100);
    }
  }
  return stream;
}

std::uint64_t bitrateOf(const StreamWriter &stream) {
  const TemporaryFile file(stream.bytes());
  return scanStream(file.path(), 0).bitrate;
}

void expectError(const Bytes &bytes, std::uint64_t bitrate, const std::string &reason) {
  const TemporaryFile file(bytes);
  try {
    scanStream(file.path(), bitrate);
    FAIL() << "no error, but: " << reason;
  } catch (const chassis::InputError &error) {
    const std::string text = error.what();
    EXPECT_NE(text.find(file.path()), std::string::npos) << text;
    EXPECT_NE(text.find(reason), std::string::npos) << text;
  }
}

}  // namespace

TEST(StreamScan, MeasuresTheBitrateByPcrs) {
  // 100 packets in 40 ms
  EXPECT_EQ(bitrateOf(clocked(5, pcrHz * 40 / 1000, 10)), 3760000U);
}

TEST(StreamScan, MeasuresAcrossTheWrapOfThePcr) {
  EXPECT_EQ(bitrateOf(clocked(pcrRange - pcrHz / 100, pcrHz * 40 / 1000, 1)), 3760000U);
}

TEST(StreamScan, LeavesOutJumpsOfThePcr) {
  StreamWriter stream = clocked(0, pcrHz * 40 / 1000, 5);
  for (const std::uint64_t base : {pcrHz * 3600, pcrHz * 7}) {
    for (unsigned i = 0; i <= 5; ++i) {
      stream.pcr(0x100, base + i * (pcrHz * 40 / 1000));
      for (int n = 0; n < 99; ++n) {
        stream.payload(0x100);
      }
    }
  }
  EXPECT_EQ(bitrateOf(stream), 3760000U);
}

TEST(StreamScan, StepsOfTenSecondsAreNoJumpsYet) {
  EXPECT_EQ(bitrateOf(clocked(0, pcrHz * 10, 3)), 15040U);
  expectError(clocked(0, pcrHz * 10 + 1, 3).bytes(), 0, "bitrate");
}

TEST(StreamScan, LeavesOutAnAnnouncedJump) {
  StreamWriter stream = clocked(0, pcrHz * 40 / 1000, 5);
  stream.adaptation(0x100, 0x90, pcrHz, true);
  EXPECT_EQ(bitrateOf(stream), 3760000U);
}

TEST(StreamScan, TakesThePcrsOfAPcrPid) {
  StreamWriter stream;
  stream.psi({program}).pcr(0x555, 0).pcr(0x100, 0).payload(0x100).pcr(0x555, 1).pcr(0x100,
                                                                                     3 * 1504);
  // three packets in 3 * 1504 ticks
  EXPECT_EQ(bitrateOf(stream), pcrHz);
}

TEST(StreamScan, AGivenBitrateNeedsNoPcr) {
  const TemporaryFile file(StreamWriter().psi({program}).payload(0x100).bytes());
  const auto scan = scanStream(file.path(), 1234567);
  EXPECT_EQ(scan.bitrate, 1234567U);
  EXPECT_EQ(scan.packets, 3U);
  EXPECT_EQ(scan.psi->psi().programs.size(), 1U);
}

TEST(StreamScan, TellsTheTablesWithWhichTheFileBegins) {
  ProgramMap later = program;
  later.version = 1;
  StreamWriter stream;
  stream.psi({program}).payload(0x100).psi({later}).payload(0x100);
  const TemporaryFile file(stream.bytes());
  const auto scan = scanStream(file.path(), 1000000);
  EXPECT_EQ(scan.packets, 6U);
  EXPECT_EQ(scan.psi->psi().programs.at(0).version, 0U);
}

TEST(StreamScan, CountsDamage) {
  StreamWriter stream = clocked(0, pcrHz / 25, 3);
  stream.raw(Bytes(77, 0));
  const TemporaryFile file(stream.bytes());
  EXPECT_EQ(scanStream(file.path(), 0).skippedBytes, 77U);
}

TEST(StreamScan, TellsWhatALoopAddsToTheCounters) {
  StreamWriter stream;
  stream.psi({program});
  stream.counter(0x100, 7);
  for (int i = 0; i < 21; ++i) {
    stream.payload(0x100);
  }
  stream.adaptation(0x100, 0x10, 0, false);
  for (int i = 0; i < 32; ++i) {
    stream.payload(0x101).null();
  }
  const TemporaryFile file(stream.bytes());
  const auto scan = scanStream(file.path(), 1000000);
  EXPECT_EQ(scan.ccStep[0x100], 5U);
  EXPECT_EQ(scan.ccStep[0x101], 0U);
  EXPECT_EQ(scan.ccStep[0], 1U);
  EXPECT_EQ(scan.ccStep[0x102], 0U);
  EXPECT_EQ(scan.ccStep[chassis::nullPid], 0U);
}

TEST(StreamScan, SaysWhatAStreamLacks) {
  StreamWriter noPat;
  noPat.table(0x1000, pmtSection(program)).payload(0x100).payload(0x100);
  expectError(noPat.bytes(), 1000000, "no program association table");

  StreamWriter noPmt;
  noPmt.table(0, patSection({program})).payload(0x100).payload(0x100);
  expectError(noPmt.bytes(), 1000000, "no program with a program map table");

  StreamWriter noPcr;
  noPcr.psi({program}).payload(0x100);
  expectError(noPcr.bytes(), 0,
              "the PMT gives PID 0x0100 for clock references (PCR), and there are none on it; a "
              "card can be given "
              "one in bit/s: cardInsert slot, \"");

  StreamWriter onePcr;
  onePcr.psi({program}).pcr(0x100, 0).payload(0x100);
  expectError(onePcr.bytes(), 0, "and there are too few on it; ");

  StreamWriter otherPcr;
  otherPcr.psi({program}).pcr(0x101, 0).pcr(0x101, pcrHz);
  expectError(otherPcr.bytes(), 0, "PID 0x0100 for clock references (PCR), and there are none");

  ProgramMap second = program;
  second.number = 2;
  second.pmtPid = 0x1001;
  second.pcrPid = 0x102;
  StreamWriter two;
  two.psi({program, second}).payload(0x100);
  expectError(two.bytes(), 0,
              "the PMTs give PID 0x0100, PID 0x0102 for clock references (PCR), and "
              "there are none on them");

  ProgramMap none = program;
  none.pcrPid = chassis::nullPid;
  StreamWriter noPid;
  noPid.psi({none}).payload(0x100);
  expectError(noPid.bytes(), 0, "no PMT gives a PID for clock references (PCR)");

  expectError({}, 0, "is empty");
  expectError(Bytes(1000, 1), 0, "holds no transport stream");
}

TEST(StreamScan, RefusesImpossibleBitrates) {
  const Bytes bytes = clocked(0, 1, 2).bytes();
  expectError(bytes, 0, "1 to 1000000000 are possible");
  expectError(bytes, chassis::maxBitrate + 1, "1 to 1000000000 are possible");
  const TemporaryFile file(bytes);
  EXPECT_EQ(scanStream(file.path(), chassis::maxBitrate).bitrate, chassis::maxBitrate);
}

TEST(StreamScan, IsNotMisledByBrokenPackets) {
  StreamWriter stream = clocked(0, pcrHz / 100, 5);
  const StreamWriter sound = stream;
  chassis::TsPacket broken = StreamWriter().pcr(0x100, 77).packet(0);
  broken[1] |= 0x80;
  broken[3] ^= 0x07;
  stream.add(broken);
  const TemporaryFile file(stream.bytes());
  const TemporaryFile soundFile(sound.bytes());
  const auto scan = scanStream(file.path(), 0);
  const auto expected = scanStream(soundFile.path(), 0);
  EXPECT_EQ(scan.bitrate, expected.bitrate);
  EXPECT_EQ(scan.ccStep, expected.ccStep);
}

TEST(StreamScan, CanBeBrokenOff) {
  Bytes bytes = StreamWriter().psi({program}).null().null().null().bytes();
  bytes.resize(64 << 20);  // no packet any more
  const TemporaryFile file(bytes);
  std::vector<chassis::Progress> asked;
  const auto until = [&asked](std::size_t times) {
    return [&asked, times](const chassis::Progress &progress) {
      asked.push_back(progress);
      return asked.size() < times;
    };
  };
  EXPECT_THROW(scanStream(file.path(), 1000000, until(3)), chassis::Interrupted);
  ASSERT_EQ(asked.size(), 3U);
  EXPECT_EQ(asked[0].what, "reading '" + file.path() + "'");
  EXPECT_EQ(asked[0].all, bytes.size());
  EXPECT_LT(asked[0].done, asked[1].done);
  asked.clear();
  EXPECT_EQ(scanStream(file.path(), 1000000, until(1000)).packets, 5U);
  EXPECT_GT(asked.size(), 10U);
  EXPECT_EQ(asked.back().done, asked.back().all);
}
