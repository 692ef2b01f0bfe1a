// Half a terminal is none: there is a prompt only where a person both types and reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>

namespace {

constexpr int deadlineMs = 30000;
constexpr int wrongUse = 2;

struct Ended {
  int status = -1;  // exit status; -1: it did not end by itself
  std::string shown;
};

// Reads until the program has gone; false: it is silent and still there at the deadline.
bool readAll(int terminal, std::string &text) {
  std::array<char, 4096> buffer{};
  for (pollfd source{terminal, POLLIN, 0}; poll(&source, 1, deadlineMs) > 0;) {
    const ssize_t size = read(terminal, buffer.data(), buffer.size());
    if (size <= 0) {
      return true;
    }
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  return false;
}

// Runs the program at a terminal, but for one descriptor of it.
Ended runWithout(int descriptor) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    dup2(open("/dev/null", O_RDWR), descriptor);
    execl(CONSOLE_PROGRAM, CONSOLE_PROGRAM, nullptr);
    _exit(127);
  }
  Ended ended;
  if (!readAll(terminal, ended.shown)) {
    kill(child, SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  close(terminal);
  return ended;
}

TEST(Redirected, WithoutScriptAndTerminalThereIsNothingToRun) {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO}) {
    const Ended ended = runWithout(descriptor);
    EXPECT_EQ(ended.status, wrongUse) << ended.shown;
    EXPECT_NE(ended.shown.find("nothing to run"), std::string::npos) << ended.shown;
  }
}

}  // namespace
