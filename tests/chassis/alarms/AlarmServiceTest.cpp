#include "alarms/AlarmService.h"

#include <gtest/gtest.h>

#include <vector>

#include "alarms/AlarmText.h"
#include "status/EventWords.h"

namespace chassis {
namespace {

struct Line {
  Place place;
  std::string what;
  std::string why;
};

class Recorder : public Events {
 public:
  void tell(const Event &event) override {
    const EventWords words = wordsOf(event);
    lines.push_back({event.place, words.what, words.why});
    facts.push_back(event.facts);
  }
  std::vector<Line> lines;
  std::vector<Facts> facts;
};

AlarmRecord makeRecord(std::initializer_list<AlarmPair> pairs) {
  AlarmRecord record{};
  record.head = 1;
  record.pairCount = static_cast<std::uint8_t>(pairs.size());
  std::copy(pairs.begin(), pairs.end(), record.pairs);
  return record;
}

AlarmRecord camAbsent(int card, std::uint32_t cam) {
  return makeRecord({{1, card}, {cam, -1}, {0x703, -1}});
}

class AlarmServiceTest : public testing::Test {
 protected:
  Clock clock;
  Recorder events;
  AlarmService service{clock, events};
};

TEST_F(AlarmServiceTest, IndexesCountFromZeroAndAreNeverUsedAgain) {
  AlarmRecord record = camAbsent(1, 0x705);
  EXPECT_EQ(service.raise(&record), 0);
  EXPECT_EQ(service.raise(&record), 1);
  EXPECT_EQ(service.clear(0), 0);
  EXPECT_EQ(service.raise(&record), 2);
  EXPECT_EQ(service.active().size(), 2u);
  EXPECT_EQ(service.active().count(0), 0u);
}

TEST_F(AlarmServiceTest, KeepsWhenAnAlarmWasRaisedAndCleared) {
  AlarmRecord record = camAbsent(3, 0x706);
  clock.advance(150);
  const std::int32_t index = service.raise(&record);
  clock.advance(1230);
  EXPECT_TRUE(service.history().empty());
  EXPECT_EQ(service.active().at(index).raisedMs, 1500u);
  EXPECT_EQ(service.clear(index), 0);
  EXPECT_TRUE(service.active().empty());
  ASSERT_EQ(service.history().size(), 1u);
  EXPECT_EQ(service.history()[0].index, index);
  EXPECT_EQ(service.history()[0].raisedMs, 1500u);
  EXPECT_EQ(service.history()[0].clearedMs, 13800u);
}

TEST_F(AlarmServiceTest, TellsBothEndsOfAnAlarm) {
  AlarmRecord record = camAbsent(3, 0x706);
  service.raise(&record);
  clock.advance(1230);
  service.clear(0);
  ASSERT_EQ(events.lines.size(), 2u);
  EXPECT_EQ(events.lines[0].what, "ALARM raised: CAM absent");
  EXPECT_EQ(events.lines[0].why, "alarm 0, identifiers 1 (3), 0x706, 0x703");
  EXPECT_EQ(events.lines[1].what, "ALARM cleared: CAM absent");
  EXPECT_EQ(events.lines[1].why, "alarm 0, stood for 12.3 s");
  const auto &raised = std::get<event::AlarmRaised>(events.facts[0]);
  EXPECT_EQ(raised.index, 0);
  EXPECT_EQ(raised.alarm.object, "slot 2, CAM 1");
  EXPECT_EQ(std::get<event::AlarmCleared>(events.facts[1]).stoodMs, 12300U);
  for (const Line &line : events.lines) {
    EXPECT_EQ(line.place.slot, 2);
    EXPECT_EQ(line.place.cam, 1);
  }
}

TEST_F(AlarmServiceTest, ClearingAnUnknownOrClearedIndexFails) {
  AlarmRecord record = camAbsent(1, 0x705);
  service.raise(&record);
  EXPECT_EQ(service.clear(1), -1);
  EXPECT_EQ(service.clear(-1), -1);
  EXPECT_EQ(service.active().size(), 1u);
  EXPECT_EQ(service.clear(0), 0);
  EXPECT_EQ(service.clear(0), -1);
  EXPECT_EQ(service.history().size(), 1u);
}

TEST_F(AlarmServiceTest, RefusesNoRecordAndEveryOtherPairCount) {
  EXPECT_EQ(service.raise(nullptr), -1);
  for (int count = 0; count < 256; ++count) {
    AlarmRecord record = camAbsent(1, 0x705);
    record.pairCount = static_cast<std::uint8_t>(count);
    EXPECT_EQ(service.raise(&record) >= 0, count == 3 || count == 5) << count;
  }
  EXPECT_EQ(service.active().size(), 2u);
  EXPECT_EQ(events.lines.size(), 2u);
}

TEST_F(AlarmServiceTest, WhileItFailsNothingChanges) {
  AlarmRecord record = camAbsent(1, 0x705);
  service.raise(&record);
  events.lines.clear();
  service.setFailing(true);
  for (int attempt = 0; attempt < 3; ++attempt) {
    EXPECT_EQ(service.raise(&record), -1);
    EXPECT_EQ(service.raise(nullptr), -1);
    EXPECT_EQ(service.clear(0), -1);
    EXPECT_EQ(service.clear(1), -1);
  }
  EXPECT_EQ(service.active().size(), 1u);
  EXPECT_TRUE(service.history().empty());
  ASSERT_EQ(events.lines.size(), 2u);
  EXPECT_EQ(events.lines[0].what, "ALARM not raised: CAM absent");
  EXPECT_EQ(events.lines[1].what, "ALARM not cleared: CAM absent");
  service.setFailing(false);
  EXPECT_EQ(service.raise(&record), 1);
  EXPECT_EQ(service.clear(0), 0);
}

TEST_F(AlarmServiceTest, RecordIsTheCallers) {
  AlarmRecord record = camAbsent(1, 0x705);
  record.pairs[4] = {0x999, 7};
  service.raise(&record);
  record = camAbsent(2, 0x706);
  const AlarmService::Alarm &alarm = service.active().at(0);
  EXPECT_EQ(alarm.record.pairs[0].instance, 1);
  EXPECT_EQ(alarm.record.pairs[4].id, 0u);
  EXPECT_EQ(alarm.text, "slot 0, CAM 0: CAM absent [1 (1), 0x705, 0x703]");
}

TEST_F(AlarmServiceTest, HistoryForgetsTheOldest) {
  AlarmRecord record = camAbsent(1, 0x705);
  const auto more = static_cast<std::int32_t>(AlarmService::historyLength) + 1;
  for (std::int32_t index = 0; index < more; ++index) {
    ASSERT_EQ(service.raise(&record), index);
    ASSERT_EQ(service.clear(index), 0);
  }
  EXPECT_EQ(service.history().size(), AlarmService::historyLength);
  EXPECT_EQ(service.history().front().index, 1);
  EXPECT_EQ(service.history().back().index, more - 1);
}

struct Wording {
  AlarmRecord record;
  std::string object;
  std::string fault;
  std::string identifiers;
  Place place;
};

TEST(AlarmText, NamesSlotObjectAndFaultOfEveryKind) {
  const Wording wordings[] = {
      {makeRecord({{1, 1}, {0x705, -1}, {0x703, -1}}),
       "slot 0, CAM 0",
       "CAM absent",
       "1 (1), 0x705, 0x703",
       {0, 0}},
      {makeRecord({{1, 6}, {0x706, -1}, {0x708, -1}}),
       "slot 5, CAM 1",
       "CA PIDs missing before the CAM",
       "1 (6), 0x706, 0x708",
       {5, 1}},
      {makeRecord({{1, 2}, {0x705, -1}, {0x707, -1}}),
       "slot 1, CAM 0",
       "CA system mismatch",
       "1 (2), 0x705, 0x707",
       {1, 0}},
      {makeRecord({{1, 4}, {0x701, -1}, {0x111, -1}}),
       "slot 3, CI controller",
       "CI controller sync or rate",
       "1 (4), 0x701, 0x111",
       {3, -1}},
      {makeRecord({{1, 1}, {0x706, -1}, {0x702, -1}, {0x142, -1}, {0x714, -1}}),
       "slot 0, CAM 1",
       "descrambling failure",
       "1 (1), 0x706, 0x702, 0x142, 0x714",
       {0, 1}}};
  for (const Wording &wording : wordings) {
    EXPECT_EQ(alarmObject(wording.record), wording.object);
    EXPECT_EQ(alarmFault(wording.record), wording.fault);
    EXPECT_EQ(alarmIdentifiers(wording.record), wording.identifiers);
    EXPECT_EQ(alarmPlace(wording.record).slot, wording.place.slot);
    EXPECT_EQ(alarmPlace(wording.record).cam, wording.place.cam);
  }
}

TEST(AlarmText, TheObjectNamesTheCamAndNoFaultDoes) {
  for (const std::uint32_t fault : {0x703, 0x708, 0x707, 0x111, 0x702}) {
    EXPECT_EQ(alarmPlace(makeRecord({{1, 1}, {0x706, -1}, {fault, -1}})).cam, 1) << fault;
    EXPECT_EQ(alarmPlace(makeRecord({{1, 1}, {0x701, -1}, {fault, -1}})).cam, -1) << fault;
  }
}

TEST(AlarmText, UnknownIdentifiersAreShownAsTheyAre) {
  const AlarmRecord record = makeRecord({{2, 5}, {0x999, -1}, {0x12345678, 0}});
  EXPECT_EQ(alarmObject(record), "chassis");
  EXPECT_EQ(alarmFault(record), "fault 2 (5), 0x999, 0x12345678 (0)");
  EXPECT_EQ(alarmPlace(record).slot, -1);
  EXPECT_EQ(alarmPlace(record).cam, -1);
}

TEST(AlarmText, CardOutsideTheChassisHasNoPlace) {
  for (const int instance : {-1, 0, 7}) {
    EXPECT_EQ(alarmPlace(camAbsent(instance, 0x705)).slot, -1) << instance;
    EXPECT_EQ(alarmObject(camAbsent(instance, 0x705)), "no slot, CAM 0") << instance;
  }
}

}  // namespace
}  // namespace chassis
