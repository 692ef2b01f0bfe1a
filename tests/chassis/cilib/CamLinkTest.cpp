#include "cilib/CamLink.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>

#include "EventLog.h"
#include "Records.h"
#include "platform/Kernel.h"

namespace chassis {
namespace {

// A CAM that says what a test puts into its mouth.
struct Scripted {
  bool up = false;
  std::uint32_t resets = 0;
  std::vector<Apdu> received;
  std::deque<Apdu> answers;
};

class ScriptedPort : public CamPort {
 public:
  explicit ScriptedPort(Scripted &cam) : cam_(cam) {}
  bool up() const override { return cam_.up; }
  void reset(std::uint64_t) override {
    ++cam_.resets;
    cam_.up = false;
    cam_.answers.clear();
  }
  void receive(const Apdu &apdu) override { cam_.received.push_back(apdu); }
  std::optional<Apdu> transmit() override {
    if (cam_.answers.empty()) {
      return std::nullopt;
    }
    const Apdu apdu = cam_.answers.front();
    cam_.answers.pop_front();
    return apdu;
  }

 private:
  Scripted &cam_;
};

// A CAM that never stops talking.
class ChatteringPort : public CamPort {
 public:
  bool up() const override { return true; }
  void reset(std::uint64_t) override {}
  void receive(const Apdu &) override {}
  std::optional<Apdu> transmit() override { return Apdu{0x9F, 0x80, 0x31, 0x80}; }
};

const Apdu enquiry{0x9F, 0x80, 0x30, 0x00};
const Apdu info0500{0x9F, 0x80, 0x31, 0x02, 0x05, 0x00};
const Apdu info0600{0x9F, 0x80, 0x31, 0x02, 0x06, 0x00};

Apdu reply(std::uint16_t program, std::uint8_t caEnable) {
  return {0x9F,
          0x80,
          0x33,
          0x04,
          static_cast<std::uint8_t>(program >> 8),
          static_cast<std::uint8_t>(program),
          0xC3,
          caEnable};
}

class CamLinkTest : public testing::Test {
 protected:
  void insert() { link.insert(std::make_unique<ScriptedPort>(cam)); }

  void makeUsable() {
    insert();
    cam.up = true;
    cam.answers.push_back(info0500);
    link.tick(nowMs);
    ASSERT_EQ(link.insertStatus(), 1u);
    cam.received.clear();
    takeFlag();
  }

  // Sends one record for each program; returns what the link returns.
  std::int32_t send(std::vector<std::uint16_t> programs, std::uint8_t cmdId,
                    std::uint16_t casid = 0x0500) {
    std::vector<CaPmtProg> records(programs.size());
    std::vector<CaPmtProg *> pointers;
    for (std::size_t k = 0; k < programs.size(); ++k) {
      fillRecord(records[k], programs[k], cmdId, 4, casid);
      pointers.push_back(&records[k]);
    }
    return link.send(pointers.data(), static_cast<std::uint32_t>(pointers.size()), nowMs);
  }

  void say(const Apdu &apdu) {
    cam.answers.push_back(apdu);
    link.tick(nowMs);
  }

  bool takeFlag() { return flag.take(); }

  bool noAnswers() const {
    const CaPmtReply empty{};
    return std::memcmp(&answers, &empty, sizeof empty) == 0;
  }

  Scripted cam;
  EventLog events;
  semaphore flag;
  CaPmtReply answers{};
  CamLink link{{2, 1}, events, &flag, answers};
  std::uint64_t nowMs = 1000;
};

TEST_F(CamLinkTest, EmptySlotHasNothing) {
  link.tick(nowMs);
  link.programsChanged();
  link.forgetCaSystems();
  link.forgetCaPmt(0x0500);
  link.remove();
  EXPECT_EQ(link.insertStatus(), 0u);
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_EQ(send({1}, cmdOkDescrambling), 0);
  EXPECT_FALSE(takeFlag());
  EXPECT_TRUE(events.lines.empty());
  EXPECT_FALSE(link.reset(nowMs));
  EXPECT_EQ(events.count("no CAM to reset"), 1);
}

TEST_F(CamLinkTest, IsNotAskedBeforeItIsUp) {
  insert();
  EXPECT_EQ(link.insertStatus(), 2u);
  cam.answers.push_back(info0500);
  link.tick(nowMs);
  EXPECT_TRUE(cam.received.empty());
  EXPECT_EQ(link.insertStatus(), 2u);
  EXPECT_FALSE(takeFlag());
  EXPECT_EQ(events.why("CAM starts up"), "inserted");
  EXPECT_EQ(events.last<event::CamStarting>().reason, event::StartReason::Inserted);
}

TEST_F(CamLinkTest, BecomesUsableWithItsCaInfo) {
  insert();
  cam.up = true;
  link.tick(nowMs);
  EXPECT_EQ(cam.received, std::vector<Apdu>{enquiry});
  EXPECT_EQ(link.insertStatus(), 2u);
  EXPECT_EQ(send({1}, cmdOkDescrambling), 0);
  say(info0500);
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_FALSE(link.supports(0x0600));
  EXPECT_TRUE(takeFlag());
  EXPECT_EQ(events.count("CAM is up, CA system 0x0500"), 1);
  EXPECT_EQ(events.lines.back().place.slot, 2);
  EXPECT_EQ(events.lines.back().place.cam, 1);
  EXPECT_EQ(cam.received.size(), 1u);
}

TEST_F(CamLinkTest, IsAskedAgainAfterFiveSecondsOfSilence) {
  insert();
  cam.up = true;
  link.tick(nowMs);
  link.tick(nowMs + 4999);
  EXPECT_EQ(cam.received.size(), 1u);
  link.tick(nowMs + 5000);
  EXPECT_EQ(cam.received.size(), 2u);
  link.tick(nowMs + 9999);
  EXPECT_EQ(cam.received.size(), 2u);
  link.tick(nowMs + 10000);
  EXPECT_EQ(cam.received, (std::vector<Apdu>{enquiry, enquiry, enquiry}));
  EXPECT_EQ(events.count("CAM does not answer"), 1);
  EXPECT_EQ(link.insertStatus(), 2u);
  nowMs += 12000;
  say(info0500);
  EXPECT_EQ(link.insertStatus(), 1u);
}

TEST_F(CamLinkTest, AnUnaskedAnswerOfALesserSystemIsToldToo) {
  makeUsable();
  say({0x9F, 0x80, 0x31, 0x02, 0x01, 0x00});
  EXPECT_EQ(events.why("ca_info that nobody asked for, ignored"), "CA system 0x0100");
}

TEST_F(CamLinkTest, AnUnaskedAnswerOfAGreaterSystemIsToldToo) {
  makeUsable();
  say({0x9F, 0x80, 0x31, 0x02, 0x0F, 0x00});
  EXPECT_EQ(events.why("ca_info that nobody asked for, ignored"), "CA system 0x0F00");
}

TEST_F(CamLinkTest, LateSecondAnswerIsNoTroubleAnUnaskedOneIsIgnored) {
  makeUsable();
  say(info0500);
  EXPECT_EQ(events.count("ca_info that nobody asked for, ignored"), 0);
  for (int round = 0; round < 3; ++round) {
    say(info0600);
  }
  EXPECT_EQ(events.count("ca_info that nobody asked for, ignored"), 1);
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_FALSE(link.supports(0x0600));
  EXPECT_FALSE(takeFlag());
}

TEST_F(CamLinkTest, CamWithoutAnyCaSystemIsUsableAndMatchesNothing) {
  insert();
  cam.up = true;
  say({0x9F, 0x80, 0x31, 0x00});
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_FALSE(link.supports(0));
  EXPECT_EQ(events.count("CAM is up, no CA system"), 1);
}

TEST_F(CamLinkTest, SendsEveryRecordInOrderAndTellsHistory) {
  makeUsable();
  EXPECT_FALSE(link.history().sent);
  nowMs = 4321;
  EXPECT_EQ(send({101, 102}, cmdOkDescrambling), 2);
  ASSERT_EQ(cam.received.size(), 2u);
  CaPmtProg record;
  fillRecord(record, 101, cmdOkDescrambling, 4, 0x0500);
  EXPECT_EQ(cam.received[0], encodeCaPmt(record).apdu);
  fillRecord(record, 102, cmdOkDescrambling, 4, 0x0500);
  EXPECT_EQ(cam.received[1], encodeCaPmt(record).apdu);
  EXPECT_EQ(events.why("CA PMT sent: programs 101, 102"), "list management add, add");
  EXPECT_TRUE(link.history().sent);
  EXPECT_EQ(link.history().sentMs, 4321u);
  EXPECT_EQ(link.history().programs, 2u);
}

TEST_F(CamLinkTest, SendsThirtyTwoRecordsButNotThirtyThree) {
  makeUsable();
  std::vector<std::uint16_t> programs(33, 7);
  EXPECT_EQ(send(programs, cmdOkDescrambling), 0);
  EXPECT_TRUE(cam.received.empty());
  EXPECT_FALSE(link.history().sent);
  EXPECT_EQ(events.why("CA PMT refused"), "33 programs, at most 32");
  EXPECT_EQ(events.last<event::CaPmtRefused>().records, 33U);
  programs.pop_back();
  EXPECT_EQ(send(programs, cmdOkDescrambling), 32);
  EXPECT_EQ(cam.received.size(), 32u);
}

TEST_F(CamLinkTest, NothingToSendSendsNothing) {
  makeUsable();
  const std::size_t before = events.lines.size();
  EXPECT_EQ(send({}, cmdOkDescrambling), 0);
  EXPECT_EQ(link.send(nullptr, 1, nowMs), 0);
  EXPECT_TRUE(cam.received.empty());
  EXPECT_FALSE(link.history().sent);
  EXPECT_EQ(events.lines.size(), before);
}

TEST_F(CamLinkTest, RecordsThatAreNotFilledAreLeftOut) {
  makeUsable();
  CaPmtProg filled;
  fillRecord(filled, 9, cmdOkDescrambling, 3, 0x0500);
  CaPmtProg blank{};
  CaPmtProg *records[] = {&blank, &filled, nullptr};
  EXPECT_EQ(link.send(records, 3, nowMs), 1);
  EXPECT_EQ(cam.received.size(), 1u);
  EXPECT_EQ(events.why("CA PMT incomplete"), "a record is not filled; and 1 more");
  EXPECT_EQ(events.why("CA PMT sent: program 9"), "list management only");
}

TEST_F(CamLinkTest, WhatCannotBeEncodedIsToldByProgram) {
  makeUsable();
  CaPmtProg record;
  fillRecord(record, 9, cmdOkDescrambling, 3, 0x0500);
  record.ele[0].caPid[0] = 0x2000;
  CaPmtProg *records[] = {&record};
  EXPECT_EQ(link.send(records, 1, nowMs), 1);
  EXPECT_EQ(events.why("CA PMT incomplete"),
            "program 9: CA descriptor 0x0500 of PID 0x0109: its CA PID is above 0x1FFF");
}

TEST_F(CamLinkTest, RepliesToAQueryAreFiled) {
  makeUsable();
  EXPECT_EQ(send({101, 102}, cmdQuery), 2);
  EXPECT_EQ(events.why("query sent: programs 101, 102"), "list management add, add");
  say(reply(102, 0xF1));
  say({0x9F, 0x80, 0x33, 0x07, 0x00, 0x65, 0xC3, 0x00, 0xE1, 0x65, 0xF3});
  ASSERT_EQ(answers.progNum, 2);
  EXPECT_EQ(answers.prog[0].progNum, 102);
  EXPECT_EQ(answers.prog[0].caEnable, 0x71);
  EXPECT_EQ(answers.prog[1].progNum, 101);
  ASSERT_EQ(answers.prog[1].eleNum, 1);
  EXPECT_EQ(answers.prog[1].ele[0].pid, 0x0165);
  EXPECT_EQ(answers.prog[1].ele[0].caEnable, 0x73);
  EXPECT_EQ(events.count("reply: program 102: no entitlement (0x71)"), 1);
  EXPECT_EQ(events.why("reply: program 101: technical reasons (0x73)"),
            "PID 0x0165: technical reasons (0x73)");
  EXPECT_EQ(events.last<event::QuerySent>().listManagement,
            (std::vector<std::string>{"add", "add"}));
  const auto answer = events.last<event::Reply>();
  EXPECT_EQ(answer.answer.programs.numbers(), std::vector<std::uint16_t>{101});
  EXPECT_EQ(answer.answer.caEnable, 0x73);
  EXPECT_EQ(answer.pids, std::vector<std::uint16_t>{0x0165});
  EXPECT_EQ(answer.caEnables, std::vector<std::uint16_t>{0x73});
}

TEST_F(CamLinkTest, NamesStandBesideTheNumbers) {
  cam.up = true;
  cam.answers.push_back(info0500);
  link.insert(std::make_unique<ScriptedPort>(cam),
              [](std::uint16_t program) { return program == 102 ? "Two" : ""; });
  link.tick(nowMs);
  EXPECT_EQ(send({101, 102}, cmdQuery), 2);
  EXPECT_EQ(events.count("query sent: programs 101, 102 \"Two\""), 1);
  say(reply(102, 0xF1));
  EXPECT_EQ(events.count("reply: program 102 \"Two\": no entitlement (0x71)"), 1);
}

TEST_F(CamLinkTest, RepliesThatFitNoQueryAreIgnored) {
  makeUsable();
  send({101}, cmdOkDescrambling);
  say(reply(101, 0xF1));
  EXPECT_TRUE(noAnswers());
  send({101}, cmdQuery);
  say(reply(102, 0xF1));
  EXPECT_TRUE(noAnswers());
  EXPECT_EQ(events.count("reply to no query, ignored"), 1);
}

TEST_F(CamLinkTest, OnlyTheLastQueryIsAnswered) {
  makeUsable();
  send({101}, cmdQuery);
  send({102}, cmdQuery);
  say(reply(101, 0xF1));
  EXPECT_TRUE(noAnswers());
  say(reply(102, 0xF1));
  EXPECT_EQ(answers.progNum, 1);
}

TEST_F(CamLinkTest, ChangedReplyReplacesTheFirstAndIsToldOnce) {
  makeUsable();
  send({101}, cmdQuery);
  for (int round = 0; round < 4; ++round) {
    say(reply(101, 0xF1));
    say(reply(101, 0xF3));
  }
  EXPECT_EQ(answers.progNum, 1);
  EXPECT_EQ(answers.prog[0].caEnable, 0x73);
  EXPECT_EQ(events.count("reply: program 101: no entitlement (0x71)"), 1);
  EXPECT_EQ(events.count("CAM changes its reply"), 1);
}

TEST_F(CamLinkTest, UnansweredQueryIsTold) {
  makeUsable();
  send({101}, cmdQuery);
  link.tick(nowMs + 4999);
  EXPECT_EQ(events.count("CAM does not answer"), 0);
  link.tick(nowMs + 5000);
  link.tick(nowMs + 20000);
  EXPECT_EQ(events.count("CAM does not answer"), 1);
  EXPECT_EQ(link.insertStatus(), 1u);
}

TEST_F(CamLinkTest, SilenceIsToldAnewOnceCaInfoEndedIt) {
  insert();
  cam.up = true;
  link.tick(nowMs);
  link.tick(nowMs += 5000);
  EXPECT_EQ(events.count("CAM does not answer"), 1);
  say(info0500);
  ASSERT_EQ(link.insertStatus(), 1u);
  link.forgetCaSystems();
  link.tick(nowMs);
  link.tick(nowMs += 5000);
  EXPECT_EQ(events.count("CAM does not answer"), 2);
}

TEST_F(CamLinkTest, SilenceIsToldAnewOnceAReplyEndedIt) {
  makeUsable();
  const auto queryInSilence = [this] {
    send({101}, cmdQuery);
    link.tick(nowMs += 5000);
  };
  queryInSilence();
  queryInSilence();
  EXPECT_EQ(events.count("CAM does not answer"), 1);
  say(reply(101, 0xF1));
  queryInSilence();
  EXPECT_EQ(events.count("CAM does not answer"), 2);
}

TEST_F(CamLinkTest, AnsweredQueryIsNoSilence) {
  makeUsable();
  send({101}, cmdQuery);
  say(reply(101, 0x81));
  link.tick(nowMs + 20000);
  EXPECT_EQ(events.count("CAM does not answer"), 0);
}

TEST_F(CamLinkTest, QueryWithoutDescriptorsExpectsNoAnswer) {
  makeUsable();
  CaPmtProg record;
  fillRecord(record, 9, cmdQuery, 4, 0x0500);
  record.ele[0].caNum = 0;
  CaPmtProg *records[] = {&record};
  EXPECT_EQ(link.send(records, 1, nowMs), 1);
  link.tick(nowMs + 20000);
  EXPECT_EQ(events.count("CAM does not answer"), 0);
}

TEST_F(CamLinkTest, ForgettingCaPmtConcernsItsCaSystemOnly) {
  makeUsable();
  send({101}, cmdQuery, 0x0500);
  say(reply(101, 0xF1));
  link.forgetCaPmt(0x0600);
  EXPECT_EQ(answers.progNum, 1);
  link.forgetCaPmt(0x0500);
  EXPECT_TRUE(noAnswers());
  say(reply(101, 0xF1));
  EXPECT_TRUE(noAnswers());
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_EQ(link.insertStatus(), 1u);
}

TEST_F(CamLinkTest, AnswerUnderNoCaSystemIsForgottenWithAnyOfThem) {
  makeUsable();
  CaPmtProg record;
  fillRecord(record, 9, cmdQuery, 4, 0x0500);
  record.ele[0].caNum = 0;
  CaPmtProg *records[] = {&record};
  link.send(records, 1, nowMs);
  say(reply(9, 0xF1));
  EXPECT_EQ(answers.progNum, 1);
  link.forgetCaPmt(0x0600);
  EXPECT_TRUE(noAnswers());
}

TEST_F(CamLinkTest, ForgottenQueryIsNotWaitedFor) {
  makeUsable();
  send({101}, cmdQuery);
  link.forgetCaPmt(0x0500);
  link.tick(nowMs + 20000);
  EXPECT_EQ(events.count("CAM does not answer"), 0);
}

TEST_F(CamLinkTest, ChangedProgramsNeedACaPmtOnlyWhenUsable) {
  insert();
  link.programsChanged();
  EXPECT_FALSE(takeFlag());
  makeUsable();
  link.programsChanged();
  link.programsChanged();
  EXPECT_TRUE(takeFlag());
  EXPECT_FALSE(takeFlag());
}

TEST_F(CamLinkTest, ResetForgetsEverythingAndStartsAgain) {
  makeUsable();
  send({101}, cmdQuery);
  say(reply(101, 0xF1));
  link.programsChanged();
  EXPECT_TRUE(link.reset(7000));
  EXPECT_EQ(cam.resets, 1u);
  EXPECT_EQ(link.insertStatus(), 2u);
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_TRUE(noAnswers());
  EXPECT_FALSE(takeFlag());
  EXPECT_EQ(send({101}, cmdOkDescrambling), 0);
  cam.up = true;
  cam.received.clear();
  say(info0600);
  EXPECT_EQ(cam.received, std::vector<Apdu>{enquiry});
  EXPECT_TRUE(link.supports(0x0600));
  EXPECT_TRUE(takeFlag());
  say(reply(101, 0xF1));
  EXPECT_TRUE(noAnswers());
}

TEST_F(CamLinkTest, ResetsAreCountedUntilTheNextInsertion) {
  makeUsable();
  link.reset(7000);
  link.reset(8000);
  EXPECT_TRUE(link.history().reset);
  EXPECT_EQ(link.history().resetMs, 8000u);
  EXPECT_EQ(link.history().resets, 2u);
  EXPECT_EQ(events.alerts, (std::vector<std::string>{"RESET of the CAM", "RESET of the CAM"}));
  link.remove();
  EXPECT_EQ(link.history().resets, 2u);
  insert();
  EXPECT_FALSE(link.history().reset);
  EXPECT_EQ(link.history().resets, 0u);
}

TEST_F(CamLinkTest, AQueryIsNoCaPmt) {
  makeUsable();
  EXPECT_FALSE(link.history().caPmt);
  send({101}, cmdQuery);
  EXPECT_TRUE(link.history().sent);
  EXPECT_FALSE(link.history().caPmt);
  nowMs = 2000;
  send({101, 102}, cmdOkDescrambling);
  nowMs = 3000;
  send({101}, cmdQuery);
  EXPECT_TRUE(link.history().caPmt);
  EXPECT_EQ(link.history().caPmtMs, 2000u);
  EXPECT_EQ(link.history().sentMs, 3000u);
  insert();
  EXPECT_FALSE(link.history().caPmt);
}

TEST_F(CamLinkTest, RepliesHaveTheirTime) {
  makeUsable();
  send({101, 102}, cmdQuery);
  nowMs = 1200;
  say(reply(101, 0xF1));
  nowMs = 1300;
  say(reply(102, 0xF1));
  nowMs = 1400;
  say(reply(103, 0xF1));  // nobody asked
  const std::map<std::uint16_t, std::uint64_t> expected{{101, 1200}, {102, 1300}};
  EXPECT_EQ(link.history().repliedMs, expected);
  nowMs = 1500;
  say(reply(101, 0xF1));
  EXPECT_EQ(link.history().repliedMs.at(101), 1500u);
}

TEST_F(CamLinkTest, CamThatGoesDownByItselfStartsAgain) {
  makeUsable();
  cam.up = false;
  link.tick(nowMs);
  link.tick(nowMs + 10);
  EXPECT_EQ(link.insertStatus(), 2u);
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_EQ(events.count("CAM starts up"), 2);
  cam.up = true;
  say(info0500);
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_TRUE(takeFlag());
}

TEST_F(CamLinkTest, ForgettingCaSystemsAsksTheCamAnew) {
  makeUsable();
  link.forgetCaSystems();
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_EQ(link.insertStatus(), 2u);
  link.tick(nowMs);
  EXPECT_EQ(cam.received, std::vector<Apdu>{enquiry});
  say(info0500);
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_EQ(link.insertStatus(), 1u);
}

TEST_F(CamLinkTest, RemovalLeavesNothingOfTheCam) {
  makeUsable();
  send({101}, cmdQuery);
  say(reply(101, 0xF1));
  link.programsChanged();
  link.remove();
  EXPECT_EQ(link.insertStatus(), 0u);
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_TRUE(noAnswers());
  EXPECT_FALSE(takeFlag());
  EXPECT_EQ(events.count("CAM removed"), 1);
}

struct Hostile {
  Apdu apdu;
  std::string what;
};

TEST_F(CamLinkTest, HostileAnswersAreToldOncePerKindAndChangeNothing) {
  makeUsable();
  send({101}, cmdQuery);
  const Hostile cases[] = {{{}, "CAM sends unknown bytes, ignored"},
                           {{0x9F}, "CAM sends unknown bytes, ignored"},
                           {enquiry, "CAM sends unknown bytes, ignored"},
                           {{0x9F, 0x80, 0x31, 0x83}, "ca_info refused"},
                           {{0x9F, 0x80, 0x31, 0x05, 0x00}, "ca_info refused"},
                           {{0x9F, 0x80, 0x33}, "reply refused"},
                           {{0x9F, 0x80, 0x33, 0x05, 0, 101, 0, 0xF1, 0}, "reply refused"}};
  for (int round = 0; round < 5; ++round) {
    for (const Hostile &hostile : cases) {
      say(hostile.apdu);
      EXPECT_EQ(events.count(hostile.what), 1) << hostile.what;
    }
  }
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_TRUE(noAnswers());
  EXPECT_FALSE(takeFlag());
}

TEST_F(CamLinkTest, TroubleIsToldAnewAfterAReset) {
  makeUsable();
  say({});
  link.reset(nowMs);
  cam.up = true;
  say({});
  EXPECT_EQ(events.count("CAM sends unknown bytes, ignored"), 2);
}

TEST_F(CamLinkTest, ReplyWithTooManyStreamsIsCutAndTold) {
  makeUsable();
  send({101}, cmdQuery);
  Apdu apdu{0x9F, 0x80, 0x33, 0x81, 4 + 33 * 3, 0, 101, 0xC3, 0xF1};
  for (std::uint8_t s = 0; s < 33; ++s) {
    apdu.insert(apdu.end(), {0xE1, s, 0xF1});
  }
  say(apdu);
  EXPECT_EQ(answers.prog[0].eleNum, 32);
  EXPECT_EQ(answers.prog[1].progNum, 0);
  EXPECT_EQ(events.count("reply too long, cut"), 1);
}

TEST_F(CamLinkTest, ThirtyTwoQueriedProgramsAllFit) {
  makeUsable();
  std::vector<std::uint16_t> programs;
  for (std::uint16_t program = 1; program <= 32; ++program) {
    programs.push_back(program);
  }
  send(programs, cmdQuery);
  for (const std::uint16_t program : programs) {
    say(reply(program, 0xF1));
  }
  EXPECT_EQ(answers.progNum, 32);
  EXPECT_EQ(answers.prog[31].caEnable, 0x71);
  EXPECT_EQ(events.count("reply too long, cut"), 0);
}

TEST_F(CamLinkTest, EndlessTalkEndsTheTickAllTheSame) {
  link.insert(std::make_unique<ChatteringPort>());
  for (int tick = 0; tick < 100; ++tick) {
    link.tick(nowMs + 10 * static_cast<std::uint64_t>(tick));
  }
  EXPECT_EQ(link.insertStatus(), 2u);
  EXPECT_EQ(events.count("ca_info refused"), 1);
}

TEST_F(CamLinkTest, RandomAnswersNeverFloodTheHistory) {
  makeUsable();
  std::mt19937 random(22);
  for (int round = 0; round < 20000; ++round) {
    if (round % 1000 == 0) {
      send({1, 2, 3}, cmdQuery);
    }
    Apdu apdu(random() % 24);
    for (std::uint8_t &byte : apdu) {
      byte = static_cast<std::uint8_t>(random() % 4);
    }
    if (apdu.size() > 6) {
      apdu[0] = 0x9F;
      apdu[1] = 0x80;
      apdu[2] = static_cast<std::uint8_t>(0x31 + random() % 3);
      apdu[3] = static_cast<std::uint8_t>(apdu.size() - 4);
    }
    say(apdu);
  }
  EXPECT_GT(answers.progNum, 0);
  EXPECT_LE(answers.progNum, 3);
  EXPECT_TRUE(link.supports(0x0500));
  // 20 queries with 3 first replies each, and every kind of trouble once or twice.
  EXPECT_LT(events.lines.size(), 20 * 4 + 20u);
}

// A CAM of a receiver elsewhere: for the module it is there, and nothing reaches it.
TEST_F(CamLinkTest, AnObservedCamIsThereAndGetsNothing) {
  link.observe({0x0500, 0x0B00}, nullptr);
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_TRUE(link.supports(0x0B00));
  EXPECT_FALSE(link.supports(0x0600));
  EXPECT_TRUE(takeFlag());
  EXPECT_EQ(send({1, 2}, cmdOkDescrambling), 0);
  EXPECT_EQ(send({1}, cmdQuery), 0);
  EXPECT_FALSE(link.history().sent);
  link.forgetCaSystems();
  link.tick(nowMs + 60000);
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_TRUE(link.supports(0x0500));
  EXPECT_TRUE(noAnswers());
  EXPECT_TRUE(events.lines.empty());
  link.programsChanged();
  EXPECT_TRUE(takeFlag());
}

TEST_F(CamLinkTest, TheResetOfAnObservedCamIsOnlyTold) {
  int resets = 0;
  link.observe({0x0500}, [&resets] { ++resets; });
  EXPECT_TRUE(link.reset(nowMs));
  EXPECT_EQ(resets, 1);
  EXPECT_EQ(link.insertStatus(), 1u);
  EXPECT_EQ(link.history().resets, 1u);
  EXPECT_EQ(events.alerts, std::vector<std::string>{"the CAM would be reset"});
  EXPECT_EQ(events.why("the CAM would be reset"), "it is only observed; so far 1 time");
  link.observe({0x0600}, nullptr);  // by another CA system
  EXPECT_TRUE(link.reset(nowMs));
  EXPECT_EQ(resets, 1);
  EXPECT_EQ(link.history().resets, 2u) << "it is the same CAM";
}

TEST_F(CamLinkTest, AnObservedCamGivesWayToACam) {
  link.observe({0x0600}, nullptr);
  makeUsable();
  EXPECT_FALSE(link.supports(0x0600));
  link.observe({0x0600}, nullptr);
  EXPECT_FALSE(link.supports(0x0500));
  EXPECT_EQ(events.count("CAM removed"), 1);
  link.remove();
  EXPECT_EQ(link.insertStatus(), 0u);
  EXPECT_EQ(events.count("CAM removed"), 1) << "there was none of ours";
}

}  // namespace
}  // namespace chassis
