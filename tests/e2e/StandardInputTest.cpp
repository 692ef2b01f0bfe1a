// Lines and scripts that come through standard input.
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include "Run.h"

namespace e2e {
namespace {

const std::string script =
    "cardInsert 0, \"build/samples/headend.ts\"\nprogAssign 0, 101, 1\ncamInsert 0, 0, 0x0500\n"
    "wait 12\n";

using StandardInput = Run;

TEST_F(StandardInput, AScriptPlaysAsFromAFile) {
  const Result file = runScript(script);
  const Result piped = run("--script - --speed max", "script");
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(piped.err, "");
  EXPECT_EQ(linesOf(piped.out), linesOf(file.out));
  ASSERT_EQ(tableRows(piped.out).size(), 8U) << piped.out;
}

TEST_F(StandardInput, AWrongLineOfAScriptIsNamedBeforeAnythingRuns) {
  const Result result = run("--script - --speed max", write("in", "wait 1\nwait x\n"));
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err.rfind("ci-chassis: standard input:2: ", 0), 0U) << result.err;
}

// A terminal whose other side has gone has nothing but an error behind the last byte.
class FailingInput {
 public:
  explicit FailingInput(const std::string &text) {
    int other = -1;
    EXPECT_EQ(openpty(&file_, &other, nullptr, nullptr, nullptr), 0);
    termios modes{};
    EXPECT_EQ(tcgetattr(other, &modes), 0);
    cfmakeraw(&modes);
    EXPECT_EQ(tcsetattr(other, TCSANOW, &modes), 0);
    EXPECT_EQ(::write(other, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(other);
  }
  ~FailingInput() { close(file_); }
  FailingInput(const FailingInput &) = delete;
  FailingInput &operator=(const FailingInput &) = delete;

  std::string redirection() const { return " <&" + std::to_string(file_); }

 private:
  int file_ = -1;
};

TEST_F(StandardInput, AScriptThatCannotBeReadToItsEndDoesNotRun) {
  const FailingInput input("note \"whole\"\nwait 1\nnote \"pa");
  const Result result = command(program + " --script - --speed max" + input.redirection());
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "ci-chassis: standard input:3: cannot be read any further: Input/output error\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(StandardInput, ConsoleLinesThatCannotBeReadEndTheRunWithAnError) {
  const FailingInput input("note \"whole\"\nwait 1\nexit");
  const Result result = command(program + " --console --speed max" + input.redirection());
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "ci-chassis: standard input:3: cannot be read any further: Input/output error\n");
  EXPECT_EQ(linesWith(result.out, "whole").size(), 1U) << result.out;
}

TEST_F(StandardInput, ConsoleAnswersLineByLine) {
  const Result result =
      run("--console --speed max", write("in", script + "getDescStatWeb 0, 0\nTIME_RESET = 7\n"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(linesWith(result.out, "value = 7 = 0x7").empty()) << result.out;
  EXPECT_FALSE(linesWith(result.out, "value = 255 = 0xff").empty()) << result.out;
  ASSERT_EQ(tableRows(result.out).size(), 8U) << result.out;
  EXPECT_EQ(tableRows(result.out)[0].state, "descrambled");
}

TEST_F(StandardInput, ConsoleGoesOnBehindAWrongLine) {
  const Result result =
      run("--console --speed max", write("in", "nonsense\ntest_bit \"04\", 2\nexit\n"));
  EXPECT_EQ(result.status, 0) << result.err;
  const std::size_t error = result.out.find("error: there is no function or variable nonsense");
  ASSERT_NE(error, std::string::npos) << result.out;
  EXPECT_NE(result.out.find("value = 1 = 0x1", error), std::string::npos) << result.out;
}

TEST_F(StandardInput, ExitEndsTheConsoleBeforeTheLinesBehindIt) {
  const Result result = run("--console --speed max", write("in", "exit\ntest_bit \"04\", 2\n"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(linesWith(result.out, "value = ").empty()) << result.out;
}

TEST_F(StandardInput, ConsoleFollowsAScript) {
  write("script", script);
  const Result result =
      run("--console --speed max --script script", write("in", "wait 1\ntest_bit \"04\", 2\n"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(linesWith(result.out, "value = 1 = 0x1").empty()) << result.out;
  ASSERT_EQ(tableRows(result.out).size(), 8U) << result.out;
}

TEST_F(StandardInput, OneReaderOfItAtATime) {
  const Result result = run("--console --script -", write("in", "wait 1\n"));
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(linesOf(result.err).size(), 1U) << result.err;
  EXPECT_NE(result.err.find("--console and --script -"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace e2e
