#include "kernel/Loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <vector>

using chassis::Loop;

namespace {

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  int reads() const { return ends_[0]; }
  void put() const { EXPECT_EQ(write(ends_[1], "x", 1), 1); }
  void take() const {
    char byte = 0;
    EXPECT_EQ(read(ends_[0], &byte, 1), 1);
  }

 private:
  int ends_[2] = {-1, -1};
};

class Departures : public Loop::Timed {
 public:
  explicit Departures(std::vector<std::uint64_t> dueNs) : dueNs_(std::move(dueNs)) {}
  std::uint64_t dueNs() const override { return dueNs_.empty() ? Loop::never : dueNs_.front(); }
  void serve(std::uint64_t nowNs) override {
    EXPECT_GE(nowNs, dueNs());
    dueNs_.erase(dueNs_.begin());
    ++served;
  }
  int served = 0;

 private:
  std::vector<std::uint64_t> dueNs_;
};

constexpr std::uint64_t msNs = 1000000;

}  // namespace

TEST(Loop, WhatIsThereIsServedThoughTheTimeHasCome) {
  Loop loop;
  const Pipe file;
  int served = 0;
  const auto watching = loop.watch(file.reads(), [&] {
    file.take();
    ++served;
  });
  file.put();
  loop.wait(0);
  EXPECT_EQ(served, 1);
  loop.wait(0);
  EXPECT_EQ(served, 1);
}

TEST(Loop, WhatIsNotLookedAtStaysWhereItIs) {
  Loop loop;
  const Pipe file;
  bool on = false;
  int served = 0;
  const auto watching = loop.watch(
      file.reads(),
      [&] {
        file.take();
        ++served;
      },
      [&on] { return on; });
  file.put();
  loop.wait(0);
  EXPECT_EQ(served, 0);
  on = true;
  loop.wait(0);
  EXPECT_EQ(served, 1);
}

TEST(Loop, WatchingEndsWithItsOwner) {
  Loop loop;
  const Pipe file;
  auto watching = loop.watch(file.reads(), [] { FAIL(); });
  file.put();
  watching.reset();
  loop.wait(0);
}

// Also one that goes while the loop serves what came before it.
TEST(Loop, WhoHasGoneMeanwhileIsNotServed) {
  Loop loop;
  const Pipe first;
  const Pipe second;
  Loop::Watching other;
  const auto watching = loop.watch(first.reads(), [&] {
    first.take();
    other.reset();
  });
  other = loop.watch(second.reads(), [] { FAIL(); });
  first.put();
  second.put();
  loop.wait(0);
}

TEST(Loop, ADepartureIsServedAtItsTimeAndNotBefore) {
  Loop loop;
  const std::uint64_t now = Loop::nowNs();
  Departures departures({now, now + 30 * msNs});
  const auto added = loop.add(departures);
  loop.wait(0);
  EXPECT_EQ(departures.served, 1);
  while (departures.served < 2) {
    loop.wait(std::nullopt);  // waits for it, not for ever
  }
  EXPECT_GE(Loop::nowNs(), now + 30 * msNs);
}

TEST(Loop, PointsOfTimeAreWaitedForAlone) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  Loop loop;
  int read = 0;
  const auto watching = loop.watch(ends[0], [&read] { ++read; });
  const std::uint64_t now = Loop::nowNs();
  Departures departures({now + 30 * msNs, now + 7200000 * msNs});
  const auto added = loop.add(departures);
  while (departures.served == 0) {
    loop.waitTimed(now + 3600000 * msNs);
  }
  EXPECT_GE(Loop::nowNs(), now + 30 * msNs);
  loop.waitTimed(now + 40 * msNs);
  EXPECT_GE(Loop::nowNs(), now + 40 * msNs);
  EXPECT_EQ(departures.served, 1);
  EXPECT_EQ(read, 0);
  close(ends[0]);
  close(ends[1]);
}

TEST(Loop, TheTimeEndsTheWait) {
  Loop loop;
  Departures departures({Loop::nowNs() + 3600000 * msNs});
  const auto added = loop.add(departures);
  const std::uint64_t until = Loop::nowNs() + 20 * msNs;
  loop.wait(until);
  EXPECT_GE(Loop::nowNs(), until);
  EXPECT_EQ(departures.served, 0);
}

TEST(Loop, DeparturesEndWithTheirOwner) {
  Loop loop;
  Departures departures({0});
  auto added = loop.add(departures);
  added.reset();
  loop.wait(0);
  EXPECT_EQ(departures.served, 0);
}
