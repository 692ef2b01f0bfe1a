#include "kernel/Clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include "kernel/Loop.h"

using chassis::Clock;

TEST(Clock, AdvancesOnlyWhenAsked) {
  Clock clock(1000);
  EXPECT_EQ(clock.elapsedMs(), 0U);
  EXPECT_EQ(clock.stamp(), 1000U);
  clock.advance(0);
  EXPECT_EQ(clock.elapsedMs(), 0U);
  clock.advance(1);
  EXPECT_EQ(clock.elapsedMs(), 10U);
  EXPECT_EQ(clock.stamp(), 1010U);
}

TEST(Clock, StampWrapsElapsedDoesNot) {
  Clock clock(0xFFFFFFFFU - 14);
  clock.advance(1);
  EXPECT_EQ(clock.stamp(), 0xFFFFFFFFU - 4);
  clock.advance(1);
  EXPECT_EQ(clock.stamp(), 5U);
  EXPECT_EQ(clock.elapsedMs(), 20U);
}

TEST(Clock, TellsListenersEveryTickInOrder) {
  Clock clock;
  std::vector<std::uint64_t> calls;
  const auto listening = clock.onTick([&](std::uint64_t ms) {
    EXPECT_EQ(clock.elapsedMs(), ms);
    calls.push_back(ms);
  });
  const auto listening2 = clock.onTick([&](std::uint64_t ms) { calls.push_back(ms + 1); });
  clock.advance(3);
  EXPECT_EQ(calls, (std::vector<std::uint64_t>{10, 11, 20, 21, 30, 31}));
}

TEST(Clock, AListenerEndsWithItsOwner) {
  Clock clock;
  std::vector<char> calls;
  const auto stays = clock.onTick([&](std::uint64_t) { calls.push_back('s'); });
  auto goes = clock.onTick([&](std::uint64_t) { calls.push_back('g'); });
  clock.advance(1);
  goes.reset();
  clock.advance(1);
  EXPECT_EQ(std::string(calls.begin(), calls.end()), "sgs");
}

TEST(Clock, StoppedItStandsStill) {
  Clock clock;
  const auto listening = clock.onTick([&](std::uint64_t ms) {
    if (ms == 20) {
      clock.stop();
    }
  });
  clock.advance(5);
  EXPECT_EQ(clock.elapsedMs(), 20U);
  EXPECT_TRUE(clock.stopped());
  clock.advance(1);
  EXPECT_EQ(clock.elapsedMs(), 20U);
}

TEST(Clock, StoppedWhileItWaitsItDoesNotTickAnyMore) {
  Clock clock;
  clock.setWait([&clock](std::uint64_t) {
    if (clock.elapsedMs() == 30) {
      clock.stop();
    }
  });
  clock.advance(5);
  EXPECT_EQ(clock.elapsedMs(), 30U);
}

TEST(ClockDeathTest, AListenerThatDelaysAborts) {
  Clock clock;
  const auto listening = clock.onTick([&](std::uint64_t) { clock.advance(1); });
  EXPECT_EXIT(clock.advance(1), testing::KilledBySignal(SIGABRT), "tick listener");
}

TEST(Clock, KeepsThePaceOfTheRealClock) {
  using std::chrono::steady_clock;
  Clock clock(0, 100);
  const auto begin = steady_clock::now();
  clock.advance(200);  // 2 s of the chassis
  const std::chrono::duration<double> real = steady_clock::now() - begin;
  EXPECT_EQ(clock.elapsedMs(), 2000U);
  EXPECT_GE(real.count(), 0.0199);
}

TEST(Clock, AsksItsWaitBeforeEachTickAtAnySpeed) {
  Clock clock;
  std::vector<std::uint64_t> due;
  clock.setWait([&due](std::uint64_t dueNs) { due.push_back(dueNs); });
  clock.advance(2);
  EXPECT_EQ(due, (std::vector<std::uint64_t>{0, 0}));
  clock.setSpeed(1);
  clock.advance(2);
  ASSERT_EQ(due.size(), 4U);
  EXPECT_EQ(due[3] - due[2], 10000000U);
  clock.setSpeed(2);
  clock.advance(2);
  EXPECT_EQ(due[5] - due[4], 5000000U);
}

TEST(Clock, ALiveOneJumpsAfterAStall) {
  Clock clock;
  clock.goLive();
  EXPECT_TRUE(clock.live());
  EXPECT_EQ(clock.speed(), 1);
  std::vector<std::uint64_t> ticks;
  const auto listening = clock.onTick([&ticks](std::uint64_t ms) { ticks.push_back(ms); });
  clock.advance(2);
  EXPECT_EQ(ticks, (std::vector<std::uint64_t>{10, 20}));
  std::this_thread::sleep_for(std::chrono::milliseconds(Clock::stallMs + 100));
  clock.advance(5);
  ASSERT_EQ(ticks.size(), 3U) << "one tick for all that was missed";
  EXPECT_GE(ticks[2], 20 + Clock::stallMs + 100 - Clock::msPerTick);
  EXPECT_EQ(ticks[2] % Clock::msPerTick, 0U);
}

TEST(Clock, ALiveOneKeepsItsSpeed) {
  Clock clock(0, 5);
  clock.goLive();
  clock.setSpeed(0);
  EXPECT_EQ(clock.speed(), 1);
}

TEST(Clock, RealTimesAndChassisTimesAreTheSameMoments) {
  Clock clock;
  clock.goLive();
  const std::uint64_t nowNs = chassis::Loop::nowNs();
  const std::uint64_t chassisNs = clock.chassisNs(nowNs + 5000000);
  EXPECT_GT(chassisNs, 0U);
  EXPECT_EQ(clock.chassisNs(nowNs + 25000000), chassisNs + 20000000);
  EXPECT_EQ(clock.realNs(chassisNs), nowNs + 5000000);
  EXPECT_EQ(clock.chassisNs(0), 0U) << "what lies before the begin is at the begin";
}
