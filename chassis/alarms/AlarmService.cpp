#include "alarms/AlarmService.h"

#include <algorithm>
#include <limits>

#include "alarms/AlarmText.h"
#include "base/Text.h"

namespace {

using namespace chassis;

constexpr std::int32_t failed = -1;

bool wellFormed(const AlarmRecord *record) {
  return record != nullptr && (record->pairCount == 3 || record->pairCount == 5);
}

AlarmRecord copyOf(const AlarmRecord &record) {
  AlarmRecord copy{};
  copy.head = record.head;
  copy.pairCount = record.pairCount;
  std::copy_n(record.pairs, record.pairCount, copy.pairs);
  return copy;
}

// Of an alarm with no index yet, and of one.
std::vector<Fact> factsOf(const AlarmRecord &record) {
  return {{"object", alarmObject(record)},
          {"fault", alarmFault(record)},
          {"identifiers", alarmIdentifiers(record)}};
}

std::vector<Fact> factsOf(const AlarmService::Alarm &alarm) {
  std::vector<Fact> facts = factsOf(alarm.record);
  facts.push_back({"alarm", static_cast<std::uint64_t>(alarm.index)});
  return facts;
}

}  // namespace

namespace chassis {

AlarmService::AlarmService(const Clock &clock, Events &events) : clock_(clock), events_(events) {}

void AlarmService::setFailing(bool on) {
  failing_ = on;
  told_.clear();
}

// The module tries again with every check.
void AlarmService::tellFailure(EventKind kind, const AlarmRecord &record, const std::string &what) {
  if (told_.insert(what + alarmIdentifiers(record)).second) {
    events_.tell({kind, alarmPlace(record), what + alarmFault(record), "the alarm service fails",
                  factsOf(record), Tone::Alarm});
  }
}

std::int32_t AlarmService::raise(const AlarmRecord *record) {
  if (failing_ && wellFormed(record)) {
    tellFailure(EventKind::AlarmNotRaised, *record, "ALARM not raised: ");
  }
  if (failing_ || !wellFormed(record) || nextIndex_ == std::numeric_limits<std::int32_t>::max()) {
    return failed;
  }
  Alarm alarm;
  alarm.index = nextIndex_++;
  alarm.record = copyOf(*record);
  alarm.place = alarmPlace(alarm.record);
  alarm.text = alarmObject(alarm.record) + ": " + alarmFault(alarm.record) + " [" +
               alarmIdentifiers(alarm.record) + "]";
  alarm.raisedMs = clock_.elapsedMs();
  active_[alarm.index] = alarm;
  events_.tell(
      {EventKind::AlarmRaised, alarm.place, "ALARM raised: " + alarmFault(alarm.record),
       "alarm " + std::to_string(alarm.index) + ", identifiers " + alarmIdentifiers(alarm.record),
       factsOf(alarm), Tone::Alarm});
  return alarm.index;
}

std::int32_t AlarmService::clear(std::int32_t index) {
  const auto found = active_.find(index);
  if (failing_ && found != active_.end()) {
    tellFailure(EventKind::AlarmNotCleared, found->second.record, "ALARM not cleared: ");
  }
  if (failing_ || found == active_.end()) {
    return failed;
  }
  Alarm alarm = found->second;
  active_.erase(found);
  alarm.clearedMs = clock_.elapsedMs();
  const std::uint64_t stoodMs = alarm.clearedMs - alarm.raisedMs;
  std::vector<Fact> facts = factsOf(alarm);
  facts.push_back({"stood_ms", stoodMs});
  events_.tell({EventKind::AlarmCleared, alarm.place, "ALARM cleared: " + alarmFault(alarm.record),
                "alarm " + std::to_string(index) + ", stood for " + secondsText(stoodMs), facts});
  history_.push_back(alarm);
  if (history_.size() > historyLength) {
    history_.pop_front();
  }
  return 0;
}

}  // namespace chassis
