// Runs the selected cases, each in a process of its own, and shows what those print that fail. One
// case alone runs in this process, for the debugger and for its output.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "Cases.h"

namespace {

// A case that hangs ends here by its name; none takes a hundredth of that.
constexpr unsigned WALL_SECONDS = 900;

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
  const int status = forking::runCase(name, fileno(output), {WALL_SECONDS, 0, 0, false});
  if (status != 0) {
    copyToConsole(output);
    std::printf("%s: failed, status %d\n", name.c_str(), status);
  }
  std::fclose(output);
  return status == 0;
}

int runEach(const std::vector<std::string> &names) {
  std::vector<std::string> failed;
  for (const std::string &name : names) {
    if (!passes(name)) {
      failed.push_back(name);
    }
  }
  std::printf("%zu cases, %zu failed\n", names.size(), failed.size());
  for (const std::string &name : failed) {
    std::printf("  %s\n", name.c_str());
  }
  return names.empty() || !failed.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc > 1) {
    std::fprintf(stderr, "%s: '%s' is no flag of GoogleTest; --help lists them\n", argv[0],
                 argv[1]);
    return EXIT_FAILURE;
  }
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  const std::vector<std::string> names = forking::selectedCases();
  return names.size() == 1 ? RUN_ALL_TESTS() : runEach(names);
}
