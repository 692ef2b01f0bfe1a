#include "console/AlarmList.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(AlarmList, NamesWhatStandsAndSinceWhen) {
  EXPECT_EQ(standingAlarms({}, false), "no alarm stands\n");
  AlarmService::Alarm absent;
  absent.text = "slot 1, CAM 1: CAM absent [1 (2), 0x706, 0x703]";
  AlarmService::Alarm mismatch;
  mismatch.index = 2;
  mismatch.raisedMs = 1500;
  mismatch.text = "slot 1, CAM 0: CA system mismatch [1 (2), 0x705, 0x707]";
  const std::vector<AlarmService::Alarm> alarms{absent, mismatch};
  EXPECT_EQ(standingAlarms(alarms, false),
            "standing alarms:\n"
            "  alarm 0, since 00:00:00.000: slot 1, CAM 1: CAM absent [1 (2), 0x706, 0x703]\n"
            "  alarm 2, since 00:00:01.500: slot 1, CAM 0: CA system mismatch "
            "[1 (2), 0x705, 0x707]\n");
  EXPECT_EQ(standingAlarms(alarms, true).rfind("\033[1;37;41mstanding alarms:\033[0m\n", 0), 0u);
}

}  // namespace
}  // namespace chassis
