// What the module makes of a chassis over time.
#include <regex>

#include "Run.h"

namespace e2e {
namespace {

const std::string demo = "samples/demo";

const std::string twoCams =
    "cardInsert 0, \"build/samples/headend.ts\"\n"
    "progAssign 0, 101, 1\nprogAssign 0, 102, 1\nprogAssign 0, 103, 2\nprogAssign 0, 104, 2\n"
    "camInsert 0, 0, 0x0500\ncamInsert 0, 1, 0x0500\n";

std::string onlyFrom(const std::string &text, const std::string &stamp) {
  const std::size_t at = text.find("\n" + stamp);
  return at == std::string::npos ? "" : text.substr(at + 1);
}

// Two streams of each of the four programs.
std::vector<TableRow> eightRows(const Result &result) {
  std::vector<TableRow> rows = tableRows(result.out);
  EXPECT_EQ(rows.size(), 8U) << result.out;
  return rows;
}

using Behaviour = Run;

TEST_F(Behaviour, DemoEndsWithEveryStateAndItsEvidence) {
  const Result result = run("--speed max --script " + demo);
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const struct {
    const char *program, *pid, *cam, *state, *cause, *reply, *seen;
  } expected[] = {
      {"101", "0x1001", "0", "descrambled", "", "", "clear, PES readable"},
      {"101", "0x1002", "0", "descrambled", "", "", "clear, PES readable"},
      {"102", "0x1011", "0", "not descrambled", "no entitlement (0x20)", "0x71", "scrambled"},
      {"102", "0x1012", "0", "not descrambled", "no entitlement (0x20)", "0x71", "scrambled"},
      {"103", "0x1021", "1", "not descrambled", "ECMs missing (0x30)", "", "scrambled"},
      {"103", "0x1022", "1", "not descrambled", "ECMs missing (0x30)", "", "scrambled"},
      {"104", "0x1031", "1", "not descrambled", "ECMs damaged (0x40)", "", "scrambled"},
      {"104", "0x1032", "1", "not descrambled", "ECMs damaged (0x40)", "", "scrambled"},
  };
  const std::vector<TableRow> rows = tableRows(result.out);
  ASSERT_EQ(rows.size(), std::size(expected)) << result.out;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].program, expected[i].program);
    EXPECT_EQ(rows[i].name, std::string("Laboratory ") + expected[i].program[2]);
    EXPECT_EQ(rows[i].pid, expected[i].pid);
    EXPECT_EQ(rows[i].cam, expected[i].cam);
    EXPECT_EQ(rows[i].state, expected[i].state) << rows[i].pid;
    EXPECT_EQ(rows[i].cause, expected[i].cause) << rows[i].pid;
    EXPECT_EQ(rows[i].reply, expected[i].reply) << rows[i].pid;
    EXPECT_EQ(rows[i].seen, expected[i].seen) << rows[i].pid;
    EXPECT_EQ(rows[i].ecms.find("absent") != std::string::npos, rows[i].program == "103");
    const bool ecmErrors = std::regex_search(rows[i].ecms, std::regex("present/[1-9]"));
    EXPECT_EQ(ecmErrors, rows[i].program == "104") << rows[i].ecms;
    EXPECT_TRUE(std::regex_match(rows[i].before, std::regex("[1-9][0-9]*/0"))) << rows[i].before;
    EXPECT_EQ(rows[i].behind, rows[i].before) << rows[i].pid;
  }
  EXPECT_EQ(linesWith(result.out, "1 reset, the last ").size(), 1U) << result.out;
  EXPECT_EQ(linesWith(result.out, "CAM 1: last CA PMT or query ").size(), 1U) << result.out;
}

TEST_F(Behaviour, DemoTellsItsStoryInOrder) {
  const Result result = run("--speed max --script " + demo);
  const char *story[] = {
      "program 101",  // comes up
      "programs 101 \"Laboratory 1\", 102 \"Laboratory 2\" descrambled",
      "camEntitle 0, 0, 102, 0",
      "program 102 \"Laboratory 2\" not descrambled, cause: the CAM is suspected",
      "query sent: program 102 \"Laboratory 2\"",
      "program 102 \"Laboratory 2\" not descrambled, cause: no entitlement",
      "slot 0  CAM 0  ALARM raised: descrambling failure",
      "program 103 \"Laboratory 3\" not descrambled, cause: ECMs missing",
      "slot 0  CAM 1  ALARM raised: descrambling failure",
      "program 104 \"Laboratory 4\" not descrambled, cause: ECMs damaged",
      "CAM goes deaf",
      "program 101 \"Laboratory 1\" not descrambled, cause: the CAM is suspected",
      "all programs error, first reset!",
      "RESET of the CAM",
      "program 101 \"Laboratory 1\" descrambled",
      "program 102 \"Laboratory 2\" not descrambled, cause: no entitlement",
      "slot 0 at ",
      "standing alarms:",
      "alarm 0, since 00:00:33.000: slot 0, CAM 0: descrambling failure [",
      "alarm 1, since 00:00:55.000: slot 0, CAM 1: descrambling failure [",
  };
  std::size_t at = 0;
  for (const char *step : story) {
    at = result.out.find(step, at);
    ASSERT_NE(at, std::string::npos) << step << "\n" << result.out;
  }
  const std::size_t lines = linesOf(result.out.substr(0, result.out.find("\nslot 0 at "))).size();
  EXPECT_GE(lines, 30u);
  EXPECT_LE(lines, 85u) << result.out;
}

TEST_F(Behaviour, RunsAreDeterministic) {
  const std::string arguments = "--debug --speed max --script " + demo;
  const Result first = run(arguments);
  const Result second = run(arguments);
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out, second.out);
}

TEST_F(Behaviour, SpeedKeepsThePaceAndChangesNothingElse) {
  write("script", twoCams + "wait 10");
  const Result paced = run("--script script --speed 5");
  const Result fast = run("--script script --speed max");
  EXPECT_EQ(paced.out, fast.out);
  EXPECT_GE(paced.seconds, 2.0);
}

TEST_F(Behaviour, GarbageOfACamStaysItsOwnAffair) {
  const std::string quiet = twoCams + "wait 20\nwait 25";
  const std::string noisy =
      twoCams + "wait 20\ncamGarbage 0, 0, 1\ncamEntitle 0, 0, 102, 0\nwait 25";
  const Result good = runScript(quiet);
  const Result bad = runScript(noisy);
  ASSERT_EQ(bad.status, 0) << bad.err;
  EXPECT_EQ(linesWith(good.out, "CAM 1"), linesWith(bad.out, "CAM 1"));
  EXPECT_NE(linesWith(good.out, "CAM 0"), linesWith(bad.out, "CAM 0"));
  const std::vector<TableRow> expected = tableRows(good.out);
  const std::vector<TableRow> rows = tableRows(bad.out);
  ASSERT_EQ(rows.size(), expected.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i].state, rows[i].program == "102" ? "not descrambled" : "descrambled");
    EXPECT_EQ(rows[i].before, expected[i].before);
    EXPECT_EQ(rows[i].behind, expected[i].behind);
  }
}

TEST_F(Behaviour, GarbageFromTheStartKeepsOnlyThatCamOut) {
  const Result result = runScript(twoCams + "camGarbage 0, 0, 1\nwait 60");
  ASSERT_EQ(result.status, 0) << result.err;
  for (const TableRow &row : eightRows(result)) {
    EXPECT_EQ(row.state, row.cam == "1" ? "descrambled" : "not measured") << row.pid;
  }
}

TEST_F(Behaviour, WrongKeyIsNotTakenForAWorkingCam) {
  const Result result = runScript(twoCams + "wait 15\ncamWrongKey 0, 0, 1\nwait 10");
  for (const TableRow &row : eightRows(result)) {
    if (row.pid == "0x1001" || row.pid == "0x1011") {
      EXPECT_EQ(row.state, "not descrambled") << row.pid;
      EXPECT_EQ(row.seen, "clear, PES not readable") << row.pid;
    }
    if (row.cam == "1") {
      EXPECT_EQ(row.state, "descrambled") << row.pid;
    }
  }
}

// The module prints raw stamps; everything else tells chassis time.
TEST_F(Behaviour, WrapOfTheClockChangesNothing) {
  const std::string arguments = "--speed max --script " + demo + " --clock-start ";
  const std::regex stamp("time [0-9]+");
  const Result plain = run(arguments + "100000");
  const Result wrapped = run(arguments + std::to_string(4294967296u - 100000));
  ASSERT_EQ(plain.status, 0) << plain.err;
  EXPECT_NE(plain.out, wrapped.out);
  EXPECT_EQ(std::regex_replace(plain.out, stamp, "time T"),
            std::regex_replace(wrapped.out, stamp, "time T"));
}

TEST_F(Behaviour, ForEndsARunWhereverTheScriptStands) {
  const std::string script = twoCams + "wait 9.5\nnote \"early\"\nwait 1\nnote \"late\"\nwait 100";
  const Result result = runScript(script, "--for 10");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("00:00:09.500  chassis        early\n"), std::string::npos);
  EXPECT_EQ(result.out.find("late"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("slot 0 at 00:00:10.000"), std::string::npos) << result.out;
  EXPECT_EQ(tableRows(result.out).size(), 8u);
  const Result bare = runScript(script, "--for 10 --no-table");
  EXPECT_EQ(result.out.find(bare.out), 0u);
  EXPECT_TRUE(tableRows(bare.out).empty());
}

TEST_F(Behaviour, RunsToTheEndOfTheScriptByItself) {
  const Result result = runScript(twoCams + "wait 9.5\nnote \"last\"");
  EXPECT_NE(result.out.find("00:00:09.500  chassis        last\n"), std::string::npos);
  EXPECT_NE(result.out.find("slot 0 at 00:00:09.500"), std::string::npos) << result.out;
}

TEST_F(Behaviour, DebugAddsOnlyTheFirmwaresPrints) {
  const std::string script = twoCams + "wait 20";
  const Result plain = runScript(script);
  const Result debug = runScript(script, "--debug");
  EXPECT_TRUE(linesWith(plain.out, "module debug").empty());
  EXPECT_EQ(linesWithout(debug.out, "module debug"), linesOf(plain.out));
  EXPECT_FALSE(linesWith(debug.out, "module debug   card 1 program 0x65,streamType").empty());
}

TEST_F(Behaviour, CardFaultsReachTheTimeline) {
  const struct {
    const char *fault, *clear, *seen;
  } cases[] = {
      {"ciSync 0, 0", "ciSync 0, 1", "CI controller out of sync or rate too low"},
      {"rateLow 0, 1", "rateLow 0, 0", "CI controller out of sync or rate too low"},
      {"cardReady 0, 0", "cardReady 0, 1", "not checked any more"},
      {"cardBusy 0, 1", "cardBusy 0, 0", "not checked any more"},
      {"cardOnline 0, 0", "cardOnline 0, 1", "not checked any more"},
      {"fpgaError 0, 1", "fpgaError 0, 0", "not measured"},
  };
  for (const auto &c : cases) {
    const Result result =
        runScript(twoCams + "wait 15\n" + c.fault + "\nwait 3\n" + c.clear + "\nwait 5");
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string after = onlyFrom(result.out, "00:00:15.");
    EXPECT_NE(after.find(c.seen), std::string::npos) << c.fault << "\n" << result.out;
    for (const TableRow &row : eightRows(result)) {
      EXPECT_EQ(row.state, "descrambled") << c.fault << " " << row.pid;
    }
  }
}

TEST_F(Behaviour, ClockFaultResetsBothCams) {
  const Result result = runScript(twoCams + "wait 15\npllLock 0, 0\nwait 40");
  EXPECT_EQ(linesWith(result.out, "RESET of the CAM").size(), 2u) << result.out;
}

TEST_F(Behaviour, CamAndCardThatAreTakenOutAndPutBackComeUpAgain) {
  const Result result = runScript(
      twoCams +
      "wait 15\ncamRemove 0, 0\nwait 5\ncamInsert 0, 0, 0x0500\nwait 15\ncardRemove 0\nwait 5\n" +
      twoCams + "wait 15");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(linesWith(result.out, "CAM 0  no CAM").empty()) << result.out;
  EXPECT_EQ(linesWith(result.out, "CAM 0: last CA PMT").size(), 1U) << result.out;
  for (const TableRow &row : eightRows(result)) {
    EXPECT_EQ(row.state, "descrambled") << row.pid;
  }
}

// A healthy CAM is never shown as failing, not even while it begins.
TEST_F(Behaviour, NothingFailsWhileACamBegins) {
  const Result result = runScript(twoCams + "wait 15");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(linesWith(result.out, "not descrambled yet").empty()) << result.out;
  EXPECT_TRUE(linesWith(result.out, "suspected").empty()) << result.out;
}

TEST_F(Behaviour, AClearProgramOnACamIsCalledClear) {
  const Result result = runScript("cardInsert 0, \"" + samples +
                                  "/headend-clear.ts\"\nprogAssign 0, 101, 1\n"
                                  "camInsert 0, 0, 0x0500\nwait 10");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(linesWith(result.out, "ALARM raised: CA system mismatch").empty()) << result.out;
  EXPECT_FALSE(
      linesWith(result.out, "CAM usable, has only clear programs, without CA descriptors").empty())
      << result.out;
  EXPECT_EQ(linesWith(result.out, "supports no CA system").size(), 0u) << result.out;
  EXPECT_EQ(tableRows(result.out)[0].cause, "clear, no CA descriptors (0xEE)") << result.out;
}

TEST_F(Behaviour, AWrongKeyIsNotCalledDescrambling) {
  const Result result =
      runScript(twoCams + "wait 15\ncamWrongKey 0, 0, 1\nwait 60\ncamWrongKey 0, 0, 0\nwait 5");
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string wrong = result.out.substr(
      result.out.find("camWrongKey 0, 0, 1"),
      result.out.find("camWrongKey 0, 0, 0") - result.out.find("camWrongKey 0, 0, 1"));
  EXPECT_FALSE(linesWith(wrong, "works with wrong keys on program 101").empty()) << wrong;
  EXPECT_FALSE(linesWith(wrong, "RESET of the CAM").empty()) << wrong;
  EXPECT_TRUE(linesWith(wrong, "CAM 0  descrambles").empty()) << wrong;
}

TEST_F(Behaviour, CamOfAnotherCaSystemIsNeverSentAnything) {
  const Result result = runScript(
      "cardInsert 0, \"build/samples/headend.ts\"\nprogAssign 0, 101, 1\n"
      "camInsert 0, 0, 0x0B00\nwait 15");
  EXPECT_NE(result.out.find("supports no CA system of its programs"), std::string::npos);
  EXPECT_EQ(result.out.find("CA PMT sent"), std::string::npos);
}

}  // namespace
}  // namespace e2e
