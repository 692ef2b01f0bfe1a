// A job of a terminal that is not in the foreground.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;

constexpr unsigned boundSeconds = 60;
constexpr int stopped = 99;

// Waits until nobody takes any more of what the job has to say, and ends it. Its exit status.
int endStatusOf(pid_t job, int output) {
  for (pollfd room{output, POLLOUT, 0}; poll(&room, 1, 0) != 0;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(job, SIGTERM);
  int status = 0;
  waitpid(job, &status, WUNTRACED);
  kill(job, SIGKILL);
  return WIFEXITED(status) ? WEXITSTATUS(status) : stopped;
}

// The shell of a terminal, which has started a job in the background.
[[noreturn]] void shell(const char *script) {
  alarm(boundSeconds);
  std::array<int, 2> ends{};
  static_cast<void>(!pipe(ends.data()));
  const pid_t job = fork();
  if (job == 0) {
    setpgid(0, 0);
    dup2(ends[1], STDOUT_FILENO);
    execl(CONSOLE_PROGRAM, CONSOLE_PROGRAM, "--script", script, nullptr);
    _exit(127);
  }
  _exit(endStatusOf(job, ends[1]));
}

TEST(Background, AJobEndsInTimeAndIsNotStoppedByItsTerminal) {
  std::string pattern = (fs::temp_directory_path() / "ci-background-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const std::string script = pattern + "/script";
  {
    std::ofstream lines(script);
    for (int i = 0; i < 5000; ++i) {
      lines << "note \"" << std::string(100, 'x') << "\"\n";
    }
  }
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    shell(script.c_str());
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM);
  close(terminal);
  fs::remove_all(pattern);
}

}  // namespace
