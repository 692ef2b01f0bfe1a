#include "ts/Resync.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::Resync;
using chassis::TsPacket;

namespace {

constexpr std::size_t sizes[] = {188, 192, 204};

// Numbered packets, in any of the sizes; what stands between them is 0xEE.
class Stream {
 public:
  Stream &packets(std::size_t size, std::size_t count) {
    for (; count > 0; --count) {
      unit(size, Bytes(4, 0xEE), Bytes(16, 0xEE));
    }
    return *this;
  }
  Stream &unit(std::size_t size, const Bytes &stamp, const Bytes &check) {
    append(bytes_, size == 192 ? stamp : Bytes());
    append(bytes_, next());
    append(bytes_, size == 204 ? check : Bytes());
    return *this;
  }
  Stream &noise(const Bytes &bytes) {
    append(bytes_, bytes);
    return *this;
  }
  Stream &cut(std::size_t count) {
    bytes_.resize(bytes_.size() - count);
    return *this;
  }
  const Bytes &bytes() const { return bytes_; }
  Bytes &bytes() { return bytes_; }

 private:
  Bytes next() {
    Bytes packet(chassis::tsPacketSize, 0x11);
    packet[0] = 0x47;
    packet[1] = static_cast<std::uint8_t>(number_ >> 6 & 0x3F);
    packet[2] = static_cast<std::uint8_t>(number_ & 0x3F);
    ++number_;
    return packet;
  }

  Bytes bytes_;
  unsigned number_ = 0;
};

struct Found {
  std::vector<unsigned> packets;  // their numbers
  std::uint64_t skipped = 0;
};

unsigned numberOf(const std::uint8_t *packet) {
  EXPECT_EQ(packet[0], 0x47);
  return packet[1] * 64U + packet[2];
}

// Reads bytes as they come, so many at a time.
template <typename Chunk>
Found read(const Bytes &bytes, Chunk chunk) {
  Resync resync;
  Found found;
  std::size_t at = 0;
  std::uint64_t before = 0;
  for (std::size_t there = 0; there < bytes.size();) {
    there = std::min(bytes.size(), there + chunk());
    const bool last = there == bytes.size();
    for (bool more = true; more;) {
      const Resync::Step step = resync.next(bytes.data() + at, there - at, last);
      at += step.passed;
      EXPECT_LE(at, there);
      EXPECT_TRUE(step.packet || last || there - at < Resync::window);
      EXPECT_GE(resync.skippedBytes(), before) << "taken back";
      before = resync.skippedBytes();
      if (step.packet) {
        EXPECT_LE(at + 188, there);
        found.packets.push_back(numberOf(bytes.data() + at));
        at += 188;
      }
      more = step.packet;
    }
  }
  EXPECT_EQ(at, bytes.size());
  found.skipped = resync.skippedBytes();
  return found;
}

Found readWhole(const Bytes &bytes) {
  return read(bytes, [&bytes] { return bytes.size(); });
}

std::vector<unsigned> upTo(unsigned count) {
  std::vector<unsigned> numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0);
  return numbers;
}

std::vector<unsigned> without(std::vector<unsigned> numbers, unsigned lost) {
  numbers.erase(std::remove(numbers.begin(), numbers.end(), lost), numbers.end());
  return numbers;
}

void expectFound(const Bytes &bytes, const std::vector<unsigned> &packets, std::uint64_t skipped) {
  std::size_t size = bytes.size();
  for (const std::size_t chunk : {size, std::size_t{1}, std::size_t{187}, std::size_t{1024}}) {
    const Found found = read(bytes, [chunk] { return chunk; });
    EXPECT_EQ(found.packets, packets) << "in chunks of " << chunk;
    EXPECT_EQ(found.skipped, skipped) << "in chunks of " << chunk;
  }
}

}  // namespace

TEST(Resync, FindsPacketsOfEachSizeWithNothingSkipped) {
  for (const std::size_t size : sizes) {
    SCOPED_TRACE(size);
    for (const unsigned count : {1U, 2U, 3U, 4U, 5U, 6U, 100U}) {
      expectFound(Stream().packets(size, count).bytes(), upTo(count), 0);
    }
  }
}

TEST(Resync, BytesThatAreTooFewForTheirSizeAreNoPackets) {
  for (const std::size_t size : sizes) {
    for (const unsigned count : {1U, 2U}) {
      SCOPED_TRACE(std::to_string(count) + " of " + std::to_string(size));
      Stream stream;
      stream.packets(size, count).cut(1);
      const std::size_t left = size == 188 ? count - 1 : 0;
      expectFound(stream.bytes(), upTo(left), stream.bytes().size() - left * 188);
    }
  }
}

TEST(Resync, ThreePacketsInARowDoAtTheEndAndTwoDoNot) {
  for (const std::size_t size : {192, 204}) {
    SCOPED_TRACE(size);
    const Bytes noise(30, 0);
    expectFound(Stream().noise(noise).packets(size, 3).bytes(), upTo(3), 30);
    Stream two;
    two.noise(noise).packets(size, 2);
    expectFound(two.bytes(), {}, two.bytes().size());
  }
}

TEST(Resync, WholePacketsOfTheSameSizeAreFoundAtTheEndHoweverFew) {
  for (const std::size_t size : sizes) {
    for (const std::size_t other : sizes) {
      SCOPED_TRACE(std::to_string(size) + " behind " + std::to_string(other));
      Stream stream;
      stream.packets(other, 10).noise(Bytes(30, 0)).packets(size, 1);
      if (size == 204 && other != 204) {
        expectFound(stream.bytes(), upTo(10), 30 + 204);
      } else {
        // One alone of 192 ends as one of 188 does: it is taken for what came before.
        const bool stamped = other == 192 && size != 204;
        const std::uint64_t found = 30 + (size == 192 ? 4 : 0) - (stamped ? 4 : 0);
        expectFound(stream.bytes(), upTo(11), found);
      }
      expectFound(stream.noise({0}).bytes(), upTo(10), 31 + size);
    }
  }
}

TEST(Resync, NothingBeforeTheFirstPacketBelongsToItButAStamp) {
  for (const std::size_t size : sizes) {
    for (const std::size_t noise : {1U, 4U, 15U, 16U, 17U}) {
      SCOPED_TRACE(std::to_string(noise) + " before " + std::to_string(size));
      expectFound(Stream().noise(Bytes(noise, 0)).packets(size, 10).bytes(), upTo(10), noise);
    }
  }
}

TEST(Resync, AChangeOfSizeCostsNothing) {
  for (const std::size_t from : sizes) {
    for (const std::size_t to : sizes) {
      SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
      expectFound(Stream().packets(from, 20).packets(to, 20).bytes(), upTo(40), 0);
    }
  }
}

TEST(Resync, NoiseBetweenPacketsIsSkippedToTheByte) {
  for (const std::size_t from : sizes) {
    for (const std::size_t to : sizes) {
      for (const std::size_t size : {1U, 3U, 21U, 187U, 188U, 3000U}) {
        SCOPED_TRACE(std::to_string(from) + ", " + std::to_string(size) + ", " +
                     std::to_string(to));
        const Found found =
            readWhole(Stream().packets(from, 10).noise(Bytes(size, 0)).packets(to, 10).bytes());
        EXPECT_EQ(found.packets, upTo(20));
        EXPECT_EQ(found.skipped, size);
      }
    }
  }
}

TEST(Resync, ALostSyncByteCostsOnePacketWithAllThatBelongsToIt) {
  for (const std::size_t size : sizes) {
    SCOPED_TRACE(size);
    Stream stream;
    stream.packets(size, 20);
    stream.bytes()[10 * size + (size == 192 ? 4 : 0)] = 0;
    expectFound(stream.bytes(), without(upTo(20), 10), size);
  }
}

TEST(Resync, TheLastPacketNeedNotHaveWhatStandsBehindIt) {
  for (std::size_t cut = 0; cut <= 16; ++cut) {
    expectFound(Stream().packets(204, 10).cut(cut).bytes(), upTo(10), 0);
  }
  expectFound(Stream().packets(204, 10).cut(17).bytes(), upTo(9), 187);
  expectFound(Stream().packets(192, 10).cut(1).bytes(), upTo(9), 191);
  expectFound(Stream().packets(188, 10).cut(1).bytes(), upTo(9), 187);
}

TEST(Resync, AStreamMayBeginWithinWhatStandsBeforeItsFirstPacket) {
  for (std::size_t cut = 0; cut <= 4; ++cut) {
    Bytes bytes = Stream().packets(192, 10).bytes();
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut));
    expectFound(bytes, upTo(10), 0);
  }
}

TEST(Resync, ATimeStampThatLooksLikeSyncBytesIsNone) {
  for (std::size_t place = 0; place < 2; ++place) {
    Stream stream;
    for (std::uint8_t i = 0; i < 20; ++i) {
      Bytes stamp{0, 0, i, i};
      stamp[place] = 0x47;
      stream.unit(192, stamp, {});
    }
    expectFound(stream.bytes(), upTo(20), 0);
  }
}

// Lines of a text that begin with a G, of any length that comes again after 192 or 204 bytes.
TEST(Resync, LinesOfATextAreNoPackets) {
  for (const std::size_t line : {3, 6, 8, 12, 16, 17, 24, 32, 34, 48, 51, 64, 68, 96, 102}) {
    Bytes text(5000, ' ');
    for (std::size_t at = 0; at < text.size(); at += line) {
      text[at] = 'G';
    }
    SCOPED_TRACE(line);
    expectFound(text, {}, 5000);
  }
}

TEST(Resync, AStreamOfNoiseHasNoPackets) {
  expectFound(Bytes(5000, 0), {}, 5000);
  Bytes bytes(5000, 0);
  for (std::size_t at = 100; at < 100 + 4 * 204; at += 204) {
    bytes[at] = 0x47;  // one less than it takes
  }
  expectFound(bytes, {}, 5000);
  bytes[100 + 4 * 204] = 0x47;
  EXPECT_EQ(readWhole(bytes).packets.size(), 5U);
}

// However the bytes come, the packets are the same ones.
TEST(Resync, ChunksOfAnySizeGiveTheSame) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&random](unsigned limit) { return random() % limit; };
  for (int round = 0; round < 50; ++round) {
    Stream stream;
    for (unsigned part = 0; part < 8; ++part) {
      stream.packets(sizes[below(3)], below(12));
      Bytes noise(below(3) == 0 ? below(400) : 0);
      std::generate(noise.begin(), noise.end(),
                    [&] { return static_cast<std::uint8_t>(below(4) == 0 ? 0x47 : below(256)); });
      stream.noise(noise);
    }
    const Found whole = readWhole(stream.bytes());
    const Found parts = read(stream.bytes(), [&] { return 1 + below(2000); });
    ASSERT_EQ(parts.packets, whole.packets);
    ASSERT_EQ(parts.skipped, whole.skipped);
  }
}
