// Runs the cases of a test program, each in a process of its own, up to the first that fails, and
// prints that one's name. Cases named on the command line come first.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "../../tests/forking/Cases.h"

namespace {

// A broken program may loop for ever, record every turn, and leave behind what it has started.
constexpr unsigned WALL_SECONDS = 100;
constexpr rlim_t CPU_SECONDS = 10;
constexpr rlim_t MEMORY = 1u << 30;
constexpr forking::Limits LIMITS = {WALL_SECONDS, CPU_SECONDS, MEMORY, true};

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  std::vector<std::string> names = forking::selectedCases();
  if (names.empty()) {
    std::puts("(no case)");
    return 2;
  }
  const std::vector<std::string> wanted(argv + 1, argv + argc);
  std::stable_partition(names.begin(), names.end(), [&wanted](const std::string &name) {
    return std::find(wanted.begin(), wanted.end(), name) != wanted.end();
  });
  const int nowhere = open("/dev/null", O_WRONLY);
  const auto failed = std::find_if(names.begin(), names.end(), [nowhere](const std::string &name) {
    return nowhere < 0 || forking::runCase(name, nowhere, LIMITS) != 0;
  });
  if (failed == names.end()) {
    return 0;
  }
  std::puts(failed->c_str());
  return 1;
}
