// A card between whose meters a receiver elsewhere stands.
#include <gtest/gtest.h>

#include <memory>

#include "card/Card.h"
#include "card/Fpga.h"
#include "chassis/FakeSource.h"
#include "chassis/RecordedEvents.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::Card;
using chassis::Event;
using chassis::ProbeState;
using testing_events::RecordedEvents;

namespace {

using Lines = std::vector<std::string>;

const Bytes ca = caDescriptor(0x0500, 0x150);
const ProgramMap pay{1, 0x1001, 0x100, {{0x1B, 0x100, {}}, {0x03, 0x101, {}}}, ca, 0};
const ProgramMap other{2, 0x1002, 0x200, {{0x03, 0x200, caDescriptor(0x0B00, 0x151)}}, {}, 0};
const ProgramMap clear{3, 0x1003, 0x300, {{0x1B, 0x300, {}}}, {}, 0};

class ProbeCard : public testing::Test {
 protected:
  ProbeCard() {
    card.onProgramsChanged([this](std::uint32_t) { ++changes; });
  }

  void insert(const chassis::ProgramNumbers &numbers = {},
              const std::vector<std::uint16_t> &programs = {}) {
    card.insertProbe({std::make_unique<FakeSource>(before), std::make_unique<FakeSource>(behind),
                      "a", "b", numbers, programs},
                     0);
  }

  // A tick with something on each side.
  void pass(const StreamWriter &in, const StreamWriter &out) {
    put(in, before);
    put(out, behind);
    card.tick(nowMs += 10);
  }
  void passFor(std::uint64_t ms, const StreamWriter &in, const StreamWriter &out) {
    for (const std::uint64_t end = nowMs + ms; nowMs < end;) {
      pass(in, out);
    }
  }
  ProbeState stateOf(std::uint16_t program) { return card.program(program)->probe; }

  RecordedEvents events{4};
  chassis::Files files;
  Packets before;
  Packets behind;
  Card card{4, events, files};
  std::uint64_t nowMs = 0;
  int changes = 0;
};

}  // namespace

TEST_F(ProbeCard, JudgesWhatHasCaDescriptors) {
  insert();
  EXPECT_TRUE(card.probing());
  pass(StreamWriter().psi({pay, other, clear}), StreamWriter().psi({pay, other, clear}));
  card.publishTables();
  ASSERT_EQ(card.descTable()->descProgCnt, 2U);
  EXPECT_EQ(card.descTable()->prog[0].prog_num, 1U);
  EXPECT_EQ(card.descTable()->prog[0].camMask, 1U);
  EXPECT_EQ(card.descTable()->prog[1].prog_num, 2U);
  EXPECT_EQ(stateOf(1), ProbeState::Judged);
  EXPECT_EQ(stateOf(3), ProbeState::None);
  EXPECT_EQ(card.probedCaSystems(), (std::vector<std::uint16_t>{0x0500, 0x0B00}));
}

TEST_F(ProbeCard, JudgesOnlyTheProgramsThatAreAskedFor) {
  insert({}, {2});
  pass(StreamWriter().psi({pay, other, clear}), StreamWriter().psi({pay, other, clear}));
  card.publishTables();
  ASSERT_EQ(card.descTable()->descProgCnt, 1U);
  EXPECT_EQ(card.descTable()->prog[0].prog_num, 2U);
  EXPECT_EQ(stateOf(1), ProbeState::None);
  EXPECT_EQ(card.probedCaSystems(), std::vector<std::uint16_t>{0x0B00});
}

// What the module asks of a PID behind is what came on the PID that it is there.
TEST_F(ProbeCard, WhatComesOutIsCountedAsThePidThatWentIn) {
  ProgramMap moved{9, 0x1009, 0x500, {{0x03, 0x501, {}}, {0x1B, 0x500, {}}}, {}, 0};
  insert({{1, 9}});
  const StreamWriter out = StreamWriter().psi({moved});
  pass(StreamWriter().psi({pay}), out);
  StreamWriter in;
  in.payload(0x100, {}, false, 2).payload(0x101, {}, false, 2);
  StreamWriter then;
  then.payload(0x500).payload(0x500).payload(0x501, {}, false, 2).payload(0x777);
  pass(in, then);
  EXPECT_EQ(card.before(0x100).packets, 1U);
  EXPECT_EQ(card.before(0x100).scrambled, 1U);
  EXPECT_EQ(card.behind(0x100).packets, 2U);
  EXPECT_EQ(card.behind(0x100).scrambled, 0U);
  EXPECT_EQ(card.behind(0x101).packets, 1U);
  EXPECT_EQ(card.behind(0x101).scrambled, 1U);
  EXPECT_EQ(card.behind(0x500).packets, 0U);
  EXPECT_EQ(card.behind(0x777).packets, 0U);
  EXPECT_EQ(card.countersBehind().packets, out.packets() + 4);
}

TEST_F(ProbeCard, AProgramThatDoesNotComeOutIsLeftToNobody) {
  insert();
  pass(StreamWriter().psi({pay, other}), StreamWriter().psi({pay}));
  card.publishTables();
  EXPECT_EQ(stateOf(2), ProbeState::MissingBehind);
  ASSERT_EQ(card.descTable()->descProgCnt, 1U);
  const int changed = changes;
  pass(StreamWriter().psi({pay, other}), StreamWriter().counter(0, 1).psi({pay, other}, 1));
  EXPECT_EQ(stateOf(2), ProbeState::Judged);
  EXPECT_EQ(changes, changed + 1);
  card.publishTables();
  EXPECT_EQ(card.descTable()->descProgCnt, 2U);
}

TEST_F(ProbeCard, AStreamThatDoesNotComeOutIsNotJudged) {
  insert();
  ProgramMap mute = pay;
  mute.streams.pop_back();
  pass(StreamWriter().psi({pay}), StreamWriter().psi({mute}));
  card.publishTables();
  EXPECT_EQ(card.unmatchedStreams(), 1U);
  EXPECT_EQ(card.descTable()->prog[0].eleNum, 1U);
  EXPECT_EQ(card.descTable()->prog[0].ele[0].pid, 0x100U);
  EXPECT_EQ(std::count(events.what.begin(), events.what.end(),
                       "streams that are not behind the receiver"),
            1);
}

// What begins anew behind is none of the receiver's losses, and none of what goes in.
TEST_F(ProbeCard, ARestartOnOneSideIsNoLoss) {
  insert();
  const StreamWriter tables = StreamWriter().psi({pay}).payload(0x100);
  pass(tables, tables);
  const StreamWriter next = StreamWriter().counter(0x100, 1).payload(0x100);
  pass(next, next);
  for (unsigned i = 2; i < 110; ++i) {
    pass(StreamWriter().counter(0x100, i & 0x0F).payload(0x100), StreamWriter());
  }
  ASSERT_EQ(stateOf(1), ProbeState::SilentBehind);
  const StreamWriter back = StreamWriter().counter(0x100, 9).payload(0x100);
  pass(back, back);
  EXPECT_EQ(card.behind(0x100).ccErrors, 0U);
  EXPECT_EQ(card.before(0x100).ccErrors, 1U) << "what went in was not silent: 110 follows 109";
}

TEST_F(ProbeCard, AnotherSenderBehindIsNoLoss) {
  StreamWriter out;
  out.psi({pay}).payload(0x100);
  card.insertProbe({std::make_unique<FakeSource>(before),
                    std::make_unique<FakeSource>(behind, out.packets() + 1),
                    "a",
                    "b",
                    {},
                    {}},
                   0);
  pass(StreamWriter().psi({pay}), out);
  pass(StreamWriter(),
       StreamWriter().counter(0x100, 1).payload(0x100).counter(0x100, 9).payload(0x100));
  EXPECT_EQ(card.behind(0x100).packets, 2U) << "its PID was not known before";
  EXPECT_EQ(card.behind(0x100).ccErrors, 0U);
  pass(StreamWriter(), StreamWriter().counter(0x100, 5).payload(0x100));
  EXPECT_EQ(card.behind(0x100).ccErrors, 1U);
}

TEST_F(ProbeCard, WithoutAnInputTheCardIsBusy) {
  insert();
  EXPECT_EQ(card.fpga().busy(), 1U) << "nothing is known yet";
  const StreamWriter in = StreamWriter().psi({pay}).payload(0x100);
  passFor(100, in, in);
  EXPECT_EQ(card.fpga().busy(), 0U);
  passFor(990, in, StreamWriter());
  EXPECT_EQ(card.fpga().busy(), 0U);
  passFor(10, in, StreamWriter());
  EXPECT_EQ(card.fpga().busy(), 1U);
  EXPECT_EQ(stateOf(1), ProbeState::SilentBehind);
  passFor(1000, StreamWriter(), StreamWriter());
  EXPECT_EQ(stateOf(1), ProbeState::SilentBoth);
  pass(StreamWriter(), in);
  EXPECT_EQ(stateOf(1), ProbeState::SilentBefore);
  EXPECT_EQ(card.fpga().busy(), 1U);
  pass(in, in);
  EXPECT_EQ(card.fpga().busy(), 0U);
  EXPECT_EQ(stateOf(1), ProbeState::Judged);
  EXPECT_EQ(
      events.what,
      (Lines{"what comes out of the receiver has begun", "what goes into the receiver has begun",
             "the stream's programs changed", "what comes out of the receiver is silent",
             "what goes into the receiver is silent", "what comes out of the receiver is back",
             "what goes into the receiver is back"}));
  EXPECT_EQ(events.places[0].side, chassis::Side::Behind);
  EXPECT_EQ(events.places[1].side, chassis::Side::Before);
}

TEST_F(ProbeCard, TheProgramsBehindAreWaitedForTwoSeconds) {
  insert();
  const StreamWriter in = StreamWriter().psi({pay}).payload(0x100);
  StreamWriter late;  // its PAT names a program whose PMT never comes
  late.table(0, patSection({pay, other})).payload(0x100);
  passFor(2000, in, late);
  EXPECT_EQ(stateOf(1), ProbeState::Learning);
  EXPECT_EQ(card.fpga().busy(), 1U);
  pass(in, late);
  EXPECT_EQ(stateOf(1), ProbeState::MissingBehind);
}

TEST_F(ProbeCard, AProgramOfWhichNothingComesOutIsMissing) {
  insert();
  const StreamWriter tables = StreamWriter().psi({pay});
  const StreamWriter in = StreamWriter().psi({pay}).payload(0x100);
  pass(in, tables);
  passFor(4990, in, tables);
  EXPECT_EQ(stateOf(1), ProbeState::Judged);
  passFor(10, in, tables);
  EXPECT_EQ(stateOf(1), ProbeState::NothingBehind);
  card.publishTables();
  EXPECT_EQ(card.descTable()->descProgCnt, 0U) << "it is not the CAM's";
  pass(in, StreamWriter().payload(0x100));
  EXPECT_EQ(stateOf(1), ProbeState::Judged);
  passFor(20000, tables, tables);
  EXPECT_EQ(stateOf(1), ProbeState::Judged) << "nothing of it goes in";
}

// A receiver elsewhere has no CI controller whose rate could be too low.
TEST_F(ProbeCard, AWeakStreamIsNoFaultOfAController) {
  insert();
  EXPECT_EQ(card.fpga().systemRate(3), 1000U);
  EXPECT_EQ(card.fpga().systemRate(1001), 1001U);
  EXPECT_EQ(card.fpga().rate(3), 3U);
  card.remove();
  EXPECT_EQ(card.fpga().systemRate(3), 3U);
  EXPECT_FALSE(card.probing());
}

TEST_F(ProbeCard, AProgramThatDoesNotGoInIsTold) {
  insert({}, {2, 8, 9});
  const StreamWriter in = StreamWriter().psi({pay, other}).payload(0x100);
  pass(in, in);
  passFor(100, in, in);
  EXPECT_EQ(std::count(events.what.begin(), events.what.end(),
                       "programs 8, 9 cannot be judged: not in what goes into the receiver"),
            1);
}
