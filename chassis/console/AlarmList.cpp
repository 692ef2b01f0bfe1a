#include "console/AlarmList.h"

#include "console/Tone.h"

#include "status/Words.h"

namespace chassis {

std::string standingAlarms(const std::vector<AlarmService::Alarm> &alarms, bool colour,
                           std::size_t width) {
  if (alarms.empty()) {
    return "no alarm stands\n";
  }
  std::string text = toned("standing alarms:", Tone::Alarm, colour) + "\n";
  for (const AlarmService::Alarm &alarm : alarms) {
    text += "  alarm " + std::to_string(alarm.index) + ", since " + stampText(alarm.raisedMs) +
            ": " + alarm.text + "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
