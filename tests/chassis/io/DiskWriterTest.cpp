#include "io/DiskWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

using chassis::DiskWriter;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t unit = 188;

// A disk that takes so many bytes, then stalls until it is let on, or fails. A writer may be gone
// before it.
class TestDisk {
 public:
  DiskWriter::Disk disk(bool ours = true) {
    DiskWriter::Disk all;
    all.write = [this](const std::uint8_t *bytes, std::size_t size) { return write(bytes, size); };
    if (ours) {
      all.truncate = [this](std::uint64_t size) {
        const std::lock_guard<std::mutex> locked(lock_);
        file_.resize(size);
        return 0;
      };
    }
    all.close = [this] { return close(); };
    return all;
  }

  void stallAt(std::size_t size) {
    change([this, size] { stallAt_ = size; });
  }
  void goOn() {
    change([this] { stallAt_ = SIZE_MAX; });
  }
  void failAt(std::size_t size, int error) {
    change([this, size, error] {
      failAt_ = size;
      error_ = error;
    });
  }
  void failClose(int error) {
    change([this, error] { closeError_ = error; });
  }
  void awaitStall() {
    await([this] { return stalled_; });
  }
  void awaitClose() {
    await([this] { return closed_; });
  }
  Bytes file() {
    const std::lock_guard<std::mutex> locked(lock_);
    return file_;
  }

 private:
  template <typename Change>
  void change(const Change &change) {
    const std::lock_guard<std::mutex> locked(lock_);
    change();
    changed_.notify_all();
  }
  template <typename Condition>
  void await(const Condition &condition) {
    std::unique_lock<std::mutex> locked(lock_);
    ASSERT_TRUE(changed_.wait_for(locked, std::chrono::seconds(60), condition));
  }

  ssize_t write(const std::uint8_t *bytes, std::size_t size) {
    std::unique_lock<std::mutex> locked(lock_);
    while (file_.size() >= stallAt_) {
      stalled_ = true;
      changed_.notify_all();
      changed_.wait(locked);
    }
    const std::size_t most = std::min(stallAt_, failAt_) - file_.size();
    if (most == 0) {
      errno = error_;
      return -1;
    }
    file_.insert(file_.end(), bytes, bytes + std::min(size, most));
    return static_cast<ssize_t>(std::min(size, most));
  }

  int close() {
    int error = 0;
    change([&] {
      closed_ = true;
      error = closeError_;
    });
    errno = error;
    return error == 0 ? 0 : -1;
  }

  std::mutex lock_;
  std::condition_variable changed_;
  Bytes file_;
  std::size_t stallAt_ = SIZE_MAX;
  std::size_t failAt_ = SIZE_MAX;
  int error_ = 0;
  int closeError_ = 0;
  bool stalled_ = false;
  bool closed_ = false;
};

Bytes units(std::size_t count, std::uint8_t value = 1) {
  return Bytes(count * unit, value);
}

std::size_t take(DiskWriter &writer, const Bytes &bytes) {
  return writer.take(bytes.data(), bytes.size(), unit);
}

// Until the file is closed, or that is given up.
void end(DiskWriter &writer) {
  while (!writer.letGo()) {
    writer.await(100);
  }
}

Bytes both(Bytes first, const Bytes &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace

TEST(DiskWriter, WritesInOrderAndCloses) {
  TestDisk disk;
  DiskWriter writer(disk.disk(), 0);
  EXPECT_EQ(take(writer, units(3, 1)), 3 * unit);
  EXPECT_EQ(take(writer, units(2, 2)), 2 * unit);
  end(writer);
  EXPECT_EQ(writer.giveUp().why, "");
  EXPECT_EQ(disk.file(), both(units(3, 1), units(2, 2)));
  disk.awaitClose();
}

// Whoever gives it bytes goes on meanwhile; what has no room is left to them, in whole units.
TEST(DiskWriter, ADiskThatStallsHoldsNobodyUp) {
  TestDisk disk;
  disk.stallAt(5 * unit);
  DiskWriter writer(disk.disk(), 0);
  const Bytes part = units(10000);
  std::size_t taken = take(writer, part);
  disk.awaitStall();
  for (std::size_t more = part.size(); more == part.size(); taken += more) {
    more = take(writer, part);
  }
  EXPECT_EQ(taken, DiskWriter::queuedMost - DiskWriter::queuedMost % unit) << "memory is bounded";
  EXPECT_EQ(take(writer, part), 0U);
  EXPECT_EQ(writer.newLoss().why, "") << "what was taken is not lost";
  disk.goOn();
  end(writer);
  EXPECT_EQ(writer.giveUp().why, "");
  EXPECT_EQ(disk.file().size(), taken);
}

TEST(DiskWriter, ThereIsRoomAgainWhenADiskGoesOn) {
  TestDisk disk;
  disk.stallAt(0);
  DiskWriter writer(disk.disk(), 0);
  const Bytes all = units(DiskWriter::queuedMost / unit);
  EXPECT_EQ(take(writer, all), all.size());
  EXPECT_EQ(take(writer, units(1)), 0U);
  disk.goOn();
  std::size_t taken = 0;
  for (int i = 0; i < 6000 && taken == 0; ++i) {
    writer.await(10);
    taken = take(writer, units(1));
  }
  EXPECT_EQ(taken, unit);
  end(writer);
  EXPECT_EQ(disk.file().size(), all.size() + unit);
}

// What is queued behind the failure is lost with it, and nothing more is taken.
TEST(DiskWriter, AFullDiskEndsWithAWholeUnit) {
  TestDisk disk;
  disk.stallAt(0);
  disk.failAt(2 * unit + 7, ENOSPC);
  DiskWriter writer(disk.disk(), 0);
  EXPECT_EQ(take(writer, units(5)), 5 * unit);
  EXPECT_EQ(take(writer, units(4)), 4 * unit);
  disk.goOn();
  end(writer);
  EXPECT_EQ(take(writer, units(1)), 0U);
  const DiskWriter::Loss loss = writer.giveUp();
  EXPECT_EQ(loss.why, "No space left on device");
  EXPECT_EQ(loss.bytes, 7 * unit);
  EXPECT_EQ(disk.file(), units(2));
  EXPECT_EQ(writer.giveUp().bytes, 0U) << "told once";
}

// Of somebody else's file nothing is taken back, so the part of a unit is there and not lost.
TEST(DiskWriter, WhatIsNotAllOursIsNotCut) {
  TestDisk disk;
  disk.failAt(2 * unit + 7, EIO);
  DiskWriter writer(disk.disk(false), 0);
  take(writer, units(5));
  end(writer);
  EXPECT_EQ(writer.giveUp().bytes, 3 * unit - 7);
  EXPECT_EQ(disk.file().size(), 2 * unit + 7);
}

TEST(DiskWriter, ItGoesOnBehindWhatIsWritten) {
  TestDisk disk;
  disk.disk().write(units(2).data(), 2 * unit);
  disk.failAt(4 * unit + 1, ENOSPC);
  DiskWriter writer(disk.disk(), 2 * unit);
  take(writer, units(5, 2));
  end(writer);
  EXPECT_EQ(disk.file(), both(units(2), units(2, 2)));
  EXPECT_EQ(writer.giveUp().bytes, 3 * unit);
}

TEST(DiskWriter, AFileOfOursIsEmptiedFirst) {
  TestDisk disk;
  disk.disk().write(units(2).data(), 2 * unit);
  DiskWriter writer(disk.disk(), 0);
  take(writer, units(1, 2));
  end(writer);
  EXPECT_EQ(disk.file(), units(1, 2));
}

TEST(DiskWriter, AFailingCloseIsTold) {
  TestDisk disk;
  disk.failClose(EIO);
  DiskWriter writer(disk.disk(), 0);
  take(writer, units(1));
  end(writer);
  const DiskWriter::Loss loss = writer.giveUp();
  EXPECT_EQ(loss.why, "Input/output error");
  EXPECT_EQ(loss.bytes, 0U);
}

TEST(DiskWriter, AtTheEndADiskIsNotWaitedForForEver) {
  TestDisk disk;
  disk.stallAt(unit);
  {
    DiskWriter writer(disk.disk(), 0, 50);
    take(writer, units(3));
    take(writer, units(2));
    end(writer);
    const DiskWriter::Loss loss = writer.giveUp();
    EXPECT_EQ(loss.why, "its disk does not keep up");
    EXPECT_GE(loss.bytes, 4 * unit);
    EXPECT_LE(loss.bytes, 5 * unit);
  }
  disk.goOn();
  disk.awaitClose();
}
