// Runs the cases of a test program, each in a process of its own, up to the first that fails, and
// prints that one's name. Cases named on the command line come first.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// A broken module may loop for ever, and record every turn.
constexpr rlim_t CPU_SECONDS = 10;
constexpr rlim_t MEMORY = 1u << 30;
constexpr unsigned WALL_SECONDS = 100;

std::vector<std::string> allCases() {
  std::vector<std::string> names;
  const testing::UnitTest &program = *testing::UnitTest::GetInstance();
  for (int s = 0; s < program.total_test_suite_count(); ++s) {
    const testing::TestSuite &suite = *program.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(t)->name());
    }
  }
  return names;
}

void limit(int resource, rlim_t value) {
  const rlimit both = {value, value};
  setrlimit(resource, &both);
}

[[noreturn]] void runCase(const std::string &name) {
  setpgid(0, 0);
  limit(RLIMIT_CPU, CPU_SECONDS);
  limit(RLIMIT_AS, MEMORY);
  limit(RLIMIT_CORE, 0);
  alarm(WALL_SECONDS);
  // The descriptors alone: a stream that is opened anew would be buffered.
  const int nowhere = open("/dev/null", O_WRONLY);
  const bool silent = dup2(nowhere, STDOUT_FILENO) >= 0 && dup2(nowhere, STDERR_FILENO) >= 0;
  testing::GTEST_FLAG(filter) = name;
  _exit(silent && RUN_ALL_TESTS() == 0 ? 0 : 1);
}

bool passes(const std::string &name) {
  const pid_t child = fork();
  if (child == 0) {
    runCase(name);
  }
  int status = 0;
  const bool ended = child > 0 && waitpid(child, &status, 0) == child;
  if (child > 0) {
    kill(-child, SIGKILL);  // what the case has started and a broken program left behind
  }
  return ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  std::vector<std::string> names = allCases();
  if (names.empty()) {
    std::puts("(no case)");
    return 2;
  }
  const std::vector<std::string> wanted(argv + 1, argv + argc);
  std::stable_partition(names.begin(), names.end(), [&wanted](const std::string &name) {
    return std::find(wanted.begin(), wanted.end(), name) != wanted.end();
  });
  const auto failed = std::find_if_not(names.begin(), names.end(), passes);
  if (failed == names.end()) {
    return 0;
  }
  std::puts(failed->c_str());
  return 1;
}
