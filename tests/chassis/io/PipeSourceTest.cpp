#include "io/PipeSource.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <random>

#include "base/InputError.h"
#include "chassis/Folder.h"
#include "chassis/StreamWriter.h"
#include "status/EventWords.h"
#include "ts/TsFile.h"

namespace event = chassis::event;
using chassis::Event;
using chassis::EventKind;
using chassis::PipeSource;
using chassis::TsPacket;
using testing_files::Folder;
using testing_streams::append;
using testing_streams::Bytes;

namespace {

constexpr std::uint64_t secondNs = 1000000000;

TsPacket numbered(unsigned number) {
  TsPacket packet;
  packet.fill(0x11);
  packet[0] = 0x47;
  packet[1] = static_cast<std::uint8_t>(number >> 6 & 0x3F);
  packet[2] = static_cast<std::uint8_t>(number & 0x3F);
  return packet;
}

Bytes packets(unsigned first, unsigned count, std::size_t before = 0, std::size_t behind = 0) {
  Bytes bytes;
  for (unsigned number = first; number < first + count; ++number) {
    const TsPacket packet = numbered(number);
    bytes.insert(bytes.end(), before, 0xEE);
    bytes.insert(bytes.end(), packet.begin(), packet.end());
    bytes.insert(bytes.end(), behind, 0xEE);
  }
  return bytes;
}

void put(int file, const Bytes &bytes) {
  ASSERT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

// What a source tells and hands on, at a time that the test sets.
class PipeSourceTest : public testing::Test {
 protected:
  PipeSource::Now now() {
    return [this] { return nowNs; };
  }
  chassis::Tell tell() {
    return [this](const Event &event) { told.push_back(event); };
  }
  std::unique_ptr<PipeSource> open(const std::string &path) {
    return std::make_unique<PipeSource>(path, now(), tell());
  }
  std::unique_ptr<PipeSource> standardInput(int file) {
    return std::make_unique<PipeSource>(file, "standard input", now(), tell());
  }

  // Takes all that is due; how many packets that was.
  std::size_t take(PipeSource &source) {
    const std::size_t due = source.due(nowNs / 1000000);
    TsPacket packet;
    std::uint64_t cameNs = 0;
    std::size_t count = 0;
    for (; source.next(packet, cameNs); ++count) {
      taken.push_back(packet);
      came.push_back(cameNs);
    }
    EXPECT_EQ(count, due);
    EXPECT_EQ(source.counters().packets, taken.size());
    return count;
  }

  std::vector<EventKind> kinds() const {
    std::vector<EventKind> all;
    for (const Event &event : told) {
      all.push_back(event.kind());
    }
    return all;
  }

  void expectTaken(unsigned count) {
    ASSERT_EQ(taken.size(), count);
    for (unsigned i = 0; i < count; ++i) {
      ASSERT_EQ(taken[i], numbered(i)) << i;
    }
  }

  Folder folder;
  std::uint64_t nowNs = 5 * secondNs;
  std::vector<Event> told;
  std::vector<TsPacket> taken;
  std::vector<std::uint64_t> came;
};

// Both ends of a pipe, each until it is closed.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  ~Pipe() {
    close(ends[0]);
    closeWriter();
  }
  void closeWriter() {
    if (ends[1] >= 0) {
      close(std::exchange(ends[1], -1));
    }
  }
  int reader() const { return ends[0]; }
  int writer() const { return ends[1]; }
  int ends[2];
};

std::string refusal(const std::function<void()> &act) {
  try {
    act();
  } catch (const chassis::InputError &error) {
    return error.what();
  }
  return "taken";
}

}  // namespace

TEST_F(PipeSourceTest, AFifoWithoutAWriterIsNoEnd) {
  const auto source = open(folder.fifo("in"));
  for (int tick = 0; tick < 3; ++tick) {
    EXPECT_EQ(take(*source), 0U);
  }
  EXPECT_FALSE(source->ended());
  EXPECT_TRUE(told.empty());
}

TEST_F(PipeSourceTest, WritersOfAFifoComeAndGoAndTheNextGoesOn) {
  const std::string path = folder.fifo("in");
  const auto source = open(path);
  std::vector<EventKind> expected;
  for (unsigned writer = 0; writer < 3; ++writer) {
    const int file = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(file, 0);
    EXPECT_EQ(take(*source), 0U);
    expected.push_back(EventKind::WriterCame);
    EXPECT_EQ(kinds(), expected);
    put(file, packets(writer * 10, 10));
    close(file);
    EXPECT_EQ(take(*source), 10U);
    EXPECT_EQ(source->beginnings(), writer + 1);
    EXPECT_EQ(take(*source), 0U);
    expected.push_back(EventKind::WriterGone);
    EXPECT_EQ(kinds(), expected);
  }
  expectTaken(30);
  EXPECT_FALSE(source->ended());
  EXPECT_EQ(source->counters().skippedBytes, 0U);
  EXPECT_EQ(chassis::wordsOf(told[0]).why, "it writes to '" + path + "'");
  EXPECT_EQ(chassis::wordsOf(told[1]).why, "'" + path + "' waits for the next one");
  EXPECT_EQ(std::get<event::WriterGone>(told[1].facts).path, path);
}

TEST_F(PipeSourceTest, AWriterThatCameAndWentBetweenTwoTicksIsTold) {
  const std::string path = folder.fifo("in");
  const auto source = open(path);
  const int file = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
  put(file, packets(0, 3));
  close(file);
  EXPECT_EQ(take(*source), 3U);
  EXPECT_EQ(kinds(), (std::vector<EventKind>{EventKind::WriterCame, EventKind::WriterGone}));
}

TEST_F(PipeSourceTest, AWriterThatGoesWithinAPacketLeavesTheNextItsOwn) {
  const std::string path = folder.fifo("in");
  const auto source = open(path);
  for (unsigned first : {0U, 9U}) {
    const int file = ::open(path.c_str(), O_WRONLY | O_NONBLOCK);
    Bytes bytes = packets(first, 10);
    bytes.resize(bytes.size() - 1);
    put(file, bytes);
    close(file);
    EXPECT_EQ(take(*source), 9U);
  }
  expectTaken(18);
  EXPECT_EQ(source->counters().skippedBytes, 2 * 187U);
  EXPECT_EQ(kinds(), (std::vector<EventKind>{EventKind::WriterCame, EventKind::StreamDamaged,
                                             EventKind::WriterGone, EventKind::WriterCame,
                                             EventKind::WriterGone}));
}

TEST_F(PipeSourceTest, StandardInputIsOverWithItsWriter) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  EXPECT_EQ(take(*source), 0U);
  put(pipe.writer(), packets(0, 7));
  pipe.closeWriter();
  EXPECT_EQ(source->due(0), 7U);
  EXPECT_FALSE(source->ended()) << "packets are there still";
  EXPECT_EQ(take(*source), 7U);
  EXPECT_TRUE(source->ended());
  EXPECT_EQ(take(*source), 0U);
  expectTaken(7);
  ASSERT_EQ(kinds(), std::vector<EventKind>{EventKind::WriterGone});
  EXPECT_EQ(chassis::wordsOf(told[0]).why, "standard input is at its end");
  EXPECT_EQ(std::get<event::WriterGone>(told[0].facts).path, "-");
}

TEST_F(PipeSourceTest, WhatOthersShareStaysAsItWas) {
  Pipe pipe;
  const int flags = fcntl(pipe.reader(), F_GETFL);
  const int capacity = fcntl(pipe.reader(), F_GETPIPE_SZ);
  {
    const auto source = standardInput(pipe.reader());
    EXPECT_EQ(take(*source), 0U);
    EXPECT_EQ(fcntl(pipe.reader(), F_GETFL), flags);
  }
  EXPECT_EQ(fcntl(pipe.reader(), F_GETFL), flags);
  EXPECT_EQ(fcntl(pipe.reader(), F_GETPIPE_SZ), capacity);
}

TEST_F(PipeSourceTest, ASocketWillDo) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const auto source = standardInput(ends[0]);
  EXPECT_EQ(take(*source), 0U);
  put(ends[1], packets(0, 6));
  EXPECT_EQ(take(*source), 6U);
  close(ends[1]);
  EXPECT_EQ(take(*source), 0U);
  EXPECT_TRUE(source->ended());
  close(ends[0]);
}

TEST_F(PipeSourceTest, PacketsComeWhenTheyAreRead) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  put(pipe.writer(), packets(0, 6));
  const Bytes next = packets(6, 1);
  take(*source);
  put(pipe.writer(), Bytes(next.begin(), next.end() - 1));
  nowNs += 10;
  EXPECT_EQ(take(*source), 0U);
  put(pipe.writer(), Bytes(next.end() - 1, next.end()));
  nowNs += 10;
  EXPECT_EQ(take(*source), 1U);
  expectTaken(7);
  EXPECT_EQ(came,
            (std::vector<std::uint64_t>{5 * secondNs, 5 * secondNs, 5 * secondNs, 5 * secondNs,
                                        5 * secondNs, 5 * secondNs, 5 * secondNs + 20}));
}

// Five packets in a row have to be seen, of whatever size, so many bytes as Resync asks for.
TEST_F(PipeSourceTest, TheFirstPacketsWaitUntilTheyAreKnown) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  const Bytes bytes = packets(0, 10);
  put(pipe.writer(), Bytes(bytes.begin(), bytes.begin() + chassis::Resync::window - 1));
  EXPECT_EQ(take(*source), 0U);
  put(pipe.writer(), Bytes(1, bytes[chassis::Resync::window - 1]));
  EXPECT_EQ(take(*source), 5U);
}

TEST_F(PipeSourceTest, AFloodDoesNotHoldTheTick) {
  const auto source = open("/dev/zero");
  for (std::uint64_t call = 1; call < 4; ++call) {
    EXPECT_EQ(take(*source), 0U);
    EXPECT_LE(source->counters().skippedBytes, call * PipeSource::readAtMost);
    EXPECT_GT(source->counters().skippedBytes + 2 * chassis::Resync::window,
              call * PipeSource::readAtMost);
  }
  EXPECT_EQ(kinds(), std::vector<EventKind>{EventKind::StreamDamaged});
  EXPECT_FALSE(source->ended());
}

TEST_F(PipeSourceTest, WhatIsNotTakenHoldsTheRestInThePipe) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  put(pipe.writer(), packets(0, 20));
  EXPECT_EQ(source->due(0), 20U);
  put(pipe.writer(), packets(20, 10));
  TsPacket packet;
  std::uint64_t cameNs = 0;
  ASSERT_TRUE(source->next(packet, cameNs));
  EXPECT_EQ(source->due(0), 19U);
  int waiting = 0;
  ASSERT_EQ(ioctl(pipe.reader(), FIONREAD, &waiting), 0);
  EXPECT_EQ(waiting, 10 * 188);
  while (source->next(packet, cameNs)) {
  }
  EXPECT_EQ(source->due(0), 10U);
}

TEST_F(PipeSourceTest, APipeHoldsMoreThanATickOfAFastStream) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  const unsigned count = 1000;  // in 10 ms, 150 Mbit/s
  ASSERT_GT(count * 188, 1U << 16);
  ASSERT_EQ(fcntl(pipe.writer(), F_SETFL, O_NONBLOCK), 0);
  put(pipe.writer(), packets(0, count));
  EXPECT_EQ(take(*source), count);
  expectTaken(count);
}

TEST_F(PipeSourceTest, DamageIsToldOnceUntilItIsGoodAgain) {
  Pipe pipe;
  const auto source = standardInput(pipe.reader());
  unsigned first = 0;
  const auto good = [&] {
    put(pipe.writer(), packets(first, 10));
    first += 10;
    take(*source);
  };
  const auto bad = [&] {
    put(pipe.writer(), Bytes(100, 0));
    good();
  };
  bad();
  EXPECT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].kind(), EventKind::StreamDamaged);
  EXPECT_EQ(chassis::wordsOf(told[0]).why, "100 bytes of standard input are in no packet");
  nowNs += PipeSource::soundNs - 1;
  good();
  bad();
  EXPECT_EQ(told.size(), 1U) << "not good for long enough";
  nowNs += PipeSource::soundNs;
  bad();
  EXPECT_EQ(told.size(), 1U) << "nothing good has come";
  nowNs += PipeSource::soundNs;
  put(pipe.writer(), Bytes(10, 0));
  EXPECT_EQ(take(*source), 0U);
  bad();
  EXPECT_EQ(told.size(), 1U) << "too little has come to tell";
  nowNs += PipeSource::soundNs;
  good();
  bad();
  EXPECT_EQ(told.size(), 2U);
  EXPECT_EQ(std::get<event::StreamDamaged>(told[1].facts).bytes, 100U);
  expectTaken(first);
  EXPECT_EQ(source->counters().skippedBytes, 510U);
}

// As a file of the same bytes has them, however they come.
TEST_F(PipeSourceTest, GivesWhatAFileGives) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&random](unsigned limit) { return random() % limit; };
  for (int round = 0; round < 6; ++round) {
    Bytes bytes = packets(0, 6);
    for (unsigned part = 0; part < 6; ++part) {
      const unsigned size = below(3);
      append(bytes, packets(part * 20, 1 + below(20), size == 1 ? 4 : 0, size == 2 ? 16 : 0));
      Bytes noise(below(2) * below(500));
      std::generate(noise.begin(), noise.end(),
                    [&] { return static_cast<std::uint8_t>(below(4) == 0 ? 0x47 : below(256)); });
      append(bytes, noise);
    }
    bytes.resize(bytes.size() - below(200));
    const testing_streams::TemporaryFile whole(bytes);
    chassis::TsFile file(whole.path());
    std::vector<TsPacket> expected;
    for (TsPacket packet; file.next(packet);) {
      expected.push_back(packet);
    }
    Pipe pipe;
    const auto source = standardInput(pipe.reader());
    taken.clear();
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t most = round == 0 ? 1 : 1 + below(1500);
      const std::size_t end = std::min(bytes.size(), at + most);
      put(pipe.writer(), Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                               bytes.begin() + static_cast<std::ptrdiff_t>(end)));
      at = end;
      take(*source);
    }
    pipe.closeWriter();
    take(*source);
    ASSERT_EQ(taken, expected);
    ASSERT_EQ(source->counters().skippedBytes, file.skippedBytes());
  }
}

TEST_F(PipeSourceTest, ADeviceIsOverAtItsEnd) {
  const auto source = open("/dev/null");
  EXPECT_EQ(take(*source), 0U);
  EXPECT_TRUE(source->ended());
  EXPECT_EQ(kinds(), std::vector<EventKind>{EventKind::WriterGone});
}

// The end of a pipe to write to.
TEST_F(PipeSourceTest, WhatCannotBeReadAnyFurtherIsOver) {
  Pipe pipe;
  const auto source = standardInput(pipe.writer());
  EXPECT_EQ(take(*source), 0U);
  EXPECT_FALSE(source->ended());
  close(std::exchange(pipe.ends[0], -1));
  EXPECT_EQ(take(*source), 0U);
  EXPECT_TRUE(source->ended());
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(chassis::wordsOf(told[0]).why, "standard input cannot be read: Bad file descriptor");
}

TEST_F(PipeSourceTest, RefusesByPathWhatIsNoFifoAndNoCharacterDevice) {
  const auto refused = [this](const std::string &path) {
    return refusal([this, &path] { open(path); });
  };
  const std::string needed = "; a FIFO or a character device is needed";
  const std::string file = folder.write("file", "x");
  const std::string directory = folder.at("");
  const std::string missing = folder.at("missing");
  EXPECT_EQ(refused(file), "'" + file + "' is a regular file" + needed);
  EXPECT_EQ(refused(directory), "'" + directory + "' is a directory" + needed);
  EXPECT_EQ(refused(missing), "'" + missing + "' cannot be opened: No such file or directory");

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string place = folder.at("socket");
  ASSERT_LT(place.copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  EXPECT_EQ(refused(place), "'" + place + "' is a socket" + needed);
  close(socket);
}

TEST_F(PipeSourceTest, RefusesABlockDevice) {
  const std::string path = folder.at("device");
  if (mknod(path.c_str(), S_IFBLK | 0600, makedev(7, 0)) != 0) {
    GTEST_SKIP() << "nobody but root makes a device";
  }
  EXPECT_EQ(refusal([&] { open(path); }),
            "'" + path + "' is a block device; a FIFO or a character device is needed");
}

TEST_F(PipeSourceTest, RefusesStandardInputThatIsNoPipe) {
  const auto refused = [this](int file) { return refusal([this, file] { standardInput(file); }); };
  const std::string needed =
      "; a pipe, a socket or a character device is needed, and a file by its path";
  const int file = ::open(folder.write("file", "x").c_str(), O_RDONLY);
  const int directory = ::open(folder.at("").c_str(), O_RDONLY);
  EXPECT_EQ(refused(file), "standard input is a regular file" + needed);
  EXPECT_EQ(refused(directory), "standard input is a directory" + needed);
  EXPECT_EQ(refused(-1), "standard input cannot be read: Bad file descriptor");
  close(file);
  close(directory);
}
