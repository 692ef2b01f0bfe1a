#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

constexpr uint32_t pairCount = 5;

// Raise and clear delay of CAM absent, CA PID absent, CI input, CA system mismatch, descrambling.
// CI input comes before CA system mismatch, other than in the order of the kinds.
constexpr uint32_t defaults[2 * pairCount] = {1000, 1000, 60000, 1000,  3000,
                                              3000, 3000, 3000,  12000, 3000};

uint32_t ciAlarmDlyTime[2 * pairCount];

}  // namespace

void ciAlarmDlyTimeInit(void) {
  for (uint32_t i = 0; i < 2 * pairCount; ++i) {
    ciAlarmDlyTime[i] = defaults[i];
  }
}

uint32_t ciif::alarmRaiseDelay(uint32_t pair) {
  return ciAlarmDlyTime[2 * pair];
}

uint32_t ciif::alarmClearDelay(uint32_t pair) {
  return ciAlarmDlyTime[2 * pair + 1];
}
