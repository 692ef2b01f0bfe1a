#include <gtest/gtest.h>

#include "chassis/PatientSink.h"
#include "chassis/StreamWriter.h"
#include "status/StatusJson.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

using namespace testing_streams;

namespace chassis {
namespace {

constexpr std::uint32_t slot = 2;
constexpr std::uint64_t bitrate = 1504000;

class Idle : public Agenda {
 public:
  void runDue(std::uint64_t) override {}
};

class SnapshotTest : public testing::Test {
 protected:
  void insertCard() {
    chassis_.rack().cardInsert(slot, file_.path(), bitrate);
    chassis_.rack().progAssign(slot, 101, 1);
  }
  void runUntil(std::uint64_t ms) { chassis_.run(ms, agenda_); }
  std::shared_ptr<const CardFinding> card() const { return watch_.snapshot()->cards[slot]; }

  TemporaryFile file_{oneProgram()};
  EventFan events_;
  Clock clock_;
  Loop loop_;
  Chassis chassis_{clock_, events_, loop_};
  StatusWatch watch_{chassis_, events_};
  Idle agenda_;
};

TEST_F(SnapshotTest, AnEmptyRackHasNoCard) {
  runUntil(2500);
  const auto snapshot = watch_.snapshot();
  EXPECT_EQ(snapshot->takenMs, 2500U);
  for (const auto &each : snapshot->cards) {
    EXPECT_EQ(each, nullptr);
  }
  EXPECT_TRUE(snapshot->alarms.empty());
}

TEST_F(SnapshotTest, ACardThatIsNotCheckedYetIsKnownByItsStream) {
  insertCard();
  clock_.advance(100);
  ASSERT_NE(card(), nullptr);
  EXPECT_FALSE(card()->checked);
  EXPECT_EQ(card()->slot, slot);
  EXPECT_EQ(card()->input.name, file_.path());
  ASSERT_EQ(card()->programs.size(), 1U);
  EXPECT_EQ(card()->programs[0].number, 101);
  EXPECT_EQ(card()->programs[0].status, DESC_STAT_UNKNOWN);
}

TEST_F(SnapshotTest, ItHasWhatTheLastCheckFound) {
  insertCard();
  runUntil(2500);
  EXPECT_TRUE(card()->checked);
  const std::uint64_t taken = card()->takenMs;
  EXPECT_EQ(taken, 2000U);
  const std::uint64_t packets = card()->input.counters.packets;
  runUntil(2900);
  EXPECT_EQ(card()->takenMs, taken);
  EXPECT_EQ(card()->input.counters.packets, packets);
  runUntil(3500);
  EXPECT_EQ(card()->takenMs, 3000U);
  EXPECT_GT(card()->input.counters.packets, packets);
}

TEST_F(SnapshotTest, OneThatIsKeptStaysAsItIs) {
  insertCard();
  runUntil(2500);
  const auto kept = watch_.snapshot();
  ASSERT_EQ(kept->alarms.size(), 1U) << "the CAM is absent";
  chassis_.rack().cardRemove(slot);
  runUntil(9000);
  EXPECT_EQ(kept->takenMs, 2500U);
  EXPECT_EQ(kept->alarms.size(), 1U);
  ASSERT_NE(kept->cards[slot], nullptr);
  EXPECT_EQ(kept->cards[slot]->takenMs, 2000U);
  EXPECT_EQ(kept->cards[slot]->programs.size(), 1U);
  EXPECT_EQ(card(), nullptr);
  EXPECT_TRUE(watch_.snapshot()->alarms.empty());
}

TEST_F(SnapshotTest, ACardOfAnotherInsertionIsNotTakenForTheOneBefore) {
  insertCard();
  runUntil(2500);
  insertCard();
  EXPECT_FALSE(card()->checked);
  EXPECT_EQ(card()->input.counters.packets, 0U);
}

TEST_F(SnapshotTest, ACamHasWhatTheLibraryNotes) {
  insertCard();
  chassis_.rack().camInsert(slot, 1, {0x0500, 0x0B00});
  runUntil(4000);
  const CardCams cams = watch_.snapshot()->cams[slot];
  EXPECT_FALSE(cams[0].inserted);
  EXPECT_TRUE(cams[1].inserted);
  EXPECT_EQ(cams[1].caSystems, (std::vector<std::uint16_t>{0x0500, 0x0B00}));
  EXPECT_EQ(cams[1].history.resets, 0U);
}

TEST_F(SnapshotTest, WhoeverReadsItMakesNobodyWork) {
  insertCard();
  std::uint64_t written = 0;
  chassis_.card(slot).setOutput(std::make_unique<PatientSink>(written));
  runUntil(2500);
  const std::uint64_t before = written;
  EXPECT_NE(statusJson(*watch_.snapshot(), {}, 0).find("\"slot\": 2"), std::string::npos);
  EXPECT_EQ(written, before) << "it has been descrambled for the reader";
  watch_.lookAtLast();
  EXPECT_GT(written, before) << "half a second has been waiting";
}

TEST_F(SnapshotTest, AtTheEndOfARunItIsOfThatMoment) {
  insertCard();
  runUntil(2500);
  std::uint64_t told = 0;
  class Count : public Events {
   public:
    explicit Count(std::uint64_t &count) : count_(count) {}
    void tell(const Event &) override { ++count_; }

   private:
    std::uint64_t &count_;
  } count(told);
  events_.add(count);
  watch_.lookAtLast();
  EXPECT_EQ(card()->takenMs, 2500U);
  EXPECT_EQ(told, 0U);
  events_.remove(count);
}

}  // namespace
}  // namespace chassis
