// How programs end, and what becomes of their standard output.
#include "app/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "base/InputError.h"
#include "console/StandardOutput.h"
#include "io/ReplacedFile.h"

using chassis::finishStandardOutput;
using chassis::runProgram;
using chassis::writeStandardOutput;
using testing::ExitedWithCode;

namespace {

// Ends the process as a program does whose standard output goes to a file.
[[noreturn]] void endWith(const char *output, int status, const std::string &said) {
  dup2(open(output, O_WRONLY), STDOUT_FILENO);
  writeStandardOutput(said);
  writeStandardOutput("more");
  std::exit(finishStandardOutput("tool", status));
}

TEST(StandardOutput, WhatIsLostEndsTheProgramWithAStatusOfItsOwn) {
  const char *why = "^tool: standard output is not whole: No space left on device\n$";
  EXPECT_EXIT(endWith("/dev/full", 0, "text"), ExitedWithCode(3), why);
  EXPECT_EXIT(endWith("/dev/full", 0, std::string(100000, 'x')), ExitedWithCode(3), why);
}

TEST(StandardOutput, AnotherTroubleKeepsItsStatus) {
  EXPECT_EXIT(endWith("/dev/full", 2, "text"), ExitedWithCode(2), "is not whole");
}

TEST(StandardOutput, WithoutALossNothingIsTold) {
  EXPECT_EXIT(endWith("/dev/null", 0, "text"), ExitedWithCode(0), "^$");
  EXPECT_EXIT(
      {
        close(STDOUT_FILENO);
        std::exit(finishStandardOutput("tool", 0));
      },
      ExitedWithCode(0), "^$");
}

template <typename Error>
int failWith(const char *what) {
  return runProgram("tool", [what]() -> int { throw Error(what); });
}

TEST(Program, WhatItThrowsHasAStatusAndALine) {
  EXPECT_EXIT(std::exit(runProgram("tool", [] { return 0; })), ExitedWithCode(0), "^$");
  EXPECT_EXIT(std::exit(failWith<chassis::InputError>("no such file")), ExitedWithCode(2),
              "^tool: no such file\n$");
  EXPECT_EXIT(std::exit(failWith<chassis::OutputLost>("'out' is not whole")), ExitedWithCode(3),
              "^tool: 'out' is not whole\n$");
  EXPECT_EXIT(std::exit(failWith<std::runtime_error>("no memory")), ExitedWithCode(4),
              "^tool: no memory\n$");
}

TEST(Program, WhatItOpensDoesNotGetTheNumberOfAClosedStream) {
  EXPECT_EXIT(
      {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        std::exit(runProgram("tool", [] {
          char byte = 0;
          const bool useless =
              read(STDIN_FILENO, &byte, 1) < 0 && write(STDOUT_FILENO, &byte, 1) < 0;
          return useless && open("/dev/null", O_RDONLY) > STDERR_FILENO ? 7 : 8;
        }));
      },
      ExitedWithCode(7), "^$");
}

TEST(Program, GoesOnWithoutAReaderAndTellsSo) {
  EXPECT_EXIT(
      {
        int ends[2] = {};
        static_cast<void>(!pipe(ends));
        close(ends[0]);
        dup2(ends[1], STDOUT_FILENO);
        std::exit(runProgram("tool", [] {
          const bool before = chassis::standardOutputGone();
          writeStandardOutput("text");
          writeStandardOutput("more");
          return chassis::standardOutputGone() && !before ? 0 : 8;
        }));
      },
      ExitedWithCode(3), "^tool: standard output is not whole: Broken pipe\n$");
}

}  // namespace
