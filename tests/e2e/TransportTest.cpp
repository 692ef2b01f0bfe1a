// What comes out of the chassis, packet by packet.
#include <map>
#include <set>

#include "Run.h"

namespace e2e {
namespace {

constexpr std::size_t packetSize = 188;
constexpr std::size_t loopsUntilCountersRecur = 16;

const std::set<std::uint16_t> streamPids = {0x1001, 0x1002, 0x1011, 0x1012,
                                            0x1021, 0x1022, 0x1031, 0x1032};

std::map<std::uint16_t, std::vector<Bytes>> packetsByPid(const Bytes &stream) {
  std::map<std::uint16_t, std::vector<Bytes>> packets;
  for (std::size_t at = 0; at + packetSize <= stream.size(); at += packetSize) {
    EXPECT_EQ(stream[at], 0x47) << "at " << at;
    const auto pid = static_cast<std::uint16_t>((stream[at + 1] & 0x1F) << 8 | stream[at + 2]);
    packets[pid].emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(at),
                              stream.begin() + static_cast<std::ptrdiff_t>(at + packetSize));
  }
  return packets;
}

Bytes withoutCounter(Bytes packet) {
  packet[3] &= 0xF0;
  return packet;
}

bool isScrambled(const Bytes &packet) {
  return (packet[3] & 0xC0) != 0;
}

const std::string allOnCamA =
    "cardInsert 0, \"build/samples/headend.ts\"\n"
    "progAssign 0, 101, 1\nprogAssign 0, 102, 1\nprogAssign 0, 103, 1\nprogAssign 0, 104, 1\n"
    "camInsert 0, 0, 0x0500\n";

using Transport = Run;

TEST_F(Transport, EntitledProgramsComeOutBitForBit) {
  const Result result = runScript(allOnCamA + "wait 180", "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  auto clear = packetsByPid(readFile(samples + "/headend-clear.ts"));
  auto scrambled = packetsByPid(readFile(std::string(E2E_BUILD) + "/samples/headend.ts"));
  auto out = packetsByPid(read("out.ts"));
  for (const std::uint16_t pid : streamPids) {
    const std::vector<Bytes> &wanted = clear[pid];
    const std::size_t loop = wanted.size();
    ASSERT_GT(loop, 100u) << pid;
    ASSERT_EQ(scrambled[pid].size(), loop) << pid;
    EXPECT_NE(scrambled[pid], wanted) << pid;
    const std::size_t begin = loopsUntilCountersRecur * loop;
    ASSERT_GE(out[pid].size(), begin + loop) << pid;
    std::size_t different = 0;
    for (std::size_t i = 0; i < loop; ++i) {
      different += out[pid][begin + i] != wanted[i] ? 1 : 0;
    }
    EXPECT_EQ(different, 0u) << pid;
  }
}

TEST_F(Transport, EveryLoopComesOutButForTheCounters) {
  const Result result = runScript(allOnCamA + "wait 60", "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  auto clear = packetsByPid(readFile(samples + "/headend-clear.ts"));
  auto out = packetsByPid(read("out.ts"));
  for (const std::uint16_t pid : streamPids) {
    const std::vector<Bytes> &wanted = clear[pid];
    const std::vector<Bytes> &got = out[pid];
    ASSERT_GT(got.size(), 4 * wanted.size()) << pid;
    for (std::size_t i = wanted.size(); i < got.size(); ++i) {
      ASSERT_EQ(withoutCounter(got[i]), withoutCounter(wanted[i % wanted.size()]))
          << "PID " << pid << " packet " << i;
    }
  }
}

TEST_F(Transport, ProgramWithoutEntitlementStaysScrambled) {
  const Result result =
      runScript(allOnCamA + "camEntitle 0, 0, 102, 0\nwait 30", "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  auto scrambled = packetsByPid(readFile(std::string(E2E_BUILD) + "/samples/headend.ts"));
  auto out = packetsByPid(read("out.ts"));
  for (const std::uint16_t pid : {0x1011, 0x1012}) {
    const std::vector<Bytes> &in = scrambled[static_cast<std::uint16_t>(pid)];
    const std::vector<Bytes> &got = out[static_cast<std::uint16_t>(pid)];
    ASSERT_GT(got.size(), in.size()) << pid;
    for (std::size_t i = 0; i < got.size(); ++i) {
      ASSERT_EQ(withoutCounter(got[i]), withoutCounter(in[i % in.size()])) << pid << " " << i;
    }
  }
  EXPECT_FALSE(isScrambled(out[0x1001].back()));
}

TEST_F(Transport, JoinedFilesAreOneStream) {
  const std::string build = E2E_BUILD;
  const Bytes first = readFile(build + "/samples/headend.ts");
  const Bytes second = readFile(build + "/samples/headend-later.ts");
  const Bytes joined = readFile(build + "/samples/headend-changing.ts");
  ASSERT_EQ(joined.size(), first.size() + second.size());
  EXPECT_TRUE(std::equal(first.begin(), first.end(), joined.begin()));
  for (const auto &[pid, packets] : packetsByPid(joined)) {
    for (std::size_t i = 1; pid != 0x1FFF && i < packets.size(); ++i) {
      const int step = (packets[i][3] & 0x10) != 0 ? 1 : 0;
      ASSERT_EQ(packets[i][3] & 0x0F, (packets[i - 1][3] + step) & 0x0F) << pid << " " << i;
    }
  }
}

TEST_F(Transport, ProgramWhoseEcmsMoveStaysDescrambled) {
  const Result result = runScript(
      "cardInsert 0, \"build/samples/headend-changing.ts\"\nprogAssign 0, 102, 1\n"
      "camInsert 0, 0, 0x0500\nwait 35");
  EXPECT_EQ(linesWith(result.out, "the stream's programs changed").size(), 3U) << result.out;
  EXPECT_EQ(linesWith(result.out, "CA PMT sent: program 102").size(), 4U) << result.out;
  EXPECT_TRUE(linesWith(result.out, "ALARM raised").empty()) << result.out;
}

TEST_F(Transport, CountersRunOnAcrossTheEndOfTheFile) {
  const Result result = runScript(allOnCamA + "wait 35", "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  auto out = packetsByPid(read("out.ts"));
  for (const std::uint16_t pid : streamPids) {
    const std::vector<Bytes> &packets = out[pid];
    ASSERT_GT(packets.size(), 300u) << pid;
    for (std::size_t i = 1; i < packets.size(); ++i) {
      const int step = (packets[i][3] & 0x10) != 0 ? 1 : 0;
      ASSERT_EQ(packets[i][3] & 0x0F, (packets[i - 1][3] + step) & 0x0F) << pid << " " << i;
    }
  }
}

}  // namespace
}  // namespace e2e
