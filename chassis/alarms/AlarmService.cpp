#include "alarms/AlarmService.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "alarms/AlarmText.h"

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

event::Alarm factsOf(const AlarmRecord &record) {
  return {alarmObject(record), alarmFault(record), alarmIdentifiers(record)};
}

}  // namespace

namespace chassis {

AlarmService::AlarmService(const Clock &clock, Events &events) : clock_(clock), events_(events) {}

void AlarmService::setFailing(bool on) {
  failing_ = on;
  told_.clear();
}

// The module tries again with every check.
void AlarmService::tellFailure(const AlarmRecord &record, Facts facts) {
  if (told_.insert({facts.index(), alarmIdentifiers(record)}).second) {
    events_.tell({alarmPlace(record), std::move(facts)});
  }
}

std::int32_t AlarmService::raise(const AlarmRecord *record) {
  if (failing_ && wellFormed(record)) {
    tellFailure(*record, event::AlarmNotRaised{factsOf(*record)});
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
  events_.tell({alarm.place, event::AlarmRaised{factsOf(alarm.record), alarm.index}});
  return alarm.index;
}

std::int32_t AlarmService::clear(std::int32_t index) {
  const auto found = active_.find(index);
  if (failing_ && found != active_.end()) {
    const AlarmRecord &record = found->second.record;
    tellFailure(record, event::AlarmNotCleared{factsOf(record)});
  }
  if (failing_ || found == active_.end()) {
    return failed;
  }
  Alarm alarm = found->second;
  active_.erase(found);
  alarm.clearedMs = clock_.elapsedMs();
  events_.tell({alarm.place, event::AlarmCleared{factsOf(alarm.record), index,
                                                 alarm.clearedMs - alarm.raisedMs}});
  history_.push_back(alarm);
  if (history_.size() > historyLength) {
    history_.pop_front();
  }
  return 0;
}

}  // namespace chassis
