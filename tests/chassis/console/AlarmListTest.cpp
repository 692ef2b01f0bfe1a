#include "console/AlarmList.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(AlarmList, NamesWhatStandsAndSinceWhen) {
  Clock clock;
  EventFan events;
  AlarmService service(clock, events);
  EXPECT_EQ(standingAlarms(service, false), "no alarm stands\n");
  AlarmRecord record{};
  record.pairCount = 3;
  record.pairs[0] = {1, 2};
  record.pairs[1] = {0x706, -1};
  record.pairs[2] = {0x703, -1};
  service.raise(&record);
  clock.advance(150);
  record.pairs[1].id = 0x705;
  service.raise(&record);
  record.pairs[2].id = 0x707;
  service.raise(&record);
  service.clear(1);
  EXPECT_EQ(standingAlarms(service, false),
            "standing alarms:\n"
            "  alarm 0, since 00:00:00.000: slot 1, CAM 1: CAM absent [1 (2), 0x706, 0x703]\n"
            "  alarm 2, since 00:00:01.500: slot 1, CAM 0: CA system mismatch "
            "[1 (2), 0x705, 0x707]\n");
  EXPECT_EQ(standingAlarms(service, true).rfind("\033[1;37;41mstanding alarms:\033[0m\n", 0), 0u);
}

}  // namespace
}  // namespace chassis
