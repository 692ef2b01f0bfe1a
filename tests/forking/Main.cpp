// Runs every case of a test program in a process of its own without starting the program afresh
// for each: under an emulator the start costs more than the case.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

std::vector<std::string> caseNames() {
  std::vector<std::string> names;
  const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
  for (int s = 0; s < unit.total_test_suite_count(); ++s) {
    const testing::TestSuite &suite = *unit.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      names.push_back(std::string(suite.name()) + "." + suite.GetTestInfo(t)->name());
    }
  }
  return names;
}

// In the child: runs one case, with its output in a file. A name that selects nothing is a failure.
[[noreturn]] void runCase(const std::string &name, std::FILE *output) {
  dup2(fileno(output), STDOUT_FILENO);
  dup2(fileno(output), STDERR_FILENO);
  testing::GTEST_FLAG(filter) = name;
  const int failed = RUN_ALL_TESTS();
  const bool ran = testing::UnitTest::GetInstance()->test_to_run_count() == 1;
  std::fflush(nullptr);
  _exit(failed != 0 || !ran ? EXIT_FAILURE : EXIT_SUCCESS);
}

void copyToConsole(std::FILE *output) {
  std::rewind(output);
  for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output)) {
    std::putchar(c);
  }
}

bool passes(const std::string &name) {
  std::FILE *output = std::tmpfile();
  if (output == nullptr) {
    std::perror("tmpfile");
    return false;
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    runCase(name, output);
  }
  int status = -1;
  const bool good = child > 0 && waitpid(child, &status, 0) == child && status == 0;
  if (!good) {
    std::printf("%s: failed, status %d\n", name.c_str(), status);
    copyToConsole(output);
  }
  std::fclose(output);
  return good;
}

// Runs no case: an emulator keeps what it has translated, and the children inherit it.
bool warmUp() {
  testing::GTEST_FLAG(filter) = "-*";
  return RUN_ALL_TESTS() == 0;
}

}  // namespace

// Arguments, both or none: which share of the cases to run, and how many shares there are.
int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const size_t share = argc == 3 ? std::stoul(argv[1]) : 0;
  const size_t shares = argc == 3 ? std::stoul(argv[2]) : 1;
  if (!warmUp()) {
    return EXIT_FAILURE;
  }
  const std::vector<std::string> names = caseNames();
  size_t run = 0;
  size_t failures = 0;
  for (size_t i = share; i < names.size(); i += shares) {
    failures += passes(names[i]) ? 0 : 1;
    ++run;
  }
  std::printf("%zu cases, %zu failed\n", run, failures);
  return run == 0 || failures != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
