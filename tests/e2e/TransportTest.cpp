// What comes out of the chassis, packet by packet.
#include <algorithm>
#include <cstdlib>
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

bool hasPcr(const Bytes &packet) {
  return (packet[3] & 0x20) != 0 && packet[4] >= 7 && (packet[5] & 0x10) != 0;
}

// A PID's packets in every loop but the first: its first PCR tells that time has jumped.
std::vector<Bytes> asAgain(std::vector<Bytes> packets) {
  const auto first = std::find_if(packets.begin(), packets.end(), hasPcr);
  if (first != packets.end()) {
    (*first)[5] |= 0x80;
  }
  return packets;
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
    const std::vector<Bytes> wanted = asAgain(clear[pid]);
    const std::size_t loop = wanted.size();
    ASSERT_GT(loop, 100u) << pid;
    ASSERT_EQ(scrambled[pid].size(), loop) << pid;
    EXPECT_NE(scrambled[pid], clear[pid]) << pid;
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
    const std::vector<Bytes> wanted = asAgain(clear[pid]);
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
    const std::vector<Bytes> again = asAgain(in);
    ASSERT_GT(got.size(), in.size()) << pid;
    for (std::size_t i = 0; i < got.size(); ++i) {
      const Bytes &wanted = (i < in.size() ? in : again)[i % in.size()];
      ASSERT_EQ(withoutCounter(got[i]), withoutCounter(wanted)) << pid << " " << i;
    }
  }
  EXPECT_FALSE(isScrambled(out[0x1001].back()));
}

TEST_F(Transport, TimeThatJumpsIsAnnounced) {
  const Result result = runScript(allOnCamA + "wait 45", "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  const std::size_t loop = readFile(std::string(E2E_BUILD) + "/samples/headend.ts").size();
  const Bytes out = read("out.ts");
  ASSERT_GT(out.size(), 4 * loop);
  // three whole loops, from the second on: the CAM has begun
  write("three.ts", Bytes(out.begin() + static_cast<std::ptrdiff_t>(loop),
                          out.begin() + static_cast<std::ptrdiff_t>(4 * loop)));
  for (const auto &[pid, packets] : packetsByPid(read("three.ts"))) {
    const auto announced = std::count_if(packets.begin(), packets.end(), [](const Bytes &packet) {
      return hasPcr(packet) && (packet[5] & 0x80) != 0;
    });
    const bool clock = pid == 0x1001 || pid == 0x1011 || pid == 0x1021 || pid == 0x1031;
    EXPECT_EQ(announced, clock ? 3 : 0) << pid;
  }
  const std::string decode = "cd '" + path("") +
                             "' && ffmpeg -nostdin -v error -xerror -i three.ts -map 0 -f null - "
                             ">ffmpeg.txt 2>&1";
  EXPECT_EQ(std::system(decode.c_str()), 0);
  const Bytes said = read("ffmpeg.txt");
  EXPECT_TRUE(said.empty()) << std::string(said.begin(), said.end());
}

TEST_F(Transport, BrokenPacketsPassThroughAsTheyAre) {
  Bytes stream = readFile(std::string(E2E_BUILD) + "/samples/headend.ts");
  std::vector<std::size_t> broken;
  for (std::size_t at = 97 * packetSize; at < stream.size(); at += 97 * packetSize) {
    stream[at + 1] |= 0x80;
    stream[at + 2] ^= 0x55;  // whose it is cannot be known any more
    stream[at + 3] ^= 0x0A;
    broken.push_back(at);
  }
  write("in.ts", stream);
  const Result result =
      runScript("cardInsert 0, \"in.ts\"\nprogAssign 0, 101, 1\ncamInsert 0, 0, 0x0500\nwait 25",
                "--output 0:out.ts");
  ASSERT_EQ(result.status, 0) << result.err;
  const Bytes out = read("out.ts");
  ASSERT_GT(out.size(), 2 * stream.size());
  for (std::size_t i = 0; i < broken.size() * 2; ++i) {
    const std::size_t in = broken[i % broken.size()];
    const std::size_t at = in + i / broken.size() * stream.size();
    ASSERT_TRUE(std::equal(&stream[in], &stream[in] + packetSize, &out[at])) << i;
  }
  EXPECT_EQ(linesWith(result.out, "packets with transport_error_indicator").size(), 1U);
  const Lines head = linesWith(result.out, " with transport errors");
  ASSERT_EQ(head.size(), 1U) << result.out;
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
