#include "app/ChassisRun.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

namespace chassis {
namespace {

// Standard input with a text in it, and its end behind that.
class PipedInput {
 public:
  explicit PipedInput(const std::string &text) : before_(dup(STDIN_FILENO)) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe(ends.data()), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
  }
  ~PipedInput() {
    dup2(before_, STDIN_FILENO);
    close(before_);
  }
  PipedInput(const PipedInput &) = delete;
  PipedInput &operator=(const PipedInput &) = delete;

 private:
  const int before_;
};

// What a run shows whose input is this.
std::string shown(const std::string &input) {
  const PipedInput piped(input);
  ChassisRun::Config config;
  config.mode = InputMode::Pipe;
  config.speed = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(ChassisRun(config, Script{}).run(), 0);
  return testing::internal::GetCapturedStdout();
}

TEST(Piped, TheLastLineNeedsNoEnd) {
  const std::string whole = shown("note \"one\"\n");
  EXPECT_NE(whole.find("one"), std::string::npos) << whole;
  EXPECT_EQ(shown("note \"one\""), whole);
  EXPECT_NE(shown("note \"one\"\nnote \"two\"").find("two"), std::string::npos);
}

std::string stampOf(const std::string &whole, const std::string &part) {
  const std::size_t line = whole.rfind('\n', whole.find(part)) + 1;
  return whole.substr(line, whole.find(' ', line) - line);
}

// Also when they come one after the other.
TEST(Piped, LinesTakeNoChassisTime) {
  std::string lines;
  for (int i = 0; i < 200; ++i) {
    lines += "note \"one of many\"\n";
  }
  const std::string whole = shown(lines + "note \"the last\"\n");
  EXPECT_EQ(stampOf(whole, "the last"), "00:00:00.000") << whole;
}

TEST(Piped, NobodyAsksTheModuleBeforeItHasStarted) {
  const std::string whole = shown("getDescStatWeb 0, 0x10000\nnote \"the next\"\n");
  EXPECT_NE(whole.find("no card has registered"), std::string::npos) << whole;
  EXPECT_EQ(stampOf(whole, "the next"), "00:00:02.000") << whole;
}

// Somebody else may want it.
TEST(Piped, WhatStandsBehindAnExitIsHardlyRead) {
  constexpr int behind = 60000;
  const PipedInput piped("wait 100\nexit\n" + std::string(behind, '\n'));
  ChassisRun::Config config;
  config.mode = InputMode::Pipe;
  config.speed = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(ChassisRun(config, Script{}).run(), 0);
  testing::internal::GetCapturedStdout();
  int left = 0;
  ASSERT_EQ(ioctl(STDIN_FILENO, FIONREAD, &left), 0);
  EXPECT_GT(left, behind / 2);
}

std::ptrdiff_t openFiles() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST(Piped, ARunLeavesNoFileOpen) {
  shown("wait 1\n");
  const std::ptrdiff_t before = openFiles();
  shown("wait 1\n");
  EXPECT_EQ(openFiles(), before);
}

constexpr std::uint64_t chassisMs = 3000;
constexpr int speed = 20;

// A run in a process of its own, to which Ctrl-Z comes at once.
pid_t startAndStop() {
  const pid_t child = fork();
  if (child == 0) {
    ChassisRun::Config config;
    config.speed = speed;
    config.endMs = chassisMs;
    ChassisRun chassisRun(config, Script{});
    std::raise(SIGTSTP);
    _exit(chassisRun.run());
  }
  return child;
}

TEST(Stopped, ARunThatGoesOnKeepsItsPaceAndDoesNotCatchUp) {
  using std::chrono::milliseconds;
  using std::chrono::steady_clock;
  const milliseconds wholeRun(chassisMs / speed);
  const pid_t child = startAndStop();
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  ASSERT_TRUE(WIFSTOPPED(status));
  std::this_thread::sleep_for(2 * wholeRun);  // what it could catch up
  const auto continued = steady_clock::now();
  ASSERT_EQ(kill(child, SIGCONT), 0);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  constexpr int oneTickMs = 10;
  EXPECT_GE(steady_clock::now() - continued, wholeRun - milliseconds(oneTickMs));
}

}  // namespace
}  // namespace chassis
