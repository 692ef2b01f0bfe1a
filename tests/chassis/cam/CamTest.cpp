#include "cam/Cam.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "CamRig.h"

namespace {

using namespace chassis;
using namespace testing_cam;

Bytes reply(unsigned program, Bytes enables) {
  Bytes body = {static_cast<std::uint8_t>(program >> 8), static_cast<std::uint8_t>(program), 0xCB};
  body.insert(body.end(), enables.begin(), enables.end());
  return object(0x33, body);
}

// What a query about program 101 or 103 is answered, with one value everywhere.
Bytes reply101(std::uint8_t enable) {
  return reply(101, {enable, 0xF0, 0x01, 0x7F, 0xF0, 0x02, 0x7F});
}
Bytes reply103(std::uint8_t enable) {
  return reply(103, {0x7F, 0xF0, 0x21, enable, 0xF0, 0x22, enable});
}

std::size_t stillScrambled(const std::vector<TsPacket> &packets) {
  return static_cast<std::size_t>(
      std::count_if(packets.begin(), packets.end(),
                    [](const TsPacket &packet) { return (packet[3] & 0xC0) != 0; }));
}

// The streams without their ECMs.
std::vector<TsPacket> withoutEcms(const std::vector<TsPacket> &packets) {
  std::vector<TsPacket> rest;
  for (const TsPacket &packet : packets) {
    if (((packet[1] & 0x1Fu) << 8 | packet[2]) < 0x1500) {
      rest.push_back(packet);
    }
  }
  return rest;
}

TEST(CamStartUp, IsDumbUntilItIsUp) {
  Lines lines;
  Cam cam({{0x0500}, 3000, 200, 4000}, {0, 0}, lines, 1000);
  cam.tick(3990);
  EXPECT_FALSE(cam.up());
  cam.receive({0x9F, 0x80, 0x30, 0x00});
  cam.tick(4000);
  EXPECT_TRUE(cam.up());
  cam.tick(9000);
  EXPECT_FALSE(cam.transmit());
  EXPECT_EQ(lines.all, std::vector<std::string>{});
}

TEST(CamStartUp, TakesThreeSecondsUnlessToldOtherwise) {
  Lines lines;
  Cam cam({{0x0500}}, {0, 0}, lines, 0);
  cam.tick(2999);
  EXPECT_FALSE(cam.up());
  cam.tick(3000);
  EXPECT_TRUE(cam.up());
}

TEST(CamStartUp, TellsItsPlace) {
  Rig rig;
  rig.cam.setFault(CamFault::Deaf, true);
  ASSERT_EQ(rig.lines.places.size(), 1u);
  EXPECT_EQ(rig.lines.places[0].slot, 2);
  EXPECT_EQ(rig.lines.places[0].cam, 1);
}

TEST(CamAnswers, CaInfoAfterTheAnswerTime) {
  Rig rig({0x0500, 0x0B00});
  rig.cam.receive({0x9F, 0x80, 0x30, 0x00});
  rig.pass(190);
  EXPECT_TRUE(rig.answers().empty());
  rig.pass(10);
  EXPECT_EQ(rig.answers(), std::vector<Apdu>{(Bytes{0x9F, 0x80, 0x31, 4, 5, 0, 0x0B, 0})});
  EXPECT_TRUE(rig.answers().empty());
}

TEST(CamAnswers, SeveralInOrder) {
  Rig rig;
  rig.cam.receive({0x9F, 0x80, 0x30, 0x00});
  rig.cam.receive(caPmt101(add, query));
  rig.pass(200);
  const Bytes info = {0x9F, 0x80, 0x31, 2, 5, 0};
  EXPECT_EQ(rig.answers(), (std::vector<Apdu>{info, reply101(0x81)}));
}

TEST(CamAnswers, QueryAtBothLevels) {
  Rig rig;
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0x81)});
  EXPECT_EQ(rig.ask(caPmt103(add, query)), std::vector<Apdu>{reply103(0x81)});
}

TEST(CamAnswers, NoEntitlementAndRefusal) {
  Rig rig;
  rig.cam.entitle(101, false);
  rig.cam.refuse(103, true);
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0xF1)});
  EXPECT_EQ(rig.ask(caPmt103(add, query)), std::vector<Apdu>{reply103(0xF3)});
  rig.cam.refuse(101, true);
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0xF3)});
  rig.cam.refuse(101, false);
  rig.cam.entitle(101, true);
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0x81)});
}

TEST(CamAnswers, ForeignCaSystemIsATechnicalReason) {
  Rig rig({0x0B00});
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0xF3)});
}

TEST(CamAnswers, OnlyAQueryIsAnswered) {
  Rig rig;
  for (const unsigned command : {descramble, mmi, notSelected}) {
    EXPECT_TRUE(rig.ask(caPmt101(only, command)).empty()) << command;
  }
}

TEST(CamAnswers, SelectionIsNotAnswered) {
  Rig rig;
  EXPECT_TRUE(rig.ask(caPmt101()).empty());
}

TEST(CamDescrambling, NamesStandBesideTheNumbers) {
  chassis::Cam::Config config;
  config.caSystems = {0x0500};
  config.programNames = [](std::uint16_t program) { return program == 103 ? "Three" : ""; };
  Rig rig(std::move(config));
  rig.ask(caPmt101(first));
  rig.ask(caPmt103(last));
  rig.play(labStream(bothPrograms()).scrambled, 64);
  EXPECT_EQ(rig.lines.count("descrambles program 101 (ECMs"), 1u);
  EXPECT_EQ(rig.lines.count("descrambles program 103 \"Three\" PID 0x1021 (ECMs"), 1u);
  const auto works = testing_events::lastFacts<event::CamDescrambles>(rig.lines.events);
  EXPECT_EQ(works.feed.programs.names(), std::vector<std::string>{"Three"});
  EXPECT_TRUE(works.feed.part);
  EXPECT_FALSE(works.wrongKeys);
}

TEST(CamDescrambling, BothLevelsBitForBitThroughPeriodsAndTheLoop) {
  const LabStream stream = labStream(bothPrograms());
  for (const std::size_t part : {1u, 7u, 64u, 5000u}) {
    Rig rig;
    rig.ask(caPmt101(first));
    rig.ask(caPmt103(last));
    for (int round = 0; round < 3; ++round) {
      EXPECT_EQ(rig.play(stream.scrambled, part), stream.clear) << part << " " << round;
    }
    EXPECT_EQ(rig.lines.count("stops"), 0u);
    EXPECT_EQ(rig.lines.count("descrambles program 101 "), 1u);
    EXPECT_EQ(rig.lines.count("descrambles program 103 PID 0x1021"), 1u);
    EXPECT_EQ(rig.lines.count("descrambles program 103 PID 0x1022"), 1u);
  }
}

TEST(CamDescrambling, OnlyWhatIsSelected) {
  const LabStream stream = labStream(bothPrograms());
  Rig rig;
  rig.ask(caPmt103());
  const std::vector<TsPacket> out = rig.play(stream.scrambled);
  EXPECT_EQ(onPids(out, streams103), onPids(stream.clear, streams103));
  EXPECT_EQ(onPids(out, streams101), onPids(stream.scrambled, streams101));
}

TEST(CamDescrambling, QueryStartsAndEndsNothing) {
  const LabStream stream = labStream(bothPrograms());
  Rig rig;
  rig.ask(caPmt101(only, query));
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
  rig.ask(caPmt101());
  rig.ask(caPmt103(only, query));
  rig.ask(caPmt101(only, query));
  EXPECT_EQ(onPids(rig.play(stream.scrambled), streams101), onPids(stream.clear, streams101));
}

TEST(CamDescrambling, StartsInTheMiddleOfTheStream) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  const std::vector<TsPacket> tail(stream.scrambled.begin() + 100, stream.scrambled.end());
  const std::vector<TsPacket> out = rig.play(tail);
  EXPECT_LT(stillScrambled(out), 130u);
  EXPECT_EQ(std::vector<TsPacket>(out.begin() + 130, out.end()),
            std::vector<TsPacket>(stream.clear.begin() + 230, stream.clear.end()));
}

TEST(CamDescrambling, ForeignCaSystemIsLeftAlone) {
  const LabStream stream = labStream(streams101);
  Rig rig({0x0B00});
  rig.ask(caPmt101());
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
}

TEST(CamDescrambling, StreamLevelGoesBeforeProgramLevel) {
  const LabStream stream = labStream({{0x1021, 0x1503, 103}, {0x1022, 0x1504, 103}});
  Rig rig;
  rig.ask(caPmt(only, 103, level(descramble, ca(0x0500, 0x1503)),
                {caPmtStream(0x1021, level(0, {})),
                 caPmtStream(0x1022, level(descramble, ca(0x0500, 0x1504)))}));
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamDescrambling, OtherCommandsDoNotDescramble) {
  const LabStream stream = labStream(streams101);
  for (const unsigned command : {mmi, notSelected}) {
    Rig rig;
    rig.ask(caPmt101());
    rig.ask(caPmt101(update, command));
    EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled) << command;
  }
}

TEST(CamDescrambling, AStreamThatJoinsARunningProgramIsDescrambledToo) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(
      caPmt(only, 101, level(descramble, ca(0x0500, 0x1501)), {caPmtStream(0x1001, level(0, {}))}));
  rig.play(stream.scrambled);
  rig.ask(caPmt101());
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamDescrambling, NoCommandBesideAnotherSelectsNothing) {
  Rig rig;
  rig.ask(caPmt101(only, notSelected));
  rig.ask(caPmt101(update));
  EXPECT_EQ(rig.lines.count("the program that it updates is not selected"), 1u);
}

struct Selected {
  bool p101;
  bool p103;
};
Selected selected(Rig &rig) {
  const LabStream stream = labStream(bothPrograms());
  const std::vector<TsPacket> out = rig.play(stream.scrambled);
  return {onPids(out, streams101) == onPids(stream.clear, streams101),
          onPids(out, streams103) == onPids(stream.clear, streams103)};
}

TEST(CamList, FirstTakesEffectWithLast) {
  Rig rig;
  rig.ask(caPmt101());
  rig.ask(caPmt103(first));
  EXPECT_TRUE(selected(rig).p101);
  EXPECT_FALSE(selected(rig).p103);
  rig.ask(caPmt103(last));
  EXPECT_FALSE(selected(rig).p101);
  EXPECT_TRUE(selected(rig).p103);
  EXPECT_EQ(rig.lines.count("stops descrambling program 101 (no longer selected)"), 1u);
}

TEST(CamList, AProgramThatWasNotDescrambledIsNotStopped) {
  const auto stops = [](const std::function<void(Rig &)> &cause) {
    Rig rig;
    rig.ask(caPmt101());
    cause(rig);
    rig.ask(caPmt103(only));
    return rig.lines.count("stops descrambling");
  };
  EXPECT_EQ(stops([](Rig &rig) { EXPECT_TRUE(selected(rig).p101); }), 1u);
  EXPECT_EQ(stops([](Rig &) {}), 0u);
  EXPECT_EQ(stops([](Rig &rig) { rig.cam.refuse(101, true); }), 0u);
  EXPECT_EQ(stops([](Rig &rig) { rig.pass(4100); }), 0u) << "without an ECM";
}

TEST(CamList, AnotherEcmPidInTheSameProgramIsToldAsThat) {
  Rig rig;
  rig.ask(caPmt101());
  ASSERT_TRUE(selected(rig).p101);
  rig.ask(
      caPmt(only, 101, level(descramble, ca(0x0500, 0x1777)), {caPmtStream(0x1001, level(0, {}))}));
  EXPECT_EQ(rig.lines.count("stops descrambling program 101 (selected with another ECM PID now)"),
            1u);
}

TEST(CamList, MoreBelongsBetweenFirstAndLast) {
  Rig rig;
  rig.ask(caPmt(first, 102, level(0, {}), {}));
  rig.ask(caPmt101(more));
  rig.ask(caPmt103(last));
  EXPECT_TRUE(selected(rig).p101 && selected(rig).p103);
}

TEST(CamList, MoreAndLastWithoutFirstAreIgnored) {
  Rig rig;
  rig.ask(caPmt101(more));
  rig.ask(caPmt101(last));
  EXPECT_FALSE(selected(rig).p101);
  EXPECT_EQ(rig.lines.count("ignores"), 1u);
}

TEST(CamList, ASingleObjectEndsAListHalfway) {
  for (const List single : {only, add, update}) {
    Rig rig;
    rig.ask(caPmt103(only));
    rig.ask(caPmt101(first));
    rig.ask(caPmt103(single));
    rig.ask(caPmt103(last));
    EXPECT_EQ(rig.lines.count("ignores"), 1u) << static_cast<int>(single);
    EXPECT_FALSE(selected(rig).p101) << static_cast<int>(single);
  }
}

TEST(CamList, ResetLeavesNothingOfAListHalfway) {
  Rig rig;
  rig.ask(caPmt101(first));
  rig.cam.reset(rig.now);
  rig.pass(3000);
  rig.ask(caPmt103(last));
  EXPECT_EQ(rig.lines.count("ignores"), 1u);
  EXPECT_FALSE(selected(rig).p101);
  EXPECT_FALSE(selected(rig).p103);
}

TEST(CamList, AddKeepsTheOthersAndOnlyReplacesThem) {
  Rig rig;
  rig.ask(caPmt101(add));
  rig.ask(caPmt103(add));
  EXPECT_TRUE(selected(rig).p101 && selected(rig).p103);
  rig.ask(caPmt103(only));
  EXPECT_FALSE(selected(rig).p101);
  EXPECT_TRUE(selected(rig).p103);
}

TEST(CamList, UpdateNeedsASelectedProgram) {
  Rig rig;
  rig.ask(caPmt101(update));
  EXPECT_FALSE(selected(rig).p101);
  rig.ask(caPmt101(only));
  rig.ask(caPmt101(update));
  EXPECT_TRUE(selected(rig).p101);
}

TEST(CamList, SameListAgainInterruptsNothing) {
  const LabStream stream = labStream(streams101, 4, 120);
  Rig rig;
  rig.ask(caPmt101());
  const std::size_t half = stream.scrambled.size() / 2 + 20;
  const auto middle = stream.scrambled.begin() + static_cast<std::ptrdiff_t>(half);
  rig.play({stream.scrambled.begin(), middle});
  rig.ask(caPmt101());
  const std::vector<TsPacket> out = rig.play({middle, stream.scrambled.end()});
  EXPECT_EQ(out, std::vector<TsPacket>(stream.clear.begin() + static_cast<std::ptrdiff_t>(half),
                                       stream.clear.end()));
  EXPECT_EQ(rig.lines.count("descrambles program"), 1u);
}

TEST(CamList, TooManyProgramsAreIgnored) {
  Rig rig;
  for (unsigned program = 1; program <= 64; ++program) {
    rig.cam.receive(caPmt(add, program, level(0, {}), {}));
  }
  EXPECT_EQ(rig.lines.count("ignores"), 0u);
  rig.cam.receive(caPmt(add, 65, level(0, {}), {}));
  EXPECT_EQ(rig.lines.count("more programs than this CAM takes"), 1u);
}

TEST(CamList, GoesOnWithoutAProgramTooMany) {
  Rig rig;
  rig.ask(caPmt101(first));
  for (unsigned program = 1; program <= 64; ++program) {
    rig.cam.receive(caPmt(more, program, level(0, {}), {}));
  }
  EXPECT_EQ(rig.lines.count("more programs than this CAM takes"), 1u);
  rig.ask(caPmt101(last));
  EXPECT_TRUE(selected(rig).p101);
}

TEST(CamEntitlement, RevokedStopsAtOnceAndGivenBackResumes) {
  const LabStream stream = labStream(bothPrograms());
  Rig rig;
  rig.ask(caPmt101(first));
  rig.ask(caPmt103(last));
  rig.play(stream.scrambled);
  rig.cam.entitle(101, false);
  const std::vector<TsPacket> out = rig.play(stream.scrambled);
  EXPECT_EQ(onPids(out, streams101), onPids(stream.scrambled, streams101));
  EXPECT_EQ(onPids(out, streams103), onPids(stream.clear, streams103));
  rig.cam.entitle(101, true);
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
  EXPECT_EQ(rig.lines.count("stops descrambling program 101 (no entitlement for tier 101)"), 1u);
  const auto stops = testing_events::lastFacts<event::CamStops>(rig.lines.events);
  EXPECT_EQ(stops.reason, event::FeedReason::NotEntitled);
  EXPECT_EQ(stops.tier, 101);
}

TEST(CamEntitlement, IsOfTheTierThatTheEcmTells) {
  const LabStream stream = labStream({{0x1001, 0x1501, 900}, {0x1002, 0x1501, 900}});
  Rig rig;
  rig.cam.entitle(101, false);
  rig.ask(caPmt101());
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0x81)});
  rig.cam.entitle(900, false);
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
  EXPECT_EQ(rig.ask(caPmt101(add, query)), std::vector<Apdu>{reply101(0xF1)});
}

TEST(CamEntitlement, RefusedProgramIsNotDescrambled) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  rig.cam.refuse(101, true);
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
  rig.cam.refuse(101, false);
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamEcm, LossStopsDescramblingAfterTheTimeout) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled, 5000);
  rig.pass(3990);
  const std::vector<TsPacket> packets = withoutEcms(stream.scrambled);
  EXPECT_LT(stillScrambled(rig.play(packets, 5000)), stillScrambled(packets));
  rig.pass(10);
  EXPECT_EQ(rig.play(packets), packets);
  EXPECT_EQ(rig.lines.count("stops descrambling program 101 (no ECM on PID 0x1501 for 4000 ms)"),
            1u);
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
  EXPECT_EQ(rig.lines.count("descrambles program 101"), 2u);
}

// Packets pass before the CAM's own tick of the same time.
TEST(CamEcm, IsAsOldAsTheTimeAtWhichItPassed) {
  LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  std::vector<TsPacket *> pointers;
  for (TsPacket &packet : stream.scrambled) {
    pointers.push_back(&packet);
  }
  const std::uint64_t passed = rig.now + 10;
  rig.cam.process(pointers.data(), pointers.size(), passed);
  rig.pass(passed + 4000 - rig.now);
  EXPECT_EQ(rig.lines.count("stops descrambling"), 0U);
  rig.pass(10);
  EXPECT_EQ(rig.lines.count("stops descrambling"), 1U);
}

TEST(CamEcm, NeverAnyIsTold) {
  Rig rig;
  rig.ask(caPmt101());
  rig.pass(4100);
  EXPECT_EQ(rig.lines.count("does not descramble program 101 (no ECM"), 1u);
  const auto cannot = testing_events::lastFacts<event::CamCannot>(rig.lines.events);
  EXPECT_EQ(cannot.reason, event::FeedReason::NoEcm);
  EXPECT_EQ(cannot.ecmPid, 0x1501);
  EXPECT_EQ(cannot.timeoutMs, 4000U);
}

TEST(CamEcm, DamagedOnesAreNotUsed) {
  LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  std::mt19937 random(5);
  std::vector<TsPacket> damaged = stream.scrambled;
  for (TsPacket &packet : damaged) {
    if (packet[1] == 0x15 + 0x40) {
      packet[6 + random() % 30] ^= static_cast<std::uint8_t>(1u << random() % 8);
    }
  }
  for (int round = 0; round < 20; ++round) {
    rig.play(damaged);
  }
  EXPECT_EQ(rig.play(damaged), damaged);
  EXPECT_EQ(rig.lines.count("only damaged ECMs on PID 0x1501"), 1u);
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamFault, DeafUntilReset) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.cam.receive(caPmt101(add, query));
  rig.cam.setFault(CamFault::Deaf, true);
  EXPECT_TRUE(rig.cam.up());
  rig.pass(1000);
  EXPECT_TRUE(rig.ask({0x9F, 0x80, 0x30, 0x00}).empty());
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
  rig.cam.reset(rig.now);
  EXPECT_FALSE(rig.cam.up());
  rig.pass(2990);
  EXPECT_FALSE(rig.cam.up());
  rig.pass(10);
  EXPECT_TRUE(rig.cam.up());
  EXPECT_EQ(rig.ask({0x9F, 0x80, 0x30, 0x00}).size(), 1u);
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled) << "the selection is forgotten";
  rig.ask(caPmt101());
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamFault, ResetForgetsWordsAndAnswersButNotEntitlements) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  rig.cam.entitle(103, false);
  rig.cam.receive({0x9F, 0x80, 0x30, 0x00});
  rig.cam.reset(rig.now);
  rig.pass(3000);
  EXPECT_TRUE(rig.answers().empty());
  rig.ask(caPmt101());
  const std::vector<TsPacket> noEcms = withoutEcms(stream.scrambled);
  EXPECT_EQ(rig.play(noEcms), noEcms);
  EXPECT_EQ(rig.ask(caPmt103(add, query)), std::vector<Apdu>{reply103(0xF1)});
}

TEST(CamFault, GarbageAnswersEveryObjectAndChangesNothingElse) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.cam.setFault(CamFault::Garbage, true);
  EXPECT_EQ(rig.ask(caPmt101()).size(), 1u);
  const std::vector<Apdu> answers = rig.ask({0x9F, 0x80, 0x30, 0x00});
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_NE(answers[0], (Bytes{0x9F, 0x80, 0x31, 2, 5, 0}));
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
  rig.cam.setFault(CamFault::Garbage, false);
  EXPECT_EQ(rig.ask({0x9F, 0x80, 0x30, 0x00}),
            std::vector<Apdu>{(Bytes{0x9F, 0x80, 0x31, 2, 5, 0})});
}

TEST(CamFault, GarbageHasOneTo48Bytes) {
  Rig rig;
  rig.cam.setFault(CamFault::Garbage, true);
  std::size_t shortest = 1000;
  std::size_t longest = 0;
  for (int i = 0; i < 1000; ++i) {
    for (const Apdu &garbage : rig.ask({0x9F, 0x80, 0x30, 0x00})) {
      shortest = std::min(shortest, garbage.size());
      longest = std::max(longest, garbage.size());
    }
  }
  EXPECT_EQ(shortest, 1u);
  EXPECT_EQ(longest, 48u);
}

TEST(CamFault, GarbageIsTheSameInEveryRun) {
  std::vector<Apdu> runs[2];
  for (std::vector<Apdu> &answers : runs) {
    Rig rig;
    rig.cam.setFault(CamFault::Garbage, true);
    for (int i = 0; i < 20; ++i) {
      rig.cam.receive({0x9F, 0x80, 0x30, 0x00});
    }
    rig.pass(200);
    answers = rig.answers();
  }
  EXPECT_EQ(runs[0].size(), 20u);
  EXPECT_EQ(runs[0], runs[1]);
  EXPECT_NE(runs[0][0], runs[0][1]);
}

TEST(CamFault, WrongKeyClearsTheControlBitsButNotThePayload) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  rig.cam.setFault(CamFault::WrongKey, true);
  const std::vector<TsPacket> out = rig.play(stream.scrambled);
  EXPECT_EQ(stillScrambled(out), 0u);
  std::size_t wrong = 0;
  for (std::size_t i = 0; i < out.size(); ++i) {
    wrong += out[i] != stream.clear[i] ? 1u : 0u;
  }
  EXPECT_GT(wrong, out.size() * 3 / 4);
  rig.cam.setFault(CamFault::WrongKey, false);
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

// A packet without adaptation field, descrambled by a word.
TsPacket opened(TsPacket packet, const ControlWord &word) {
  dvbcsa_key_t *key = dvbcsa_key_alloc();
  dvbcsa_key_set(word.data(), key);
  dvbcsa_decrypt(key, packet.data() + 4, 184);
  dvbcsa_key_free(key);
  packet[3] &= 0x3F;
  return packet;
}

TEST(CamFault, AWrongKeyIsAWordWithRightChecksums) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.cam.setFault(CamFault::WrongKey, true);
  rig.ask(caPmt101());
  const std::vector<TsPacket> out = rig.play(stream.scrambled);
  const auto plain =
      std::find_if(stream.scrambled.begin(), stream.scrambled.end(),
                   [](const TsPacket &packet) { return (packet[3] & 0xF0) == (0x80 | 0x10); });
  ASSERT_NE(plain, stream.scrambled.end());
  ControlWord word = labWord(0x1501, 0);
  word[0] ^= 0x5A;
  word[4] ^= 0x5A;
  labca::setChecksums(word);
  EXPECT_EQ(out[static_cast<std::size_t>(plain - stream.scrambled.begin())], opened(*plain, word));
}

TEST(CamFault, ACamWithAWrongKeyDoesNotSayThatItDescrambles) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.cam.setFault(CamFault::WrongKey, true);
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  EXPECT_EQ(rig.lines.count("descrambles program 101"), 0u);
  EXPECT_EQ(rig.lines.count("works with wrong keys on program 101"), 1u);
  rig.cam.setFault(CamFault::WrongKey, false);
  EXPECT_EQ(rig.lines.count("descrambles program 101"), 1u);
  rig.cam.setFault(CamFault::WrongKey, false);
  EXPECT_EQ(rig.lines.count("descrambles program 101"), 1u);
  rig.cam.setFault(CamFault::WrongKey, true);
  EXPECT_EQ(rig.lines.count("works with wrong keys on program 101"), 2u);
}

TEST(CamFault, WrongKeyComesAndGoesWithoutWaitingForAnEcm) {
  const LabStream stream = labStream(streams101);
  Rig rig;
  rig.ask(caPmt101());
  rig.play(stream.scrambled);
  // Behind the loop the last ECM's words are those of the first period too.
  const std::size_t firstPeriod = stream.scrambled.size() / 4;
  const auto begin = [firstPeriod](const std::vector<TsPacket> &packets) {
    return withoutEcms({packets.begin(), packets.begin() + static_cast<long>(firstPeriod)});
  };
  ASSERT_EQ(rig.play(begin(stream.scrambled)), begin(stream.clear));
  rig.cam.setFault(CamFault::WrongKey, true);
  EXPECT_NE(rig.play(begin(stream.scrambled)), begin(stream.clear));
  rig.cam.setFault(CamFault::WrongKey, false);
  EXPECT_EQ(rig.play(begin(stream.scrambled)), begin(stream.clear));
}

// Two CAMs in turn: what waits in the first may be what the second takes for an ECM.
TEST(CamOrder, AResetCamHasNoEcmsToWaitFor) {
  const LabStream stream = labStream(streams101);
  Rig before;
  before.ask(caPmt101());
  before.play(stream.scrambled);
  Rig behind;
  behind.ask(
      caPmt(only, 200, level(descramble, ca(0x0500, 0x1001)), {caPmtStream(0x1100, level(0, {}))}));
  EXPECT_FALSE(before.cam.mustSettleBefore(behind.cam)) << "nothing waits";
  std::vector<TsPacket> packets = onPids(stream.scrambled, {{0x1001, 0x1501, 101}});
  TsPacket *const packet = &packets[1];
  before.cam.process(&packet, 1, before.now);
  EXPECT_TRUE(before.cam.mustSettleBefore(behind.cam));
  behind.cam.reset(behind.now);
  EXPECT_FALSE(before.cam.mustSettleBefore(behind.cam));
}

TEST(CamHostile, EveryTruncationOfACaPmtIsIgnored) {
  const LabStream stream = labStream(streams101);
  const Bytes whole = caPmt101();
  Rig rig;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_TRUE(
        rig.ask({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}).empty());
  }
  EXPECT_EQ(rig.lines.count("ignores an object from the host (it is cut off)"), 1u);
  EXPECT_EQ(rig.play(stream.scrambled), stream.scrambled);
}

TEST(CamHostile, AnotherReasonIsToldTheSameIsNot) {
  Rig rig;
  const Bytes unknown = {0x9F, 0x80, 0x00, 0x00};
  const Bytes withBody = {0x9F, 0x80, 0x30, 0x01, 0x00};
  for (const Bytes &bad : {unknown, unknown, withBody, withBody, unknown}) {
    rig.cam.receive(bad);
  }
  EXPECT_EQ(rig.lines.count("its tag is unknown"), 2u);
  EXPECT_EQ(rig.lines.count("a ca_info_enq has no body"), 1u);
}

TEST(CamHostile, UnknownTagsAreIgnored) {
  Rig rig;
  EXPECT_TRUE(rig.ask({0x9F, 0x80, 0x31, 0x00}).empty());
  EXPECT_TRUE(rig.ask({0x00, 0x00, 0x00, 0x00}).empty());
  EXPECT_TRUE(rig.ask({0x9F, 0x80, 0x30, 0x01, 0x00}).empty());
  EXPECT_EQ(rig.lines.count("its tag is unknown"), 1u);
}

TEST(CamHostile, RandomObjectsAndPacketsLeaveItWorking) {
  const LabStream stream = labStream(streams101);
  std::mt19937 random(9);
  Rig rig;
  const Bytes valid = caPmt103(add, query);
  for (int i = 0; i < 5000; ++i) {
    Bytes apdu = valid;
    for (int change = 0; change <= i % 5; ++change) {
      apdu[random() % apdu.size()] = static_cast<std::uint8_t>(random());
    }
    apdu.resize(i % 7 == 0 ? random() % apdu.size() : apdu.size());
    rig.cam.receive(apdu);
    TsPacket packet;
    for (std::uint8_t &byte : packet) {
      byte = static_cast<std::uint8_t>(random());
    }
    TsPacket *pointer = &packet;
    rig.cam.process(&pointer, 1, rig.now);
    rig.cam.settle();
    rig.pass(10);
    while (rig.cam.transmit()) {
    }
  }
  rig.ask(caPmt101(only));
  EXPECT_EQ(rig.play(stream.scrambled), stream.clear);
}

TEST(CamHostile, AnswersThatNobodyFetchesAreBounded) {
  Rig rig;
  for (int i = 0; i < 1000; ++i) {
    rig.cam.receive({0x9F, 0x80, 0x30, 0x00});
  }
  rig.pass(200);
  EXPECT_EQ(rig.answers().size(), 64u);
}

}  // namespace
