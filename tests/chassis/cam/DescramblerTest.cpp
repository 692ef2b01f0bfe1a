#include "cam/Descrambler.h"

#include <gtest/gtest.h>

#include "LabStream.h"

namespace {

using namespace chassis;
using namespace testing_cam;

constexpr std::uint16_t pid = 0x100;
constexpr Descrambler::Key key = 0x500;

struct Packets {
  explicit Packets(std::size_t count, std::uint32_t period = 0) {
    std::mt19937 random(static_cast<unsigned>(count) + 1);
    for (unsigned n = 0; n < count; ++n) {
      clear.push_back(esPacket(pid, n, random));
      scrambled.push_back(scrambledPacket(clear.back(), labWord(key, period), period % 2));
    }
  }
  std::vector<TsPacket> clear;
  std::vector<TsPacket> scrambled;
};

void pushAll(Descrambler &descrambler, std::vector<TsPacket> &packets) {
  for (TsPacket &packet : packets) {
    descrambler.push(packet);
  }
}

TEST(Descrambler, AnyNumberOfPacketsOfAnySize) {
  std::vector<std::size_t> counts{100, 127, 128, 129, 300};
  for (std::size_t count = 1; count <= 40; ++count) {
    counts.push_back(count);
  }
  for (const std::size_t count : counts) {
    Descrambler descrambler;
    descrambler.setWord(key, Parity::Even, labWord(key, 0));
    descrambler.assign(pid, key);
    Packets packets(count);
    pushAll(descrambler, packets.scrambled);
    descrambler.settle();
    EXPECT_EQ(packets.scrambled, packets.clear) << count;
  }
}

TEST(Descrambler, WordThatChangesDoesNotTouchPacketsPushedBefore) {
  Descrambler descrambler;
  descrambler.assign(pid, key);
  Packets before(20, 0), between(20, 1), after(20, 2);
  descrambler.setWord(key, Parity::Even, labWord(key, 0));
  descrambler.setWord(key, Parity::Odd, labWord(key, 1));
  pushAll(descrambler, before.scrambled);
  pushAll(descrambler, between.scrambled);
  descrambler.setWord(key, Parity::Even, labWord(key, 2));
  pushAll(descrambler, after.scrambled);
  descrambler.settle();
  EXPECT_EQ(before.scrambled, before.clear);
  EXPECT_EQ(between.scrambled, between.clear);
  EXPECT_EQ(after.scrambled, after.clear);
}

TEST(Descrambler, FewPacketsGoSingly) {
  for (const std::size_t count : {14u, 15u}) {
    Descrambler descrambler;
    descrambler.setWord(key, Parity::Even, labWord(key, 0));
    descrambler.assign(pid, key);
    std::vector<TsPacket> packets(count, Packets(2).scrambled[1]);
    pushAll(descrambler, packets);
    descrambler.settle();
    EXPECT_EQ(descrambler.work().singly, count < 15 ? count : 0);
    EXPECT_EQ(descrambler.work().inBatches, count < 15 ? 0 : count);
  }
}

TEST(Descrambler, LeavesWhatItHasNoWordFor) {
  Descrambler descrambler;
  Packets packets(20, 1);
  const std::vector<TsPacket> original = packets.scrambled;
  const auto unchanged = [&] {
    pushAll(descrambler, packets.scrambled);
    descrambler.settle();
    return packets.scrambled == original;
  };
  EXPECT_TRUE(unchanged()) << "no key";
  descrambler.setWord(key, Parity::Even, labWord(key, 0));
  descrambler.assign(pid, key);
  EXPECT_TRUE(unchanged()) << "only the other parity";
  descrambler.setWord(key, Parity::Odd, labWord(key, 1));
  descrambler.releaseAll();
  EXPECT_TRUE(unchanged()) << "released";
  descrambler.assign(pid, key);
  descrambler.drop(key);
  EXPECT_TRUE(unchanged()) << "dropped";
}

TEST(Descrambler, ClearAndReservedControlStayAsTheyAre) {
  Descrambler descrambler;
  descrambler.setWord(key, Parity::Even, labWord(key, 0));
  descrambler.setWord(key, Parity::Odd, labWord(key, 1));
  descrambler.assign(pid, key);
  Packets packets(20);
  for (TsPacket &packet : packets.clear) {
    packet[3] |= packet[5] & 0x40;
  }
  const std::vector<TsPacket> original = packets.clear;
  pushAll(descrambler, packets.clear);
  descrambler.settle();
  EXPECT_EQ(packets.clear, original);
}

TEST(Descrambler, AdaptationFieldBeyondThePacketLeavesNothingToDescramble) {
  Descrambler descrambler;
  descrambler.setWord(key, Parity::Even, labWord(key, 0));
  descrambler.assign(pid, key);
  for (unsigned length = 183; length < 256; ++length) {
    TsPacket packet = Packets(1).clear[0];
    packet[3] = 0xB0;
    packet[4] = static_cast<std::uint8_t>(length);
    TsPacket expected = packet;
    expected[3] = 0x30;
    descrambler.push(packet);
    descrambler.settle();
    EXPECT_EQ(packet, expected) << length;
  }
}

}  // namespace
