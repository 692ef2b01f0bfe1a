#include "status/Changes.h"

#include <gtest/gtest.h>

#include "chassis/SampleFindings.h"
#include "status/EventWords.h"

namespace chassis {
namespace {

// "slot/cam what | why"
std::vector<std::string> told(const CardFinding &before, const CardFinding &now) {
  std::vector<std::string> lines;
  for (const Event &change : changesBetween(before, now)) {
    lines.push_back(std::to_string(change.place.slot) + "/" + std::to_string(change.place.cam) +
                    " " + wordsOf(change).what + " | " + wordsOf(change).why);
  }
  return lines;
}

using Lines = std::vector<std::string>;

TEST(Changes, SameFindingTellsNothing) {
  EXPECT_EQ(told(sampleCard(), sampleCard()), Lines{});
  EXPECT_EQ(told(CardFinding{}, CardFinding{}), Lines{});
}

TEST(Changes, CountsThatMoveTellNothing) {
  CardFinding now = sampleCard(DESC_STAT_ECM_CC, DESC_STAT_NO_ECM);
  const CardFinding before = now;
  now.takenMs += 1000;
  now.programs[0].pids[0].ecms[0].evidence.ccErrors = 7;
  EXPECT_EQ(told(before, now), Lines{});
}

TEST(Changes, FirstCheckTellsFieldsAndGroupsPrograms) {
  EXPECT_EQ(told(CardFinding{}, sampleCard()),
            (Lines{"0/-1 CI controller in sync and carrying traffic | cimaxStat 0x00",
                   "0/0 CAM usable, CA system supported, CA PIDs present, all PIDs descrambled | "
                   "camInsert 0x01, casidStat 0x01, preCamPidStat 0x00, descStat 0x00",
                   "0/0 programs 101, 102 descrambled | clear behind the CAM"}));
}

TEST(Changes, NamesStandBesideTheNumbers) {
  CardFinding now = sampleCard();
  now.programs[0].service.name = "One";
  EXPECT_EQ(told(CardFinding{}, now)[2],
            "0/0 programs 101 \"One\", 102 descrambled | clear behind the CAM");
  const std::vector<Event> changes = changesBetween(CardFinding{}, now);
  EXPECT_EQ(std::get<event::ProgramState>(changes[2].facts).programs.names(),
            (std::vector<std::string>{"One", ""}));
}

TEST(Changes, ANewNameTellsNothing) {
  CardFinding now = sampleCard();
  now.programs[0].service.name = "One";
  EXPECT_EQ(told(sampleCard(), now), Lines{});
}

TEST(Changes, EveryCauseComesWithItsEvidence) {
  const struct {
    std::uint8_t status;
    const char *line;
  } cases[] = {
      {DESC_STAT_SCRAMBLED,
       "0/0 program 102 not descrambled, cause: the CAM is suspected | "
       "ECM PID 0x1001 present, 0 continuity errors"},
      {DESC_STAT_NO_ENTITLEMENT,
       "0/0 program 102 not descrambled, cause: no entitlement | "
       "CAM replied 0x71; ECM PID 0x1001 present, 0 continuity errors"},
      {DESC_STAT_TECHNICAL,
       "0/0 program 102 not descrambled, cause: technical refusal | "
       "CAM replied 0x73; ECM PID 0x1001 present, 0 continuity errors"},
      {DESC_STAT_NO_ECM,
       "0/0 program 102 not descrambled, cause: ECMs missing | ECM PID 0x1001 absent for 4.0 s"},
      {DESC_STAT_ECM_CC,
       "0/0 program 102 not descrambled, cause: ECMs damaged | "
       "ECM PID 0x1001 present, 1 continuity error"},
      {DESC_STAT_UNKNOWN, "0/0 program 102 not measured | "},
  };
  for (const auto &c : cases) {
    CardFinding now = sampleCard(DESC_STAT_OK, c.status);
    PidFinding &pid = now.programs[1].pids[0];
    if (c.status == DESC_STAT_NO_ENTITLEMENT) {
      pid.reply = 0x71;
    }
    if (c.status == DESC_STAT_TECHNICAL) {
      pid.reply = 0x73;
    }
    if (c.status == DESC_STAT_NO_ECM) {
      pid.ecms[0] = {0x1001, false, {50, 0, 0, false, false, 6000}};
    }
    if (c.status == DESC_STAT_ECM_CC) {
      pid.ecms[0].evidence.ccErrors = 1;
    }
    EXPECT_EQ(told(sampleCard(), now), Lines{c.line});
  }
}

TEST(Changes, NamesThePidWhenNotAllAreAlike) {
  CardFinding now = sampleCard();
  now.programs[0].status = DESC_STAT_NO_ECM;
  now.programs[0].pids[1].status = DESC_STAT_NO_ECM;
  now.programs[0].pids[1].ecms[0] = {0x1002, false, {}};
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 program 101 PID 0x0112 not descrambled, cause: ECMs missing | "
                  "ECM PID 0x1002 never seen"});
}

TEST(Changes, ProgramWithoutCamTellsNothing) {
  CardFinding now = sampleCard();
  now.programs[1].camMask = 0;
  now.programs[1].status = DESC_STAT_UNKNOWN;
  EXPECT_EQ(told(sampleCard(), now), Lines{});
}

TEST(Changes, ProgramsOfDifferentCamsStandApart) {
  CardFinding before = sampleCard(DESC_STAT_UNKNOWN, DESC_STAT_UNKNOWN);
  CardFinding now = sampleCard();
  before.programs[1].camMask = now.programs[1].camMask = 2;
  EXPECT_EQ(told(before, now), (Lines{"0/0 program 101 descrambled | clear behind the CAM",
                                      "0/1 program 102 descrambled | clear behind the CAM"}));
  before.programs[1].camMask = now.programs[1].camMask = 3;
  EXPECT_EQ(told(before, now)[1], "0/-1 program 102 descrambled | clear behind the CAM");
}

TEST(Changes, FieldsThatLapseShareAWord) {
  CardFinding now = sampleCard();
  now.cams[0] = {2, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 CAM starting up, the rest not checked | camInsert 0x02, casidStat 0xFF, "
                  "preCamPidStat 0xFF, descStat 0xFF"});
  now.cams[0] = {};
  EXPECT_EQ(told(sampleCard(), now)[0].substr(0, 25), "0/0 not checked any more ");
}

TEST(Changes, ProgramsThatShareAStateShareALineWithTheEvidenceOfEach) {
  CardFinding now = sampleCard(DESC_STAT_SCRAMBLED, DESC_STAT_SCRAMBLED);
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 programs 101, 102 not descrambled, cause: the CAM is suspected | "
                  "ECM PID 0x1001 present, 0 continuity errors"});
  now.programs[1].pids[0].ecms[0].pid = 0x1002;
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 programs 101, 102 not descrambled, cause: the CAM is suspected | "
                  "ECM PID 0x1001 present, 0 continuity errors; "
                  "ECM PID 0x1002 present, 0 continuity errors"});
}

TEST(Changes, CamsThatAreNotCheckedSpeakForTheirPrograms) {
  CardFinding now = sampleCard(DESC_STAT_UNKNOWN, DESC_STAT_UNKNOWN);
  now.cams[0].descrambling = 0xFF;
  EXPECT_EQ(told(sampleCard(), now), Lines{"0/0 not checked any more | descStat 0xFF"});
  CardFinding before = sampleCard();
  before.programs[1].camMask = now.programs[1].camMask = 3;
  now.cams[1].descrambling = 0x20;
  EXPECT_EQ(told(before, now).back().substr(0, 29), "0/-1 program 102 not measured");
}

TEST(Changes, OnlyAProgramsOwnCamsSpeakForIt) {
  CardFinding before = sampleCard();
  before.programs[1].camMask = 2;
  before.cams[1] = {1, 1, 0, 0};
  CardFinding now = before;
  now.programs[1].status = DESC_STAT_UNKNOWN;
  now.cams[1].descrambling = 0xFF;
  EXPECT_EQ(told(before, now), Lines{"0/1 not checked any more | descStat 0xFF"});
}

TEST(Changes, AControllerThatFailsAndComesBackIsToldBothTimes) {
  CardFinding good = sampleCard();
  CardFinding bad = good;
  bad.controller = 1;
  EXPECT_EQ(told(good, bad),
            Lines{"0/-1 CI controller out of sync or rate too low | cimaxStat 0x01"});
  EXPECT_EQ(told(bad, good),
            Lines{"0/-1 CI controller in sync and carrying traffic | cimaxStat 0x00"});
}

TEST(Changes, StartUpOfACamIsToldByTheLibraryAlone) {
  CardFinding before = sampleCard();
  CardFinding now = sampleCard();
  before.cams[0] = {0, 0xFF, 0xFF, 0xFF};
  now.cams[0] = {2, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(told(before, now), Lines{});
}

TEST(Changes, SummaryThatChangesAloneIsToldWithItsPrograms) {
  CardFinding now = sampleCard(DESC_STAT_OK, DESC_STAT_SCRAMBLED);
  now.cams[0].descrambling = 0x11;
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 program 102 not descrambled, cause: the CAM is suspected | "
                  "ECM PID 0x1001 present, 0 continuity errors; some PIDs not descrambled, "
                  "CAM suspected (descStat 0x11)"});
  now.cams[0].caPids = 1;
  EXPECT_EQ(told(sampleCard(), now)[0],
            "0/0 no CA PID before the CAM, some PIDs not descrambled, CAM suspected | "
            "preCamPidStat 0x01, descStat 0x11");
}

TEST(Changes, FieldWords) {
  const struct {
    CamFinding cam;
    const char *line;
  } cases[] = {
      {{0, 1, 0, 0}, "0/0 no CAM | camInsert 0x00"},
      {{7, 1, 0, 0}, "0/0 in a state without a name | camInsert 0x07"},
      {{1, 0, 0, 0}, "0/0 supports no CA system of its programs | casidStat 0x00"},
      {{1, 1, 1, 0}, "0/0 no CA PID before the CAM | preCamPidStat 0x01"},
      {{1, 1, 0, 0x10}, "0/0 some PIDs not descrambled | descStat 0x10"},
      {{1, 1, 0, 0x11}, "0/0 some PIDs not descrambled, CAM suspected | descStat 0x11"},
      {{1, 1, 0, 0x20}, "0/0 no PID descrambled | descStat 0x20"},
      {{1, 1, 0, 0x21}, "0/0 no PID descrambled, CAM suspected | descStat 0x21"},
  };
  for (const auto &c : cases) {
    CardFinding now = sampleCard();
    now.cams[0] = c.cam;
    EXPECT_EQ(told(sampleCard(), now), Lines{c.line});
  }
  CardFinding now = sampleCard();
  now.controller = 1;
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/-1 CI controller out of sync or rate too low | cimaxStat 0x01"});
}

TEST(Changes, ACamsLineHasTheToneOfTheWordThatIsNotPlain) {
  const auto toneOf = [](const CamFinding &cam) {
    CardFinding now;
    now.cams[0] = cam;
    return wordsOf(changesBetween(CardFinding{}, now).at(0)).tone;
  };
  EXPECT_EQ(toneOf({1, 1, 0, 0xFF}), Tone::Plain);
  EXPECT_EQ(toneOf({0, 0xFF, 0, 0xFF}), Tone::Bad);
  EXPECT_EQ(toneOf({1, 0, 0, 0xFF}), Tone::Bad);
  EXPECT_EQ(toneOf({1, 1, 1, 0xFF}), Tone::Bad);
  EXPECT_EQ(toneOf({1, 1, 0, DESC_SUM_OK}), Tone::Good);
}

TEST(Changes, ACamThatMayStillBeginIsNotToldAsFailing) {
  CardFinding now = sampleCard(DESC_STAT_SCRAMBLED, DESC_STAT_SCRAMBLED);
  now.cams[0].descrambling = 0x21;
  now.cams[0].caPmtAgeMs = now.programs[0].caPmtAgeMs = now.programs[1].caPmtAgeMs = 0;
  const CardFinding before = sampleCard(DESC_STAT_UNKNOWN, DESC_STAT_UNKNOWN);
  const std::vector<Event> changes = changesBetween(before, now);
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(wordsOf(changes[0]).what, "programs 101, 102 not descrambled yet");
  EXPECT_EQ(wordsOf(changes[0]).why,
            "CA PMT sent 0.0 s ago; ECM PID 0x1001 present, 0 continuity errors; "
            "no PID descrambled yet (descStat 0x21)");
  EXPECT_EQ(wordsOf(changes[0]).tone, Tone::Plain);
  now.programs[1].pids[0].ecms[0].pid = 0x1002;
  EXPECT_EQ(wordsOf(changesBetween(before, now)[0]).why,
            "CA PMT sent 0.0 s ago; ECM PID 0x1001 present, 0 continuity errors; "
            "ECM PID 0x1002 present, 0 continuity errors; no PID descrambled yet (descStat 0x21)");
}

TEST(Changes, ACamThatHasNotBegunInTimeFails) {
  CardFinding before = sampleCard(DESC_STAT_OK, DESC_STAT_SCRAMBLED);
  before.cams[0].descrambling = 0x11;
  before.cams[0].caPmtAgeMs = before.programs[1].caPmtAgeMs = 1000;
  CardFinding now = before;
  now.cams[0].caPmtAgeMs = now.programs[1].caPmtAgeMs = 1990;
  EXPECT_EQ(told(before, now), Lines{});
  now.cams[0].caPmtAgeMs = now.programs[1].caPmtAgeMs = 2000;
  EXPECT_EQ(told(before, now),
            Lines{"0/0 program 102 not descrambled, cause: the CAM is suspected | "
                  "ECM PID 0x1001 present, 0 continuity errors; "
                  "some PIDs not descrambled, CAM suspected (descStat 0x11)"});
  EXPECT_EQ(wordsOf(changesBetween(before, now)[0]).tone, Tone::Bad);
}

TEST(Changes, ACauseIsToldAtOnceAlsoAfterACaPmt) {
  CardFinding now = sampleCard(DESC_STAT_OK, DESC_STAT_NO_ECM);
  now.cams[0].caPmtAgeMs = now.programs[1].caPmtAgeMs = 0;
  EXPECT_EQ(wordsOf(changesBetween(sampleCard(), now)[0]).what,
            "program 102 not descrambled, cause: ECMs missing");
}

TEST(Changes, AFirstCheckInTimeHasTheWholeCamPlain) {
  CardFinding now = sampleCard(DESC_STAT_SCRAMBLED, DESC_STAT_SCRAMBLED);
  now.cams[0].descrambling = 0x21;
  now.cams[0].caPmtAgeMs = now.programs[0].caPmtAgeMs = now.programs[1].caPmtAgeMs = 0;
  const std::vector<Event> changes = changesBetween(CardFinding{}, now);
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(wordsOf(changes[1]).what,
            "CAM usable, CA system supported, CA PIDs present, no PID descrambled yet");
  for (const Event &change : changes) {
    EXPECT_EQ(wordsOf(change).tone, Tone::Plain) << wordsOf(change).what;
  }
}

TEST(Changes, AMismatchOfClearProgramsSaysSo) {
  CardFinding now = sampleCard(DESC_STAT_UNKNOWN, DESC_STAT_UNKNOWN);
  now.cams[0] = {1, 0, 0xFF, 0xFF};
  now.cams[0].programs = 2;
  now.cams[0].clearPrograms = 1;
  const CardFinding before = sampleCard(DESC_STAT_UNKNOWN, DESC_STAT_UNKNOWN);
  EXPECT_EQ(told(before, now)[0].rfind("0/0 supports no CA system of its programs, ", 0), 0u);
  now.cams[0].clearPrograms = 2;
  EXPECT_EQ(told(before, now)[0].rfind("0/0 has only clear programs, without CA descriptors, ", 0),
            0u)
      << told(before, now)[0];
}

TEST(Changes, AProgramWithoutPacketsIsNotDescrambled) {
  CardFinding now = sampleCard();
  for (PidFinding &pid : now.programs[1].pids) {
    pid.behind = {};
  }
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 program 102 without packets | counted as descrambled"});
  now.programs[1].pids[0].behind.packets = 1;
  EXPECT_EQ(told(sampleCard(), now), Lines{});
}

TEST(Changes, AReplyFromBeforeTheLastCaPmtIsCalledSo) {
  CardFinding now = sampleCard(DESC_STAT_OK, DESC_STAT_NO_ENTITLEMENT);
  now.programs[1].pids[0].reply = 0x71;
  now.programs[1].pids[0].replyOld = true;
  EXPECT_EQ(told(sampleCard(), now),
            Lines{"0/0 program 102 not descrambled, cause: no entitlement | CAM replied 0x71 "
                  "before the last CA PMT; ECM PID 0x1001 present, 0 continuity errors"});
}

}  // namespace
}  // namespace chassis
