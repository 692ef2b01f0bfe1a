#include "platform/Kernel.h"

#include <gtest/gtest.h>

#include <csignal>

#include "kernel/Clock.h"
#include "platform/Binding.h"

namespace {

class Kernel : public testing::Test {
 protected:
  chassis::Clock clock{0xFFFFFF00};
  chassis::Binding binding{{&clock, nullptr, nullptr, {}}};
};

using KernelDeathTest = Kernel;

}  // namespace

TEST_F(Kernel, TicksAsTheClockDoes) {
  EXPECT_EQ(sysClkRateGet(), 100);
  taskDelay(sysClkRateGet() * 3000 / 1000);
  EXPECT_EQ(clock.elapsedMs(), 3000U);
}

TEST_F(Kernel, ADelayOfNothingPassesNoTime) {
  taskDelay(0);
  taskDelay(-5);
  EXPECT_EQ(clock.elapsedMs(), 0U);
}

TEST_F(Kernel, MeasuresAcrossTheWrapOfTheStamp) {
  const std::uint32_t begin = OSTimeGet();
  EXPECT_EQ(begin, 0xFFFFFF00U);
  taskDelay(100);
  EXPECT_EQ(OSTimeGet(), 0xFFFFFF00U + 1000U);
  EXPECT_LT(OSTimeGet(), begin);
  EXPECT_EQ(get_inc_of_time(begin), 1000U);
}

TEST_F(Kernel, ASemaphoreIsTakenOnceForEachGive) {
  semaphore flag;
  EXPECT_NE(semTake(&flag, 0), 0);
  semGive(&flag);
  semGive(&flag);
  EXPECT_EQ(semTake(&flag, 0), 0);
  EXPECT_NE(semTake(&flag, 0), 0);
  EXPECT_EQ(clock.elapsedMs(), 0U);
}

TEST_F(Kernel, ASemaphoreCanBeFreeAtFirst) {
  semaphore lock{1};
  EXPECT_EQ(semTake(&lock, -1), 0);
  EXPECT_NE(semTake(&lock, 0), 0);
}

TEST_F(Kernel, WaitsForASemaphoreAsLongAsItWasTold) {
  semaphore flag;
  EXPECT_NE(semTake(&flag, 50), 0);
  EXPECT_EQ(clock.elapsedMs(), 500U);
}

TEST_F(Kernel, TakesASemaphoreThatIsGivenMeanwhile) {
  semaphore flag;
  const auto listening = clock.onTick([&](std::uint64_t ms) {
    if (ms == 300) {
      semGive(&flag);
    }
  });
  EXPECT_EQ(semTake(&flag, 50), 0);
  EXPECT_EQ(clock.elapsedMs(), 300U);
}

TEST_F(Kernel, WaitsForeverUntilItIsGiven) {
  semaphore flag;
  const auto listening = clock.onTick([&](std::uint64_t ms) {
    if (ms == chassis::longestWaitMs) {
      semGive(&flag);
    }
  });
  EXPECT_EQ(semTake(&flag, -1), 0);
  EXPECT_EQ(clock.elapsedMs(), chassis::longestWaitMs);
}

TEST_F(Kernel, AtTheEndOfTheRunNobodyWaitsForever) {
  semaphore flag;
  const auto listening = clock.onTick([this](std::uint64_t ms) {
    if (ms == 300) {
      clock.stop();
    }
  });
  EXPECT_NE(semTake(&flag, -1), 0);
  EXPECT_EQ(clock.elapsedMs(), 300U);
}

TEST_F(KernelDeathTest, AWaitThatNobodyEndsAborts) {
  semaphore flag;
  EXPECT_EXIT(semTake(&flag, -1), testing::KilledBySignal(SIGABRT), "nobody gives the semaphore");
}

TEST_F(Kernel, HasNoUseForNoSemaphore) {
  EXPECT_NE(semTake(nullptr, 0), 0);
  EXPECT_NE(semTake(nullptr, -1), 0);
  EXPECT_NE(semGive(nullptr), 0);
}

TEST(KernelWithoutClock, TimeStandsStill) {
  EXPECT_EQ(OSTimeGet(), 0U);
  EXPECT_EQ(taskDelay(100), 0);
  EXPECT_EQ(OSTimeGet(), 0U);
  EXPECT_EQ(get_inc_of_time(0), 0U);
  semaphore flag;
  EXPECT_NE(semTake(&flag, 10), 0);
}

TEST(KernelWithoutClockDeathTest, AWaitForeverAborts) {
  semaphore flag;
  EXPECT_EXIT(semTake(&flag, -1), testing::KilledBySignal(SIGABRT), "nobody gives the semaphore");
}
