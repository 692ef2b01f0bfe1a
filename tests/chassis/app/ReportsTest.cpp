#include "app/Reports.h"

#include <gtest/gtest.h>

#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "chassis/Folder.h"
#include "chassis/StreamWriter.h"

namespace chassis {
namespace {

class ReportsTest : public testing::Test {
 protected:
  // What a run with one card shows; `before` is done to it first.
  std::string run(const Reports &reports, int &status, const std::string &card = "0") {
    ChassisRun::Config config;
    config.speed = 0;
    config.endMs = 3000;
    config.shown = shownOf(reports);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
      ChassisRun run(config, Script{});
      openReports(run, reports);
      run.chassis().rack().cardInsert(static_cast<std::uint32_t>(std::stoul(card)), stream.path(),
                                      1504000);
      run.chassis().tell({{}, event::Remark{{"a remark"}}});
      status = runAndReport(run, reports, config);
    }
    errors = testing::internal::GetCapturedStderr();
    return testing::internal::GetCapturedStdout();
  }
  std::string read(const std::string &name) const { return folder.read(name); }
  static std::string openError(const Reports &reports) {
    try {
      ChassisRun run(ChassisRun::Config{}, Script{});
      openReports(run, reports);
    } catch (const InputError &error) {
      return error.what();
    }
    return "";
  }

  testing_streams::TemporaryFile stream{testing_streams::oneProgram()};
  testing_files::Folder folder;
  std::string errors;
};

TEST_F(ReportsTest, FilesAreWrittenBesideTheTimeline) {
  Reports reports;
  reports.events = folder.at("events");
  reports.statusFile = folder.at("status");
  reports.outputs = {"0:" + folder.at("out.ts")};
  EXPECT_TRUE(writesFiles(reports));
  EXPECT_EQ(shownOf(reports), Shown::Timeline);
  int status = -1;
  const std::string shown = run(reports, status);
  EXPECT_EQ(status, exitDone);
  EXPECT_EQ(errors, "");
  EXPECT_NE(shown.find("no alarm stands"), std::string::npos);
  EXPECT_NE(shown.find("\nout " + folder.at("out.ts") + ": 3000 packets, lost 0\n"),
            std::string::npos)
      << shown;
  EXPECT_NE(read("events").find("\"kind\":"), std::string::npos);
  EXPECT_NE(read("status").find("\"cards\""), std::string::npos);
  EXPECT_EQ(read("out.ts").size(), 3000U * 188);
}

TEST_F(ReportsTest, OneOfThemMayTakeStandardOutput) {
  Reports reports;
  reports.statusFile = "-";
  EXPECT_EQ(shownOf(reports), Shown::Nothing);
  int status = -1;
  EXPECT_EQ(run(reports, status).front(), '{');
  reports.statusFile.clear();
  reports.events = "-";
  EXPECT_EQ(shownOf(reports), Shown::EventLines);
  reports.events.clear();
  reports.outputs = {"2:-"};
  EXPECT_EQ(shownOf(reports), Shown::Nothing);
  EXPECT_FALSE(isFile("-"));
  EXPECT_FALSE(isFile(""));
  EXPECT_TRUE(isFile("x"));
}

TEST_F(ReportsTest, TwoCannot) {
  Reports reports;
  reports.events = reports.statusFile = "-";
  try {
    checkOutputTakers(reports, false);
    FAIL();
  } catch (const InputError &error) {
    EXPECT_STREQ(error.what(),
                 "--events - and --status-json - both write standard output; give a file in place "
                 "of -");
  }
  reports.events.clear();
  EXPECT_NO_THROW(checkOutputTakers(reports, false));
  EXPECT_THROW(checkOutputTakers(reports, true), InputError);
}

TEST_F(ReportsTest, AnOutputWithoutACardIsTold) {
  Reports reports;
  reports.noTable = true;
  reports.outputs = {"5:" + folder.at("out.ts")};
  int status = -1;
  run(reports, status);
  EXPECT_EQ(status, exitDone);
  EXPECT_EQ(errors, "ci-chassis: --output 5:" + folder.at("out.ts") +
                        ": no card was in slot 5, so nothing was written\n");
}

TEST_F(ReportsTest, WhatAnOutputLosesEndsTheRunWithAStatus) {
  Reports reports;
  reports.noTable = true;
  reports.outputs = {"0:/dev/full"};
  int status = -1;
  run(reports, status);
  EXPECT_EQ(status, exitLost);
  EXPECT_NE(errors.find("ci-chassis: '/dev/full', the output of slot 0, is not whole: "),
            std::string::npos)
      << errors;
}

TEST_F(ReportsTest, OutputsThatDoNotFitAreNamed) {
  const std::string range = " does not fit; write SLOT:FILE with a slot of 0 to 5";
  for (const char *text : {"x", "6:a", "0:", "-1:a", "a:b"}) {
    Reports reports;
    reports.outputs = {text};
    EXPECT_EQ(openError(reports), "--output " + std::string(text) + range);
  }
  Reports twice;
  twice.outputs = {"0:a", "0:b"};
  EXPECT_EQ(openError(twice),
            "--output 0:a and --output 0:b are for the same slot, which has one output; leave one "
            "out");
}

TEST_F(ReportsTest, AStatusThatCannotBeWrittenIsToldBeforeTheRun) {
  Reports reports;
  reports.statusFile = folder.at("");
  EXPECT_NE(openError(reports), "");
}

TEST(ReportOptions, AreReadFromACommandLine) {
  Reports reports;
  CLI::App app;
  describeOutputs(app, reports);
  describeReports(app, reports);
  app.parse("--output 0:a --output 1:b --events e --status-json - --no-table");
  EXPECT_EQ(reports.outputs, (std::vector<std::string>{"0:a", "1:b"}));
  EXPECT_EQ(reports.events, "e");
  EXPECT_EQ(reports.statusFile, "-");
  EXPECT_TRUE(reports.noTable);
}

}  // namespace
}  // namespace chassis
