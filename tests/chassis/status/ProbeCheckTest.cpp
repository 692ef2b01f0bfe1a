#include "status/ProbeCheck.h"

#include <gtest/gtest.h>

using namespace chassis;

namespace {

ProgramFinding program(std::uint16_t number, std::uint8_t status,
                       ProbeState probe = ProbeState::Judged) {
  ProgramFinding finding;
  finding.number = number;
  finding.status = status;
  finding.probe = probe;
  finding.camMask = 1;
  PidFinding pid;
  pid.pid = static_cast<std::uint16_t>(0x100 + number);
  pid.status = status;
  pid.before.packets = pid.before.scrambled = 100;
  pid.behind.packets = 100;
  finding.pids.push_back(pid);
  return finding;
}

CardFinding card(std::uint64_t takenMs, const std::vector<ProgramFinding> &programs) {
  CardFinding finding;
  finding.takenMs = takenMs;
  finding.programs = programs;
  finding.countersBehind = SourceCounters{};
  return finding;
}

std::string words(const CheckResult &result) {
  return result.line.substr(0, result.line.find(" | "));
}

std::string figures(const CheckResult &result) {
  return result.line.substr(result.line.find(" | ") + 3);
}

CheckResult checked(const CardFinding &finding) {
  ProbeCheck check;
  check.note(finding);
  return check.result();
}

// A fault that is older than what has just begun.
CheckResult checkedLater(CardFinding finding) {
  ProbeCheck check;
  check.note(finding);
  finding.takenMs += ProbeCheck::justBegunMs;
  check.note(finding);
  return check.result();
}

constexpr std::uint8_t ok = DESC_STAT_OK;
constexpr std::uint8_t scrambled = DESC_STAT_SCRAMBLED;

}  // namespace

TEST(ProbeCheck, AllDescrambledIsOk) {
  const CheckResult result = checked(card(9000, {program(1, ok), program(2, ok)}));
  EXPECT_EQ(result.status, checkOk);
  EXPECT_EQ(words(result), "DESCRAMBLING OK: 2 of 2 programs descrambled");
  EXPECT_EQ(figures(result),
            "descrambled=2;;;0;2 judged=2 missing=0 continuity_errors_before=0c "
            "continuity_errors_behind=0c network_lost=0c kernel_lost=0c dropped=0c");
}

TEST(ProbeCheck, TheWorstProgramIsNamedWithItsCause) {
  CardFinding finding = card(9000, {program(1, DESC_STAT_NO_ECM), program(2, ok),
                                    program(3, scrambled), program(4, DESC_STAT_ECM_CC)});
  finding.programs[2].service.name = "News | x";
  const CheckResult result = checkedLater(finding);
  EXPECT_EQ(result.status, checkCritical);
  EXPECT_EQ(words(result),
            "DESCRAMBLING CRITICAL: program 3 \"News / x\" not descrambled, cause: the CAM is "
            "suspected; 1 of 4 programs descrambled")
      << "and a bar in a name does not begin the figures";
  EXPECT_EQ(figures(result).substr(0, 26), "descrambled=1;;;0;4 judged");
}

TEST(ProbeCheck, AFaultIsAWarningForFiveSeconds) {
  ProbeCheck check;
  check.note(card(9000, {program(1, ok)}));
  check.note(card(10000, {program(1, scrambled)}));
  EXPECT_EQ(check.result().status, checkWarning);
  check.note(card(14999, {program(1, scrambled)}));
  EXPECT_EQ(check.result().status, checkWarning);
  EXPECT_EQ(words(check.result()),
            "DESCRAMBLING WARNING: program 1 not descrambled, cause: the CAM is suspected for 5.0 "
            "s; 0 of 1 program descrambled");
  check.note(card(15000, {program(1, scrambled)}));
  EXPECT_EQ(check.result().status, checkCritical);
  check.note(card(16000, {program(1, ok)}));
  EXPECT_EQ(check.result().status, checkOk);
  check.note(card(17000, {program(1, scrambled)}));
  EXPECT_EQ(check.result().status, checkWarning) << "it has begun anew";
}

TEST(ProbeCheck, WhatDoesNotComeOutIsCriticalAndCounted) {
  for (const ProbeState state : {ProbeState::MissingBehind, ProbeState::NothingBehind}) {
    const CheckResult result =
        checkedLater(card(9000, {program(1, scrambled), program(2, ok, state)}));
    EXPECT_EQ(result.status, checkCritical);
    EXPECT_EQ(words(result).rfind("DESCRAMBLING CRITICAL: program 2 missing behind, ", 0), 0U)
        << result.line;
    EXPECT_NE(figures(result).find(" missing=1 "), std::string::npos);
  }
}

TEST(ProbeCheck, LossesMakeAWarningOfAnOk) {
  struct Case {
    std::uint64_t SourceCounters::*count;
    const char *words;
  };
  for (const Case &each : {Case{&SourceCounters::networkLost, "1 datagram lost in the network"},
                           Case{&SourceCounters::kernelLost, "1 datagram lost at the socket"},
                           Case{&SourceCounters::dropped, "1 packet lost here"}}) {
    CardFinding before = card(9000, {program(1, ok)});
    before.input.counters.*each.count = 1;
    CardFinding behind = card(9000, {program(1, ok)});
    (*behind.countersBehind).*each.count = 1;
    for (const CardFinding &finding : {before, behind}) {
      const CheckResult result = checked(finding);
      EXPECT_EQ(result.status, checkWarning);
      EXPECT_EQ(
          words(result),
          std::string("DESCRAMBLING WARNING: 1 of 1 program descrambled, but with ") + each.words);
    }
  }
}

TEST(ProbeCheck, ContinuityErrorsOfJudgedProgramsMakeAWarning) {
  CardFinding finding = card(9000, {program(1, ok), program(2, ok, ProbeState::None)});
  finding.programs[1].pids[0].before.ccErrors = 7;
  EXPECT_EQ(checked(finding).status, checkOk) << "of a program that nobody asked for";
  finding.programs[0].pids[0].before.ccErrors = 1;
  finding.programs[0].pids[0].behind.ccErrors = 2;
  const CheckResult result = checked(finding);
  EXPECT_EQ(words(result),
            "DESCRAMBLING WARNING: 1 of 1 program descrambled, but with 3 continuity errors");
  EXPECT_NE(figures(result).find("continuity_errors_before=1c continuity_errors_behind=2c"),
            std::string::npos);
}

TEST(ProbeCheck, AStreamThatDoesNotComeOutIsAWarning) {
  CardFinding finding = card(9000, {program(1, ok)});
  finding.unmatchedStreams = 1;
  EXPECT_EQ(
      words(checked(finding)),
      "DESCRAMBLING WARNING: 1 of 1 program descrambled, but with 1 stream that does not come out");
}

TEST(ProbeCheck, ALostInputCannotBeJudged) {
  struct Case {
    ProbeState state;
    const char *words;
  };
  for (const Case &each : {Case{ProbeState::SilentBefore, "nothing goes into the receiver"},
                           Case{ProbeState::SilentBehind, "nothing comes out of the receiver"},
                           Case{ProbeState::SilentBoth, "nothing goes in, and nothing comes out"},
                           Case{ProbeState::Learning, "what comes out is not known yet"}}) {
    const CheckResult result =
        checkedLater(card(9000, {program(1, DESC_STAT_UNKNOWN, each.state)}));
    EXPECT_EQ(result.status, checkUnknown);
    EXPECT_NE(words(result).find(each.words), std::string::npos) << result.line;
  }
}

TEST(ProbeCheck, WhatIsNotMeasuredCannotBeJudgedButBadIsBad) {
  EXPECT_EQ(checkedLater(card(9000, {program(1, ok), program(2, DESC_STAT_UNKNOWN)})).status,
            checkUnknown);
  EXPECT_EQ(checkedLater(card(9000, {program(1, scrambled), program(2, DESC_STAT_UNKNOWN)})).status,
            checkCritical);
}

TEST(ProbeCheck, NothingScrambledIsNothingToJudge) {
  CardFinding clear = card(9000, {program(1, ok)});
  clear.programs[0].pids[0].before.scrambled = 0;
  EXPECT_EQ(checked(clear).status, checkUnknown);
  EXPECT_EQ(words(checked(clear)),
            "DESCRAMBLING UNKNOWN: nothing scrambled goes into the receiver");
  EXPECT_EQ(words(checked(card(9000, {program(1, ok, ProbeState::None)}))),
            "DESCRAMBLING UNKNOWN: no program that goes in has CA descriptors");
  CardFinding silent = card(9000, {});
  silent.input.silent = true;
  EXPECT_EQ(words(checked(silent)), "DESCRAMBLING UNKNOWN: nothing goes into the receiver");
}

TEST(ProbeCheck, FilesWithoutCommonTimeTellNothing) {
  CardFinding apart = card(9000, {program(1, ok), program(2, scrambled)});
  apart.input.name = "in.ts";
  apart.behindName = "out.ts";
  apart.unaligned = true;
  EXPECT_EQ(checkedLater(apart).status, checkUnknown);
  EXPECT_EQ(
      words(checkedLater(apart)),
      "DESCRAMBLING UNKNOWN: 'in.ts' and 'out.ts' have no time in common, so one tells nothing "
      "of the other");
  apart.unaligned = false;
  EXPECT_EQ(checkedLater(apart).status, checkCritical);
}

TEST(ProbeCheck, WithoutACheckNothingIsSaid) {
  const CheckResult result = ProbeCheck().result();
  EXPECT_EQ(result.status, checkUnknown);
  EXPECT_EQ(result.line,
            "DESCRAMBLING UNKNOWN: nothing has been judged yet; give it longer with --for");
  EXPECT_EQ(cannotCheck("'x.ts' is empty").line, "DESCRAMBLING UNKNOWN: 'x.ts' is empty");
}

TEST(ProbeCheck, AProgramThatWasAskedForButDoesNotGoInCannotBeJudged) {
  ProbeCheck check({2, 7});
  check.note(card(9000, {program(1, ok, ProbeState::None), program(2, ok)}));
  EXPECT_EQ(check.result().status, checkUnknown);
  EXPECT_EQ(
      words(check.result()),
      "DESCRAMBLING UNKNOWN: program 7 does not go in scrambled; 1 of 2 programs descrambled");
}

TEST(ProbeCheck, OfTheSameTheFirstIsNamed) {
  EXPECT_EQ(words(checkedLater(card(9000, {program(4, scrambled), program(5, scrambled)}))),
            "DESCRAMBLING CRITICAL: program 4 not descrambled, cause: the CAM is suspected; 0 of 2 "
            "programs descrambled");
}
