#include "card/FilePair.h"

#include <gtest/gtest.h>

#include "base/InputError.h"
#include "chassis/StreamWriter.h"
#include "ts/PacketView.h"

using namespace testing_streams;
using chassis::beginsLaterMs;
using chassis::FilePair;
using chassis::StreamScan;

namespace {

constexpr std::uint64_t pcrMs = chassis::pcrHz / 1000;

// So many packets at one in a ms; the first PCR before packet `at`.
StreamScan scan(std::uint64_t packets, std::uint16_t pid, std::uint64_t pcr, std::uint64_t at) {
  StreamScan made;
  made.bitrate = 1504000;
  made.packets = packets;
  made.firstPcrs[pid] = {pcr, at};
  return made;
}

// A second of stream at one packet in a ms, whose clock begins at so many ms.
Bytes second(std::uint64_t beginMs, unsigned pcrPid = 0x100, unsigned program = 1) {
  const ProgramMap map{program, 0x1001, pcrPid, {{0x1B, pcrPid, {}}}, {}, 0};
  StreamWriter stream;
  stream.psi({map});
  while (stream.packets() < 1000) {
    const std::size_t at = stream.packets();
    at % 20 == 0 ? stream.pcr(pcrPid, (beginMs + at) * pcrMs) : stream.null();
  }
  return stream.bytes();
}

// When the first packet is due.
std::uint64_t beginMs(chassis::PacketSource &source) {
  for (std::uint64_t ms = 1; ms < 5000; ++ms) {
    if (source.due(ms) > 0) {
      return ms - 1;
    }
  }
  return 5000;
}

}  // namespace

TEST(FilePair, ThePcrsTellHowMuchLaterOneBegins) {
  EXPECT_EQ(beginsLaterMs(scan(5000, 7, 1000 * pcrMs, 0), scan(5000, 7, 1500 * pcrMs, 0)), 500);
  EXPECT_EQ(beginsLaterMs(scan(5000, 7, 1000 * pcrMs, 100), scan(5000, 7, 1500 * pcrMs, 0)), 600);
  EXPECT_EQ(beginsLaterMs(scan(5000, 7, 1000 * pcrMs, 0), scan(5000, 7, 900 * pcrMs, 30)), -130);
}

TEST(FilePair, AroundTheWrapToo) {
  EXPECT_EQ(beginsLaterMs(scan(5000, 7, chassis::pcrRange - 100 * pcrMs, 0),
                          scan(5000, 7, 200 * pcrMs, 0)),
            300);
  EXPECT_EQ(beginsLaterMs(scan(5000, 7, 200 * pcrMs, 0),
                          scan(5000, 7, chassis::pcrRange - 100 * pcrMs, 0)),
            -300);
}

TEST(FilePair, WithoutACommonMomentThereIsNone) {
  EXPECT_EQ(beginsLaterMs(scan(1000, 7, 0, 0), scan(1000, 7, 999 * pcrMs, 0)), 999);
  EXPECT_EQ(beginsLaterMs(scan(1000, 7, 0, 0), scan(1000, 7, 1000 * pcrMs, 0)), std::nullopt);
  EXPECT_EQ(beginsLaterMs(scan(1000, 7, 1000 * pcrMs, 0), scan(1000, 7, 0, 0)), std::nullopt);
  EXPECT_EQ(beginsLaterMs(scan(1000, 7, 0, 0), scan(1000, 8, 0, 0)), std::nullopt);
}

TEST(FilePair, TheLaterOneWaits) {
  const TemporaryFile early(second(1000));
  const TemporaryFile late(second(1400));
  FilePair files(nullptr);
  files.add(FilePair::Before, late.path());
  files.add(FilePair::Behind, early.path());
  EXPECT_FALSE(files.unaligned());
  EXPECT_NEAR(static_cast<double>(beginMs(*files.play(FilePair::Before, 0))), 400, 2);
  EXPECT_EQ(beginMs(*files.play(FilePair::Behind, 0)), 0U);
  EXPECT_NEAR(static_cast<double>(beginMs(*files.play(FilePair::Before, 100))), 500, 2);
}

// A receiver may give the clock of a program another PID.
TEST(FilePair, TheClockOfAProgramMayHaveMoved) {
  const TemporaryFile in(second(1000, 0x100));
  const TemporaryFile out(second(1250, 0x500));
  FilePair files(nullptr);
  files.add(FilePair::Before, in.path());
  files.add(FilePair::Behind, out.path());
  EXPECT_FALSE(files.unaligned());
  EXPECT_EQ(beginMs(*files.play(FilePair::Before, 0)), 0U);
  EXPECT_NEAR(static_cast<double>(beginMs(*files.play(FilePair::Behind, 0))), 250, 2);
}

TEST(FilePair, AndItsProgramHaveAnotherNumber) {
  const TemporaryFile in(second(1000, 0x100));
  const TemporaryFile out(second(1250, 0x500, 9));
  FilePair as(nullptr);
  FilePair renumbered(nullptr, {{1, 9}});
  for (FilePair *files : {&as, &renumbered}) {
    files->add(FilePair::Before, in.path());
    files->add(FilePair::Behind, out.path());
  }
  EXPECT_TRUE(as.unaligned());
  EXPECT_FALSE(renumbered.unaligned());
  EXPECT_NEAR(static_cast<double>(beginMs(*renumbered.play(FilePair::Behind, 0))), 250, 2);
}

TEST(FilePair, BothBeginAtOnceWhereTheyHaveNoTimeInCommon) {
  const TemporaryFile one(second(1000));
  const TemporaryFile other(second(9000));
  FilePair files(nullptr);
  files.add(FilePair::Before, one.path());
  EXPECT_FALSE(files.unaligned()) << "the other is live";
  files.add(FilePair::Behind, other.path());
  EXPECT_TRUE(files.unaligned());
  EXPECT_EQ(beginMs(*files.play(FilePair::Before, 0)), 0U);
  EXPECT_EQ(beginMs(*files.play(FilePair::Behind, 0)), 0U);
}

TEST(FilePair, AFileThatCannotBeReadIsNamed) {
  FilePair files(nullptr);
  EXPECT_THROW(files.add(FilePair::Before, "nowhere.ts"), chassis::InputError);
}
