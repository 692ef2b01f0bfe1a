// The chassis's alarm service: keeps the alarms that the module raises and clears.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "CiPlatform.h"
#include "event/Event.h"
#include "kernel/Clock.h"

namespace chassis {

class AlarmService {
 public:
  struct Alarm {
    std::int32_t index = 0;
    AlarmRecord record{};  // pairs beyond the count are zero
    Place place;
    std::string text;  // card, object and fault in words, and the identifiers
    std::uint64_t raisedMs = 0;
    std::uint64_t clearedMs = 0;  // in the history
  };

  static constexpr std::size_t historyLength = 1000;  // the oldest ones are forgotten

  AlarmService(const Clock &clock, Events &events);
  AlarmService(const AlarmService &) = delete;
  AlarmService &operator=(const AlarmService &) = delete;

  // While it is failing, nothing is raised or cleared, and both calls answer -1. Each alarm
  // that fails is told once.
  void setFailing(bool on);

  // Returns the alarm's index, counted from 0 and never used again; -1: no record, or a record
  // with other than 3 or 5 pairs.
  std::int32_t raise(const AlarmRecord *record);
  std::int32_t clear(std::int32_t index);  // 0; -1: no such alarm stands

  const std::map<std::int32_t, Alarm> &active() const { return active_; }  // by index
  const std::deque<Alarm> &history() const { return history_; }            // as they were cleared

 private:
  void tellFailure(const AlarmRecord &record, Facts facts);

  const Clock &clock_;
  Events &events_;
  bool failing_ = false;
  std::set<std::pair<std::size_t, std::string>> told_;  // while it is failing, by kind
  std::int32_t nextIndex_ = 0;
  std::map<std::int32_t, Alarm> active_;
  std::deque<Alarm> history_;
};

}  // namespace chassis
