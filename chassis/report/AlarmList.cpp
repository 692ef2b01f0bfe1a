#include "report/AlarmList.h"

#include "report/Words.h"

namespace chassis {

std::string standingAlarms(const AlarmService &alarms, std::size_t width) {
  if (alarms.active().empty()) {
    return "no alarm stands\n";
  }
  std::string text = "standing alarms:\n";
  for (const auto &[index, alarm] : alarms.active()) {
    text += "  alarm " + std::to_string(index) + ", since " + stampText(alarm.raisedMs) + ": " +
            alarm.text + "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
