#include "console/AlarmList.h"

#include "console/Tone.h"

#include "status/Words.h"

namespace chassis {

std::string standingAlarms(const AlarmService &alarms, bool colour, std::size_t width) {
  if (alarms.active().empty()) {
    return "no alarm stands\n";
  }
  std::string text = toned("standing alarms:", Tone::Alarm, colour) + "\n";
  for (const auto &[index, alarm] : alarms.active()) {
    text += "  alarm " + std::to_string(index) + ", since " + stampText(alarm.raisedMs) + ": " +
            alarm.text + "\n";
  }
  return fitted(text, width);
}

}  // namespace chassis
