#include "io/LiveOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <csignal>

#include "base/InputError.h"
#include "chassis/Folder.h"

using chassis::LiveOutput;
using chassis::Progress;
using testing_files::Folder;

namespace fs = std::filesystem;

namespace {

constexpr std::size_t unit = 188;
constexpr std::uint8_t head = 0x47;

std::string text(std::size_t count, char value) {
  std::string all;
  for (; count > 0; --count) {
    all += static_cast<char>(head) + std::string(unit - 1, value);
  }
  return all;
}

std::vector<std::uint8_t> units(std::size_t count, std::uint8_t value) {
  std::vector<std::uint8_t> bytes(count * unit, value);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i * unit] = head;
  }
  return bytes;
}

void write(LiveOutput &output, std::size_t count, std::uint8_t value = 1) {
  const auto bytes = units(count, value);
  output.write(bytes.data(), bytes.size(), unit);
}

class LiveOutputTest : public testing::Test {
 protected:
  std::unique_ptr<LiveOutput> open(const std::string &path) {
    return std::make_unique<LiveOutput>(path, nullptr, goOn);
  }

  Folder folder;
  int asked = 0;
  int goesOn = 1000000;  // so many times
  chassis::GoOn goOn = [this](const Progress &) { return asked++ < goesOn; };
};

// All that is in a FIFO, without waiting.
std::size_t drained(int file) {
  std::vector<std::uint8_t> buffer(1 << 20);
  std::size_t all = 0;
  for (ssize_t size = 1; size > 0; all += size > 0 ? static_cast<std::size_t>(size) : 0) {
    size = read(file, buffer.data(), buffer.size());
  }
  return all;
}

}  // namespace

TEST_F(LiveOutputTest, AFileIsEmptiedByItsFirstPacketAlone) {
  const std::string path = folder.write("out", std::string(1000, 'x'));
  const auto output = open(path);
  EXPECT_EQ(folder.read("out").size(), 1000U);
  write(*output, 2, 'y');
  EXPECT_EQ(folder.read("out"), text(2, 'y'));
  write(*output, 1, 'z');
  output->end();
  EXPECT_EQ(folder.read("out"), text(2, 'y') + text(1, 'z'));
  EXPECT_EQ(output->trouble(), "");
  EXPECT_EQ(output->lostBytes(), 0U);
}

TEST_F(LiveOutputTest, WithoutAPacketNothingIsTouched) {
  const std::string path = folder.write("out", "kept");
  open(path)->end();
  const auto output = open(folder.at("new"));
  output->end();
  EXPECT_EQ(output->trouble(), "");
  EXPECT_EQ(folder.read("out"), "kept");
  EXPECT_EQ(folder.entries(), 1U);
}

TEST_F(LiveOutputTest, WhatCannotBeWrittenIsRefusedAtOnce) {
  for (const std::string &path : {folder.at("no/out"), folder.at("."), std::string("/nowhere/x")}) {
    try {
      open(path);
      FAIL() << path;
    } catch (const chassis::InputError &error) {
      EXPECT_NE(std::string(error.what()).find("'" + path + "' cannot be written: "),
                std::string::npos);
    }
  }
}

TEST_F(LiveOutputTest, AFileIsNoFolderThoughItMayBeRun) {
  const std::string program = folder.write("program", "x");
  fs::permissions(program, fs::perms::all);
  fs::create_symlink("program/out", folder.at("link"));
  for (const std::string &path : {program + "/out", folder.at("link")}) {
    try {
      open(path);
      FAIL() << path;
    } catch (const chassis::InputError &error) {
      EXPECT_EQ(error.what(), "'" + path + "' cannot be written: Not a directory");
    }
  }
}

TEST_F(LiveOutputTest, ADeviceThatIsFullLosesEverything) {
  const auto output = open("/dev/full");
  write(*output, 3);
  EXPECT_EQ(output->trouble(), "No space left on device");
  write(*output, 4);
  output->end();
  EXPECT_EQ(output->lostBytes(), 7 * unit);
}

TEST_F(LiveOutputTest, AFileThatHasBecomeSomebodyElsesIsLeftAlone) {
  const std::string path = folder.write("out", "kept");
  LiveOutput output(
      path, [](int) { return "the stream of slot 3"; }, nullptr);
  write(output, 1);
  output.end();
  EXPECT_EQ(folder.read("out"), "kept");
  EXPECT_EQ(output.trouble(), "it has become the stream of slot 3");
  EXPECT_EQ(output.lostBytes(), unit);
}

TEST_F(LiveOutputTest, AReaderThatComesLateGetsAll) {
  const std::string path = folder.fifo("fifo");
  const auto output = open(path);
  write(*output, 100);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  write(*output, 100);
  EXPECT_EQ(drained(reader), 200 * unit);
  output->end();
  EXPECT_EQ(output->trouble(), "");
  close(reader);
}

TEST_F(LiveOutputTest, WithoutAReaderItNeitherWaitsForEverNorKeepsEverything) {
  const auto output = open(folder.fifo("fifo"));
  constexpr std::size_t all = 3 * LiveOutput::heldBackMost / unit;
  for (std::size_t i = 0; i < all / 100; ++i) {
    write(*output, 100);
  }
  EXPECT_EQ(output->trouble(), "nobody reads it");
  EXPECT_GT(asked, 0);
  const int askedOnce = asked;
  output->end();
  EXPECT_EQ(asked, askedOnce);  // its patience is used up
  EXPECT_EQ(output->lostBytes(), all / 100 * 100 * unit);
}

TEST_F(LiveOutputTest, AStalledReaderCostsWhatDoesNotFit) {
  const std::string path = folder.fifo("fifo");
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const auto output = open(path);
  constexpr std::size_t all = 2 * LiveOutput::heldBackMost / unit;
  for (std::size_t i = 0; i < all / 100; ++i) {
    write(*output, 100);
  }
  EXPECT_EQ(output->trouble(), "its reader does not keep up");
  output->end();
  EXPECT_EQ(output->lostBytes() + drained(reader), all / 100 * 100 * unit);
  close(reader);
}

// Who is held up by nobody never asks whether to go on waiting.
TEST_F(LiveOutputTest, WithoutPatienceNobodyWaits) {
  const std::string path = folder.fifo("fifo");
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  bool everAsked = false;
  LiveOutput output(path, nullptr, [&everAsked](const Progress &) { return everAsked = true; });
  output.setPatient(false);
  constexpr std::size_t all = 2 * LiveOutput::heldBackMost / unit;
  for (std::size_t i = 0; i < all / 100; ++i) {
    write(output, 100);
  }
  EXPECT_FALSE(everAsked);
  EXPECT_EQ(output.trouble(), "its reader does not keep up");
  output.end();
  EXPECT_EQ(output.lostBytes() + drained(reader), all / 100 * 100 * unit);
  close(reader);
}

TEST_F(LiveOutputTest, WithoutPatienceAFileIsTheSameByteForByte) {
  const std::string path = folder.write("out", std::string(1000, 'x'));
  for (const int patientFor : {0, 1, 5}) {
    const auto output = open(path);
    for (int i = 0; i < 5; ++i) {
      output->setPatient(i < patientFor);
      write(*output, 100, static_cast<std::uint8_t>('a' + i));
    }
    while (!output->letGo()) {
    }
    output->end();
    EXPECT_EQ(folder.read("out"),
              text(100, 'a') + text(100, 'b') + text(100, 'c') + text(100, 'd') + text(100, 'e'));
    EXPECT_EQ(output->trouble(), "");
    EXPECT_EQ(output->lostBytes(), 0U);
  }
  EXPECT_EQ(asked, 0);
}

TEST_F(LiveOutputTest, WithoutPatienceAFileThatHasBecomeSomebodyElsesIsLeftAloneToo) {
  const std::string path = folder.write("out", "kept");
  LiveOutput output(
      path, [](int) { return "the stream of slot 3"; }, nullptr);
  output.setPatient(false);
  write(output, 1);
  output.end();
  EXPECT_EQ(folder.read("out"), "kept");
  EXPECT_EQ(output.trouble(), "it has become the stream of slot 3");
  EXPECT_EQ(output.lostBytes(), unit);
}

// The reader takes something whenever the output asks whether to go on waiting.
TEST_F(LiveOutputTest, ASlowReaderLosesNothing) {
  const std::string path = folder.fifo("fifo");
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  std::size_t read = 0;
  LiveOutput output(path, nullptr, [&](const Progress &) {
    read += drained(reader);
    return true;
  });
  constexpr std::size_t all = 2 * LiveOutput::heldBackMost / unit;
  for (std::size_t i = 0; i < all / 100; ++i) {
    write(output, 100);
  }
  output.end();
  EXPECT_EQ(output.trouble(), "");
  EXPECT_EQ(read + drained(reader), all / 100 * 100 * unit);
  close(reader);
}

TEST_F(LiveOutputTest, TheEndWaitsForTheLastByteToo) {
  const std::string path = folder.fifo("fifo");
  int reader = -1;
  LiveOutput output(path, nullptr, [&](const Progress &) {
    reader = reader < 0 ? ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : reader;
    return true;
  });
  output.write(&head, 1, 1);
  output.end();
  EXPECT_EQ(output.lostBytes(), 0U);
  EXPECT_EQ(drained(reader), 1U);
  close(reader);
}

TEST_F(LiveOutputTest, ItsEndClosesNothingElse) {
  const int standardInput = dup(STDIN_FILENO);
  {
    const auto output = open(folder.at("out"));
    write(*output, 1);
    output->end();
    dup2(standardInput, STDIN_FILENO);
  }
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  close(standardInput);
}

TEST_F(LiveOutputTest, NobodyWaitsForAReaderOnceTheRunIsToEnd) {
  goesOn = 0;
  const auto output = open(folder.fifo("fifo"));
  write(*output, 10);
  output->end();
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(output->lostBytes(), 10 * unit);
}

TEST_F(LiveOutputTest, AReaderThatGoesEndsNothingAndTheNextBeginsWithAWholeUnit) {
  const std::string path = folder.fifo("fifo");
  const auto output = open(path);
  int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  write(*output, 2000, 1);  // more than the FIFO takes
  std::uint8_t byte = 0;
  ASSERT_EQ(read(reader, &byte, 1), 1);
  close(reader);
  write(*output, 1, 2);  // SIGPIPE would end this test
  reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  write(*output, 1, 3);
  std::array<std::uint8_t, 2 * unit> begin{};
  ASSERT_EQ(read(reader, begin.data(), begin.size()), static_cast<ssize_t>(begin.size()));
  EXPECT_EQ(begin[0], head);
  EXPECT_EQ(begin[unit], head);
  EXPECT_EQ(output->trouble(), "its reader has gone");
  close(reader);
}

namespace {

// The number of a line is its length.
std::string line(std::size_t length) {
  return std::string(length - 1, static_cast<char>('a' + length % 26)) + "\n";
}

std::string textIn(int file) {
  std::string all(1 << 20, '\0');
  all.resize(static_cast<std::size_t>(std::max<ssize_t>(0, read(file, all.data(), all.size()))));
  return all;
}

void limitFiles(rlim_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

void writeLine(LiveOutput &output, std::size_t length) {
  const std::string text = line(length);
  output.write(reinterpret_cast<const std::uint8_t *>(text.data()), length, length);
}

}  // namespace

TEST_F(LiveOutputTest, AFullFileEndsWithAWholeUnitAlsoWhereUnitsDiffer) {
  std::signal(SIGXFSZ, SIG_IGN);
  for (const std::size_t last : {37, 38}) {  // 100 bytes in all, and one more
    const auto output = open(folder.at("out" + std::to_string(last)));
    limitFiles(100);
    for (const std::size_t length : {std::size_t{20}, std::size_t{43}, last}) {
      writeLine(*output, length);
    }
    output->end();
    limitFiles(RLIM_INFINITY);
    const bool fits = last == 37;
    EXPECT_EQ(folder.read("out" + std::to_string(last)),
              line(20) + line(43) + (fits ? line(37) : ""));
    EXPECT_EQ(output->trouble(), fits ? "" : "File too large");
    EXPECT_EQ(output->lostBytes(), fits ? 0 : last);
  }
}

TEST_F(LiveOutputTest, WithoutPatienceAFullFileIsToldAtTheWriteOrTheEnd) {
  std::signal(SIGXFSZ, SIG_IGN);
  const auto output = open(folder.at("out"));
  output->setPatient(false);
  limitFiles(100);
  for (const std::size_t length : {20, 43, 38, 5}) {
    writeLine(*output, length);
  }
  output->end();
  limitFiles(RLIM_INFINITY);
  EXPECT_EQ(folder.read("out"), line(20) + line(43));
  EXPECT_EQ(output->trouble(), "File too large");
  EXPECT_EQ(output->lostBytes(), 43U);
}

TEST_F(LiveOutputTest, TheNextReaderBeginsWithAWholeUnitAlsoWhereUnitsDiffer) {
  const std::string path = folder.fifo("fifo");
  const auto output = open(path);
  int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const int room = fcntl(reader, F_GETPIPE_SZ);
  std::size_t taken = 0;
  // What a pipe takes as a whole is no longer than a page.
  for (std::size_t length = 5000; taken <= static_cast<std::size_t>(room); ++length) {
    writeLine(*output, length);
    taken += length;
  }
  close(reader);
  writeLine(*output, 10);
  reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  writeLine(*output, 11);
  const std::string all = textIn(reader);
  std::string whole;
  for (std::size_t begin = 0, end; (end = all.find('\n', begin)) != std::string::npos;) {
    whole += line(end + 1 - begin);
    begin = end + 1;
  }
  EXPECT_TRUE(all == whole);
  EXPECT_EQ(all.substr(all.size() - 21), line(10) + line(11));
  EXPECT_EQ(output->trouble(), "its reader has gone");
  EXPECT_GE(output->lostBytes(), 5000U);  // the line of which the old reader had a part
  EXPECT_LT(output->lostBytes(), 6000U);
  close(reader);
}

TEST_F(LiveOutputTest, AReaderThatGoesBetweenUnitsHasHadThemAll) {
  const std::string path = folder.fifo("fifo");
  const auto output = open(path);
  int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  write(*output, 3, 1);
  EXPECT_EQ(drained(reader), 3 * unit);
  close(reader);
  write(*output, 1, 2);
  reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  output->end();
  EXPECT_EQ(drained(reader), unit);
  EXPECT_EQ(output->trouble(), "its reader has gone");
  EXPECT_EQ(output->lostBytes(), 0U);
  close(reader);
}
