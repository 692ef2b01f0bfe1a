#include "app/Probe.h"

#include <gtest/gtest.h>

#include "app/CommandLine.h"
#include "chassis/PaidStream.h"

using namespace testing_streams;

namespace chassis {
namespace {

class ProbeCommand : public testing::Test {
 protected:
  ProbeOptions options(const std::string &before, const std::string &behind) const {
    ProbeOptions given;
    given.before = before;
    given.behind = behind;
    given.reports.noTable = true;
    return given;
  }
  // Exit status and standard output.
  std::pair<int, std::string> judged(const ProbeOptions &given) {
    testing::internal::CaptureStdout();
    const int status = probe(given);
    return {status, testing::internal::GetCapturedStdout()};
  }
  static std::string error(const ProbeOptions &given) {
    try {
      probe(given);
    } catch (const InputError &error) {
      return error.what();
    }
    return "";
  }

  const TemporaryFile in{paidStream(true)};
  const TemporaryFile good{paidStream(false)};
  const TemporaryFile bad{paidStream(true)};
};

TEST_F(ProbeCommand, ChecksAGoodReceiver) {
  ProbeOptions given = options(in.path(), good.path());
  given.check = true;
  const auto [status, line] = judged(given);
  EXPECT_EQ(status, 0) << line;
  EXPECT_EQ(line.rfind("DESCRAMBLING OK: 1 of 1 program descrambled | ", 0), 0U) << line;
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
}

TEST_F(ProbeCommand, ChecksABadReceiver) {
  ProbeOptions given = options(in.path(), bad.path());
  given.check = true;
  given.caSystems = {"0x0500"};
  given.programs = {"101"};
  const auto [status, line] = judged(given);
  EXPECT_EQ(status, 2) << line;
  EXPECT_EQ(line.rfind("DESCRAMBLING CRITICAL: program 101 not descrambled, ", 0), 0U) << line;
}

TEST_F(ProbeCommand, ANumberOfItsOwnIsMapped) {
  const TemporaryFile renumbered(paidStream(false, 0, 7));
  ProbeOptions given = options(in.path(), renumbered.path());
  given.check = true;
  EXPECT_EQ(judged(given).first, 2) << "program 101 does not come out";
  given.numbers = {"101=7"};
  EXPECT_EQ(judged(given).first, 0);
}

TEST_F(ProbeCommand, ShowsTheTimelineAndTheTables) {
  ProbeOptions given = options(in.path(), good.path());
  given.reports.noTable = false;
  const auto [status, text] = judged(given);
  EXPECT_EQ(status, 0);
  for (const char *part :
       {"what goes into the receiver has begun", "the receiver is judged by CA system 0x0500",
        "\nbehind ", "no alarm stands"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part;
  }
}

TEST_F(ProbeCommand, ShortOfItsFirstCheckItTellsWhatItHas) {
  ProbeOptions given = options(in.path(), good.path());
  given.check = true;
  given.duration = "0.5";
  const auto [status, line] = judged(given);
  EXPECT_EQ(status, 3);
  EXPECT_EQ(line.rfind("DESCRAMBLING UNKNOWN: ", 0), 0U) << line;
}

TEST_F(ProbeCommand, NamesWhatDoesNotFit) {
  const ProbeOptions right = options(in.path(), good.path());
  const auto wrong = [&right](auto change) {
    ProbeOptions given = right;
    change(given);
    return error(given);
  };
  EXPECT_EQ(wrong([](ProbeOptions &o) { o.programs = {"65536"}; }),
            "--program 65536 does not fit; write 1 to 65535, or 0x0001 to 0xFFFF");
  EXPECT_EQ(wrong([](ProbeOptions &o) { o.numbers = {"1=0"}; }),
            "--map 0 does not fit; write 1 to 65535, or 0x0001 to 0xFFFF");
  EXPECT_EQ(wrong([](ProbeOptions &o) { o.numbers = {"1"}; }),
            "--map 1 does not fit; write BEFORE=BEHIND, two program numbers such as 101=1");
  EXPECT_EQ(wrong([](ProbeOptions &o) {
              o.numbers = {"1=2", "1=3"};
            }),
            "--map gives program 1 two numbers behind; leave one out");
  EXPECT_EQ(wrong([](ProbeOptions &o) { o.duration = "-1"; }),
            "--for -1 does not fit; write 0 to 1000000 seconds");
  EXPECT_EQ(wrong([](ProbeOptions &o) {
              o.check = true;
              o.reports.statusFile = "-";
            }),
            "--check writes standard output; give a file in place of -");
  EXPECT_EQ(wrong([](ProbeOptions &o) { o.behind = "foo://x"; }).rfind("'foo://x': ", 0), 0U);
}

TEST(ProbeOptions, AreReadFromACommandLine) {
  ProbeOptions given;
  CLI::App app;
  describeProbe(app, given);
  app.parse("--program 1 --program 2 --casid 0x0B00 --map 1=2 a b --for 3 --check --on-reset x");
  EXPECT_EQ(given.programs, (std::vector<std::string>{"1", "2"}));
  EXPECT_EQ(given.caSystems, std::vector<std::string>{"0x0B00"});
  EXPECT_EQ(given.numbers, std::vector<std::string>{"1=2"});
  EXPECT_EQ(given.before, "a");
  EXPECT_EQ(given.behind, "b");
  EXPECT_EQ(given.duration, "3");
  EXPECT_EQ(given.onReset, "x");
  EXPECT_TRUE(given.check);
}

TEST(ProbeOptions, AnEmptyCommandIsRefused) {
  ProbeOptions given;
  CLI::App app;
  describeProbe(app, given);
  EXPECT_THROW(app.parse("a b --on-reset ''"), CLI::ParseError);
}

TEST(FailedCheck, IsOneLineOfACheckToo) {
  std::string program = "x";
  std::string check = "--check";
  char *with[] = {program.data(), check.data()};
  EXPECT_TRUE(asksForCheck(2, with));
  EXPECT_FALSE(asksForCheck(1, with));
  testing::internal::CaptureStdout();
  EXPECT_EQ(failedCheck("BEHIND is required"), 3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "DESCRAMBLING UNKNOWN: BEHIND is required\n");
}

}  // namespace
}  // namespace chassis
