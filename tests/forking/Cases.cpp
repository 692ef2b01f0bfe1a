#include "Cases.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

// Where gcov and the leak sanitizer are linked in.
extern "C" void __gcov_dump() __attribute__((weak));
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace forking {

namespace {

void limit(int resource, rlim_t value) {
  if (value != 0) {
    const rlimit both = {value, value};
    setrlimit(resource, &both);
  }
}

void obey(const Limits &limits) {
  if (limits.alone) {
    setpgid(0, 0);
  }
  limit(RLIMIT_CPU, limits.cpuSeconds);
  limit(RLIMIT_AS, limits.memory);
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  alarm(limits.wallSeconds);
}

// The descriptors alone: a stream that is opened anew would be buffered.
void redirect(int output) {
  if (dup2(output, STDOUT_FILENO) < 0 || dup2(output, STDERR_FILENO) < 0) {
    _exit(EXIT_FAILURE);
  }
}

// As a program of its own would end: leaks are looked for, counters are written. But nothing is
// taken apart, which would copy most of the memory that the child shares with its parent.
[[noreturn]] void end(bool failed) {
  std::fflush(nullptr);
  if (__gcov_dump != nullptr) {
    __gcov_dump();
  }
  const bool leaks =
      __lsan_do_recoverable_leak_check != nullptr && __lsan_do_recoverable_leak_check() != 0;
  _exit(failed || leaks ? EXIT_FAILURE : EXIT_SUCCESS);
}

// In the child.
[[noreturn]] void runHere(const std::string &name, int output, const Limits &limits) {
  obey(limits);
  redirect(output);
  unsetenv("GTEST_TOTAL_SHARDS");
  unsetenv("GTEST_SHARD_INDEX");
  testing::GTEST_FLAG(filter) = name;
  const int failed = RUN_ALL_TESTS();
  const bool ran = testing::UnitTest::GetInstance()->test_to_run_count() == 1;
  end(failed != 0 || !ran);
}

// GoogleTest marks the selected cases when it lists them; the list itself is not wanted.
void markSelected() {
  std::fflush(nullptr);
  const int console = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  testing::GTEST_FLAG(list_tests) = true;
  const int failed = RUN_ALL_TESTS();
  testing::GTEST_FLAG(list_tests) = false;
  std::fflush(nullptr);
  dup2(console, STDOUT_FILENO);
  close(console);
  close(nowhere);
  if (failed != 0) {
    std::exit(EXIT_FAILURE);
  }
}

}  // namespace

std::vector<std::string> selectedCases() {
  markSelected();
  std::vector<std::string> names;
  const testing::UnitTest &program = *testing::UnitTest::GetInstance();
  for (int s = 0; s < program.total_test_suite_count(); ++s) {
    const testing::TestSuite &suite = *program.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      const testing::TestInfo &info = *suite.GetTestInfo(t);
      if (info.should_run()) {
        names.push_back(std::string(suite.name()) + "." + info.name());
      }
    }
  }
  return names;
}

int runCase(const std::string &name, int output, const Limits &limits) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    runHere(name, output, limits);
  }
  int status = -1;
  const bool ended = child > 0 && waitpid(child, &status, 0) == child;
  if (child > 0 && limits.alone) {
    kill(-child, SIGKILL);
  }
  return ended ? status : -1;
}

}  // namespace forking
