#include "supervision/Chassis.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "CiPlatform.h"
#include "base/InputError.h"
#include "card/Fpga.h"
#include "chassis/RecordedEvents.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;
using testing_events::RecordedEvents;

namespace chassis {
namespace {

constexpr std::uint64_t bitrate = 1504000;
constexpr unsigned caSystem = 0x0500;
constexpr unsigned ecmPid = 0x300;

// The CAMs of slot 1 of which what was told from `begin` on has this part.
std::set<int> camsOf(const RecordedEvents &events, const std::string &part, std::size_t begin) {
  std::set<int> cams;
  for (std::size_t i = begin; i < events.what.size(); ++i) {
    if (events.places[i].slot == 1 && events.what[i].find(part) != std::string::npos) {
      cams.insert(events.places[i].cam);
    }
  }
  return cams;
}

class Works : public Agenda {
 public:
  void at(std::uint64_t ms, std::function<void()> work) { works_.emplace(ms, std::move(work)); }
  void runDue(std::uint64_t nowMs) override {
    while (!works_.empty() && works_.begin()->first <= nowMs) {
      const auto work = works_.begin()->second;
      works_.erase(works_.begin());
      work();
    }
  }
  void ask(std::function<void()> question) { asks_.push_back(std::move(question)); }
  void serve() override {
    for (const auto &question : std::exchange(asks_, {})) {
      question();
      ++served_;
    }
  }
  int served() const { return served_; }

 private:
  std::vector<std::function<void()>> asks_;
  int served_ = 0;
  std::multimap<std::uint64_t, std::function<void()>> works_;
};

// One program of two streams with its ECMs at program level.
Bytes stream(unsigned program = 101) {
  StreamWriter writer;
  const ProgramMap map{
      program, 0x100, 0x201, {{0x02, 0x201, {}}, {0x03, 0x202, {}}}, caDescriptor(caSystem, ecmPid),
      0};
  for (int i = 0; i < 16; ++i) {
    writer.psi({map}).pes(0x201).pes(0x202).payload(ecmPid);
  }
  while (writer.packets() < 1000) {
    writer.null();
  }
  return writer.bytes();
}

// Ten seconds of it with a clock.
Bytes clocked() {
  StreamWriter writer;
  const ProgramMap map{
      101, 0x100, 0x201, {{0x02, 0x201, {}}, {0x03, 0x202, {}}}, caDescriptor(caSystem, ecmPid), 0};
  constexpr std::uint64_t pcrPerPacket = 27000;  // one packet in a ms
  while (writer.packets() < 10000) {
    writer.psi({map}).pes(0x201).pes(0x202).payload(ecmPid);
    writer.pcr(0x201, writer.packets() * pcrPerPacket);
    while (writer.packets() % 50 != 0) {
      writer.null();
    }
  }
  return writer.bytes();
}

class ChassisTest : public testing::Test {
 protected:
  ChassisTest() {
    chassis_.onChecked(
        [this](std::uint32_t slot) { checks_.emplace_back(clock_.elapsedMs(), slot); });
  }
  void insertWithTwoCams(std::uint32_t slot = 0) {
    insertCard(slot);
    chassis_.rack().progAssign(slot, 101, 3);
    chassis_.rack().camInsert(slot, 0, {caSystem});
    chassis_.rack().camInsert(slot, 1, {caSystem});
  }
  void insertCard(std::uint32_t slot) { chassis_.rack().cardInsert(slot, file_.path(), bitrate); }

  using Checks = std::vector<std::pair<std::uint64_t, std::uint32_t>>;
  TemporaryFile file_{stream()};
  RecordedEvents events_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
  Works works_;
  Checks checks_;
};

TEST_F(ChassisTest, BootsInOrder) {
  std::uint64_t loadedMs = 0;
  const auto listening = clock_.onTick([&loadedMs](std::uint64_t nowMs) {
    loadedMs = loadedMs == 0 && is_all_card_loaded == 1 ? nowMs : loadedMs;
  });
  works_.at(0, [this] {
    EXPECT_EQ(is_all_card_loaded, 0U);
    EXPECT_EQ(pCiData[0], nullptr);
    insertCard(0);
    EXPECT_NE(pCiData[0], nullptr);
  });
  chassis_.run(4500, works_);
  EXPECT_EQ(loadedMs, 2000U);
  EXPECT_EQ(checks_, (Checks{{2000, 0}, {3000, 0}, {4000, 0}}));
  EXPECT_EQ(clock_.elapsedMs(), 4500U);
}

TEST_F(ChassisTest, ACardWhoseStreamCannotBePlayedDoesNotRegister) {
  works_.at(0, [this] {
    EXPECT_THROW(chassis_.rack().cardInsert(0, "nowhere.ts", bitrate), InputError);
    EXPECT_EQ(pCiData[0], nullptr);
  });
  chassis_.run(100, works_);
}

TEST_F(ChassisTest, ChecksOnlyRegisteredCardsInTheOrderOfTheirSlots) {
  works_.at(0, [this] { insertCard(5); });
  works_.at(2500, [this] { insertCard(1); });
  chassis_.run(3500, works_);
  EXPECT_EQ(checks_, (Checks{{2000, 5}, {3000, 1}, {3000, 5}}));
}

TEST_F(ChassisTest, WorkRunsAtItsTimeAlsoDuringBoot) {
  std::vector<std::uint64_t> ran;
  const auto note = [this, &ran] { ran.push_back(clock_.elapsedMs()); };
  for (const std::uint64_t ms : {0, 500, 2005, 2500, 4000}) {
    works_.at(ms, note);
  }
  chassis_.run(4000, works_);
  EXPECT_EQ(ran, (std::vector<std::uint64_t>{0, 500, 2010, 2500, 4000}));
}

// The module pauses for a second before each CA PMT, here from 4 to 5 s and from 5 to 6 s.
TEST_F(ChassisTest, WorkRunsAtItsTimeWhileTheModulePauses) {
  works_.at(0, [this] { insertWithTwoCams(); });
  std::vector<std::uint64_t> ran;
  for (const std::uint64_t ms : {4100, 4600, 5300}) {
    works_.at(ms, [this, &ran] {
      EXPECT_TRUE(chassis_.supervising());
      ran.push_back(clock_.elapsedMs());
    });
  }
  chassis_.run(7000, works_);
  EXPECT_EQ(ran, (std::vector<std::uint64_t>{4100, 4600, 5300}));
}

TEST_F(ChassisTest, WhatAsksTheModuleIsServedBetweenCycles) {
  works_.at(0, [this] { insertWithTwoCams(); });
  works_.at(100, [this] { works_.ask([this] { EXPECT_EQ(clock_.elapsedMs(), 2000U); }); });
  works_.at(4500, [this] { works_.ask([this] { EXPECT_EQ(clock_.elapsedMs(), 6000U); }); });
  works_.at(6500, [this] { works_.ask([this] { EXPECT_FALSE(chassis_.supervising()); }); });
  chassis_.run(8000, works_);
  EXPECT_EQ(works_.served(), 3);
}

TEST_F(ChassisTest, TablesStayAsTheyAreUnderARunningCycle) {
  works_.at(0, [this] { insertWithTwoCams(); });
  works_.at(4500, [this] {
    const CiDesc before = *chassis_.card(0).descTable();
    const InPortForm form = *chassis_.card(0).inPortForm();
    chassis_.rack().progAssign(0, 101, 0);
    EXPECT_EQ(std::memcmp(&before, chassis_.card(0).descTable(), sizeof before), 0);
    const TemporaryFile other{stream(201)};
    chassis_.rack().cardInsert(0, other.path(), bitrate);
    EXPECT_EQ(std::memcmp(&before, chassis_.card(0).descTable(), sizeof before), 0);
    EXPECT_EQ(std::memcmp(&form, chassis_.card(0).inPortForm(), sizeof form), 0);
    chassis_.rack().progAssign(0, 201, 1);
  });
  chassis_.run(6500, works_);
  EXPECT_EQ(chassis_.card(0).descTable()->prog[0].prog_num, 101) << "the cycle ended at 6 s";
  chassis_.run(7500, works_);
  EXPECT_EQ(chassis_.card(0).descTable()->prog[0].prog_num, 201);
}

TEST_F(ChassisTest, AStoppedClockEndsTheRunWithinAPause) {
  works_.at(0, [this] { insertWithTwoCams(); });
  works_.at(4500, [this] { chassis_.stop(); });
  chassis_.run(8000, works_);
  EXPECT_EQ(clock_.elapsedMs(), 4500U);
  EXPECT_EQ(checks_.back(), (std::pair<std::uint64_t, std::uint32_t>(3000, 0)))
      << "what is left of the cycle finds nothing out";
}

TEST_F(ChassisTest, StoppedWhileItBootsItEndsToo) {
  works_.at(500, [this] { chassis_.stop(); });
  chassis_.run(8000, works_);
  EXPECT_EQ(clock_.elapsedMs(), 500U);
}

TEST_F(ChassisTest, WhatTheAgendaThrowsEndsTheRunAtItsTime) {
  works_.at(0, [this] { insertWithTwoCams(); });
  works_.at(4500, [] { throw InputError("wrong"); });
  EXPECT_THROW(chassis_.run(8000, works_), InputError);
  EXPECT_EQ(clock_.elapsedMs(), 4500U);
}

TEST(ChassisClock, GoesOnWithoutItsChassis) {
  RecordedEvents events;
  Clock clock;
  std::uint32_t loaded = 0;
  {
    Loop loop;
    const Chassis chassis(clock, events, loop);
  }
  clock.advance(300);
  loaded = is_all_card_loaded;
  EXPECT_EQ(loaded, 0U);
}

TEST_F(ChassisTest, RunGoesOnWhereItStopped) {
  works_.at(0, [this] { insertCard(0); });
  chassis_.run(2500, works_);
  chassis_.run(4001, works_);
  EXPECT_EQ(checks_, (Checks{{2000, 0}, {3000, 0}, {4000, 0}}));
}

TEST_F(ChassisTest, ALongCycleLeavesOutThoseThatItMissed) {
  works_.at(0, [this] { insertWithTwoCams(); });
  chassis_.run(8500, works_);
  EXPECT_EQ(events_.count("CA PMT sent"), 2U);
  EXPECT_EQ(checks_, (Checks{{2000, 0}, {3000, 0}, {6000, 0}, {7000, 0}, {8000, 0}}));
}

TEST_F(ChassisTest, ChangedProgramsAreTakenOverBeforeTheNextCheck) {
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().camInsert(0, 0, {caSystem});
  });
  works_.at(6500, [this] {
    EXPECT_EQ(DescStatus[0][0].pid[0].pid, nullPid);
    EXPECT_EQ(events_.count("CA PMT sent"), 0U);
    chassis_.rack().progAssign(0, 101, 1);
  });
  chassis_.run(8500, works_);
  EXPECT_EQ(DescStatus[0][0].pid[0].pid, 0x201);
  EXPECT_EQ(DescStatus[0][0].pid[1].pid, 0x202);
  EXPECT_EQ(events_.count("CA PMT sent: program 101"), 1U);
}

TEST_F(ChassisTest, ChangedProgramsSetThePreCamSwitch) {
  const auto passes = [this](unsigned pid) { return chassis_.card(0).fpga().passing.test(pid); };
  works_.at(0, [this] { insertCard(0); });
  works_.at(2500, [this, &passes] {
    EXPECT_FALSE(passes(0x201));
    EXPECT_FALSE(passes(ecmPid));
    EXPECT_FALSE(passes(nullPid));
    EXPECT_TRUE(passes(0x100));
    chassis_.rack().progAssign(0, 101, 1);
  });
  chassis_.run(3500, works_);
  for (const unsigned pid : {0x201U, 0x202U, ecmPid, 0x100U, 0U}) {
    EXPECT_TRUE(passes(pid)) << pid;
  }
  EXPECT_FALSE(passes(nullPid));
}

TEST_F(ChassisTest, CardThatIsNotReadyKeepsEveryPidFromItsCamsUntilItIs) {
  const auto passing = [this] { return chassis_.card(0).fpga().passing.count(); };
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().cardFault(0, CardFault::NotReady, true);
    chassis_.rack().progAssign(0, 101, 1);
  });
  works_.at(3500, [this, &passing] {
    EXPECT_EQ(passing(), 0U);
    chassis_.rack().cardFault(0, CardFault::NotReady, false);
  });
  works_.at(4500, [this, &passing] {
    EXPECT_EQ(passing(), pidCount - 1);
    testprefilter(0, 0x201, 0);
    chassis_.rack().cardFault(0, CardFault::NotReady, true);
  });
  works_.at(5500, [this] { chassis_.rack().cardFault(0, CardFault::NotReady, false); });
  chassis_.run(6500, works_);
  EXPECT_EQ(passing(), pidCount - 2) << "programs that stay as they are set nothing";
}

TEST_F(ChassisTest, AlarmsAreCheckedAfterTheStatus) {
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().progAssign(0, 101, 1);
  });
  chassis_.run(1999, works_);
  EXPECT_TRUE(chassis_.alarms().active().empty());
  chassis_.run(2500, works_);
  ASSERT_EQ(chassis_.alarms().active().size(), 1U) << "a CAM that was never there";
  EXPECT_EQ(events_.count("ALARM raised: CAM absent"), 1U);
  chassis_.rack().camInsert(0, 0, {caSystem});
  chassis_.run(4500, works_);
  EXPECT_TRUE(chassis_.alarms().active().empty());
}

TEST_F(ChassisTest, CardThatIsPulledOutTakesItsAlarmsWithIt) {
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().progAssign(0, 101, 1);
  });
  works_.at(4500, [this] {
    EXPECT_EQ(chassis_.alarms().active().size(), 1U);
    chassis_.rack().cardRemove(0);
  });
  chassis_.run(5500, works_);
  EXPECT_TRUE(chassis_.alarms().active().empty());
}

// The module complains of it once a second; why is the chassis's to say, once.
TEST_F(ChassisTest, FailingAlarmServiceIsTriedAgain) {
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().progAssign(0, 101, 1);
    chassis_.alarmFail(true);
  });
  works_.at(6500, [this] {
    EXPECT_EQ(events_.count("ALARM not raised: CAM absent"), 1U);
    EXPECT_TRUE(chassis_.alarms().active().empty());
    chassis_.alarmFail(false);
  });
  chassis_.run(7500, works_);
  EXPECT_EQ(chassis_.alarms().active().size(), 1U);
}

TEST_F(ChassisTest, CamComesUpAndGoes) {
  works_.at(0, [this] {
    insertCard(0);
    chassis_.rack().camInsert(0, 1, {caSystem});
    EXPECT_EQ(ciLibGetInsertCard(0, 1), 2U);
    EXPECT_EQ(ciLibGetInsertCard(0, 0), 0U);
  });
  chassis_.run(5000, works_);
  EXPECT_EQ(ciLibGetInsertCard(0, 1), 1U);
  EXPECT_EQ(ciLibCaSysIdMatch(static_cast<std::uint8_t>(ciLibGetCardIndex(0, 1)), caSystem), 0U);
  chassis_.rack().camRemove(0, 1);
  EXPECT_EQ(ciLibGetInsertCard(0, 1), 0U);
  chassis_.rack().camRemove(0, 1);
}

TEST_F(ChassisTest, WhatIsDoneToACamIsDoneToTheOneThatIsNamed) {
  works_.at(0, [this] { insertWithTwoCams(1); });
  chassis_.run(8000, works_);
  ASSERT_EQ(events_.count("CA PMT sent"), 2U);
  const auto query = [this](std::uint32_t camSlot) {
    caPMTSend(1, camSlot, caSystem, 0, 3);
    chassis_.run(clock_.elapsedMs() + 500, works_);
    return caPmtReplyInfo[MAX_CAM_NUM + camSlot].prog[0].caEnable;
  };
  ASSERT_EQ(query(0), 1);
  ASSERT_EQ(query(1), 1);
  for (const std::uint32_t named : {0U, 1U}) {
    const std::uint32_t other = 1 - named;
    chassis_.rack().camEntitle(1, named, 101, false);
    EXPECT_EQ(query(named), 0x71) << named;
    EXPECT_EQ(query(other), 1) << named;
    chassis_.rack().camRefuse(1, named, 101, true);
    EXPECT_EQ(query(named), 0x73) << named;
    EXPECT_EQ(query(other), 1) << named;
    chassis_.rack().camRefuse(1, named, 101, false);
    chassis_.rack().camEntitle(1, named, 101, true);
    EXPECT_EQ(query(named), 1) << named;
  }
  for (const std::uint32_t named : {0U, 1U}) {
    const std::size_t begin = events_.lines.size();
    chassis_.rack().camFault(1, named, CamFault::Deaf, true);
    EXPECT_EQ(camsOf(events_, "deaf", begin), std::set<int>{static_cast<int>(named)});
  }
}

TEST_F(ChassisTest, CardGoesWithItsCams) {
  insertCard(0);
  chassis_.rack().camInsert(0, 0, {caSystem});
  chassis_.rack().cardRemove(0);
  EXPECT_EQ(ciLibGetInsertCard(0, 0), 0U);
  EXPECT_FALSE(chassis_.card(0).inserted());
  EXPECT_NE(pCiData[0], nullptr);
  EXPECT_EQ(pCiData[0]->GetProgDesc(0), nullptr);
}

TEST_F(ChassisTest, FormsAreThoseOfTheCard) {
  EXPECT_EQ(GetInPortFormList(0, 0), nullptr);
  EXPECT_EQ(GetMuxCardFormList(0), nullptr);
  insertCard(0);
  chassis_.card(0).publishTables();
  ASSERT_NE(GetInPortFormList(0, 0), nullptr);
  EXPECT_EQ(GetInPortFormList(0, 0), chassis_.card(0).inPortForm());
  EXPECT_EQ(GetInPortFormList(0, 0)->ca[0].pid, ecmPid);
  EXPECT_EQ(GetMuxCardFormList(0), chassis_.card(0).muxForm());
  for (const std::uint32_t slot : {1U, 6U, 0xFFFFFFFFU}) {
    EXPECT_EQ(GetInPortFormList(slot, 0), nullptr);
    EXPECT_EQ(GetMuxCardFormList(slot), nullptr);
  }
}

// The sample's program is not scrambled: for the module a receiver that descrambles.
TEST_F(ChassisTest, AReceiverIsJudgedByTheModule) {
  int resets = 0;
  Rack::Probe probe;
  probe.before = file_.path();
  probe.behind = file_.path();
  probe.onReset = [&resets] { ++resets; };
  EXPECT_THROW(chassis_.rack().probeInsert(0, probe), InputError) << "no PCR tells its bitrate";
  const TemporaryFile both(clocked());
  probe.before = probe.behind = both.path();
  works_.at(0, [&] { chassis_.rack().probeInsert(0, probe); });
  chassis_.run(8000, works_);
  EXPECT_FALSE(clock_.live()) << "files are judged as fast as they can be read";
  EXPECT_EQ(events_.count("the receiver is judged by CA system 0x0500"), 1U);
  EXPECT_EQ(events_.count("CA PMT sent"), 0U);
  EXPECT_EQ(DescStatus[0][0].progStatus, DESC_STAT_OK);
  EXPECT_EQ(pCiData[0]->camInsert[0], 1U);
  EXPECT_FALSE(chassis_.rack().streamsEnded());
  chassis_.run(12000, works_);
  EXPECT_TRUE(chassis_.rack().streamsEnded());
  EXPECT_EQ(resets, 0);
}

}  // namespace
}  // namespace chassis
