// A receiver of somebody else's, judged by what went into it and what came out of it.
#include <csignal>
#include <fstream>

#include "Run.h"

namespace e2e {
namespace {

const std::string scrambled = headend;
const std::string clear = samples + "/headend-clear.ts";
const std::string figuresOfFour =
    " | descrambled=4;;;0;4 judged=4 missing=0 continuity_errors_before=0c "
    "continuity_errors_behind=0c network_lost=0c kernel_lost=0c dropped=0c\n";

class Probe : public Run {
 protected:
  Result check(const std::string &arguments) const { return run("probe --check " + arguments); }
  // What stands before the figures.
  static std::string words(const Result &result) {
    return result.out.substr(0, result.out.find_first_of("|\n"));
  }
  // The sample, so often in a row.
  void writeLong(const std::string &name, int times) const {
    const Bytes once = readFile(std::string(E2E_BUILD) + "/samples/headend.ts");
    Bytes all;
    for (int i = 0; i < times; ++i) {
      all.insert(all.end(), once.begin(), once.end());
    }
    write(name, all);
  }
};

TEST_F(Probe, AGoodReceiverIsOk) {
  const Result result = check(scrambled + " " + clear);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "DESCRAMBLING OK: 4 of 4 programs descrambled" + figuresOfFour);
  EXPECT_EQ(result.err, "");
}

TEST_F(Probe, AReceiverThatLeavesProgramsScrambledIsCritical) {
  const Result result = check(scrambled + " " + scrambled);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(words(result),
            "DESCRAMBLING CRITICAL: program 101 \"Laboratory 1\" not descrambled, cause: the CAM "
            "is suspected; 0 of 4 programs descrambled ");
}

TEST_F(Probe, PeopleSeeTheTimelineAndTheTable) {
  const Result result = run("probe " + scrambled + " " + clear);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(linesWith(result.out, "the receiver is judged by CA system 0x0500").size(), 1u);
  EXPECT_EQ(linesWith(result.out, "CA PMT sent").size(), 0u) << "nothing is sent to it";
  EXPECT_EQ(linesWith(result.out, "ALARM").size(), 0u);
  const std::vector<TableRow> rows = tableRows(result.out);
  ASSERT_EQ(rows.size(), 8u);
  for (const TableRow &row : rows) {
    EXPECT_EQ(row.state, "descrambled");
    EXPECT_EQ(row.seen, "clear, PES readable");
  }
}

TEST_F(Probe, OnlyTheProgramsThatAreAskedForAreJudged) {
  const Result result = check(scrambled + " " + scrambled + " --program 103 --program 104");
  EXPECT_EQ(words(result),
            "DESCRAMBLING CRITICAL: program 103 \"Laboratory 3\" not descrambled, cause: the CAM "
            "is suspected; 0 of 2 programs descrambled ");
}

TEST_F(Probe, AProgramThatDoesNotComeOutIsMissing) {
  const Result result = check(scrambled + " " + clear + " --map 102=999");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(words(result),
            "DESCRAMBLING CRITICAL: program 102 \"Laboratory 2\" missing behind, goes in, but "
            "does not come out; 3 of 4 programs descrambled ");
}

TEST_F(Probe, WithoutAnythingScrambledNothingCanBeJudged) {
  const Result result = check(clear + " " + clear);
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(words(result), "DESCRAMBLING UNKNOWN: no program that goes in has CA descriptors ");
}

TEST_F(Probe, ACaSystemThatNoProgramHasIsTold) {
  const Result result = run("probe " + scrambled + " " + clear + " --casid 0x0B00");
  EXPECT_EQ(linesWith(result.out, "no program carries CA system 0x0B00").size(), 1u);
  EXPECT_EQ(linesWith(result.out, "ALARM raised: CA system mismatch").size(), 1u);
}

TEST_F(Probe, WhatIsWrongWithTheCallIsOneLineOfACheck) {
  struct Case {
    const char *arguments;
    const char *words;
  };
  for (const Case &each : {
           Case{"in.ts", "BEHIND is required"},
           Case{"nowhere.ts build/samples/headend.ts",
                "'nowhere.ts' cannot be opened: No such file or directory"},
           Case{"in.ts in.ts --program 0",
                "--program 0 does not fit; write 1 to 65535, or 0x0001 to 0xFFFF"},
           Case{"in.ts in.ts --casid x",
                "--casid x does not fit; write 1 to 65535, or 0x0001 to 0xFFFF"},
           Case{"in.ts in.ts --map 1",
                "--map 1 does not fit; write BEFORE=BEHIND, two program numbers such as 101=1"},
           Case{"in.ts in.ts --map 1=2 --map 1=3",
                "--map gives program 1 two numbers behind; leave one out"},
           Case{"in.ts in.ts --for soon", "--for soon does not fit; write 0 to 1000000 seconds"},
           Case{"in.ts in.ts --events -",
                "--check writes standard output; give a file in place of -"},
       }) {
    const Result result = check(each.arguments);
    EXPECT_EQ(result.status, 3) << each.arguments;
    EXPECT_EQ(result.out, std::string("DESCRAMBLING UNKNOWN: ") + each.words + "\n");
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(Probe, WithoutACheckTheSameIsBadInput) {
  const Result result = run("probe nowhere.ts " + clear);
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "ci-chassis: 'nowhere.ts' cannot be opened: No such file or directory\n");
  EXPECT_EQ(run("probe " + scrambled).status, 2);
}

TEST_F(Probe, AnInputThatStaysSilentCannotBeJudged) {
  const Result result = command("mkfifo in out && " + program + " probe --check in out --for 4");
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.out.rfind("DESCRAMBLING UNKNOWN: nothing goes into the receiver", 0), 0u)
      << result.out;
}

TEST_F(Probe, WhatTheModuleWouldResetIsToldAndRunsACommand) {
  writeLong("long.ts", 5);
  const Result result =
      run("probe long.ts long.ts --on-reset 'echo once >> resets; sleep 0.1' --debug");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(linesWith(result.out, "the CAM would be reset").size(), 1u);
  EXPECT_EQ(linesWith(result.out, "RESET of the CAM").size(), 0u);
  // It may still be starting when the run is over.
  for (int i = 0; i < 500 && command("test -s resets").status != 0; ++i) {
    command("sleep 0.02");
  }
  EXPECT_EQ(read("resets"), (Bytes{'o', 'n', 'c', 'e', '\n'}));
}

TEST_F(Probe, ACommandThatFailsIsTold) {
  writeLong("long.ts", 20);
  const Result result = run("probe long.ts long.ts --on-reset 'exit 3' --no-table");
  EXPECT_EQ(linesWith(result.out, "the command of --on-reset failed").size(), 1u) << result.out;
  EXPECT_EQ(linesWith(result.out, "exit status 3").size(), 1u);
}

TEST_F(Probe, AScriptJudgesToo) {
  const Result result = runScript(
      "probeInsert 2, \"build/samples/headend.ts\", \"" + clear +
      "\"\n"
      "expectState 2, 103, \"descrambled\", 8\nexpectState 2, 104, \"descrambled\", 8\nwait 9\n");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(tableRows(result.out).size(), 8u);
}

TEST_F(Probe, AScriptCanExpectWhatAReceiverLeavesOut) {
  const Result result = runScript("probeInsert 0, \"build/samples/headend.ts\", \"" + clear +
                                  "\"\nexpectState 0, 101, \"missing behind\", 8\nwait 9\n");
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(
      linesWith(result.err, "program 101 \"Laboratory 1\" of slot 0 is \"descrambled\"").size(), 1u)
      << result.err;
}

TEST_F(Probe, ItsSlotTakesNoCamAndIsACardsAgainLater) {
  const std::string judged = "probeInsert 0, \"build/samples/headend.ts\", \"" + clear + "\"\n";
  const Result result = runScript(judged + "camInsert 0, 0, 0x0500\n");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(
      linesWith(result.err, "slot 0 judges a receiver elsewhere, which has its own CAM").size(), 1u)
      << result.err;
  const Result later = runScript(judged +
                                 "wait 5\ncardInsert 0, \"build/samples/headend.ts\"\n"
                                 "progAssign 0, *, 1\nwait 8\n");
  EXPECT_EQ(later.status, 0) << later.err;
  EXPECT_EQ(linesWith(later.out, "only observed").size(), 0u);
  for (const TableRow &row : tableRows(later.out)) {
    EXPECT_NE(row.state, "descrambled") << "there is no CAM any more";
  }
}

TEST_F(Probe, TheSameStreamTwiceIsRefused) {
  const Result result = check("udp://127.0.0.1:9 udp://127.0.0.1:9");
  EXPECT_EQ(result.out,
            "DESCRAMBLING UNKNOWN: 'udp://127.0.0.1:9' is given twice; what goes in and what comes "
            "out are two streams\n");
}

TEST_F(Probe, OptionsMayStandAnywhere) {
  EXPECT_EQ(run("probe --program 101 --map 102=7 --casid 0x0500 --check " + scrambled + " " + clear)
                .status,
            0);
}

TEST_F(Probe, AStatusForProgramsHasBothSides) {
  const Result result = run("probe " + scrambled + " " + clear + " --status-json -");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("\"behind\": {"), std::string::npos);
  EXPECT_NE(result.out.find("\"unmatched_streams\": 0"), std::string::npos);
}

TEST_F(Probe, FilesWithoutCommonTimeAreToldAndJudgedAllTheSame) {
  ASSERT_EQ(command("dd if=" + clear + " of=late.ts bs=188 skip=16000 2> /dev/null").status, 0);
  ASSERT_EQ(
      command("dd if=build/samples/headend.ts of=early.ts bs=188 count=8000 2> /dev/null").status,
      0);
  const Result result = run("probe early.ts late.ts --no-table");
  EXPECT_EQ(linesWith(result.out, "the two files have no time in common").size(), 1u)
      << result.out << result.err;
  const Result checked = check("early.ts late.ts");
  EXPECT_EQ(checked.status, 3);
  EXPECT_EQ(words(checked),
            "DESCRAMBLING UNKNOWN: 'early.ts' and 'late.ts' have no time in common, so one tells "
            "nothing of the other ");
}

}  // namespace
}  // namespace e2e
