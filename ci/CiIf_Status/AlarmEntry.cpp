#include "CiIf_Status/AlarmChecks.h"
#include "CiIf_Status/Internal.h"

namespace {

struct Check {
  uint16_t kind;
  uint8_t camSlot;
};

// CA system mismatch comes before CA PID absent, other than in the order of the kinds.
constexpr Check checks[] = {
    {ALARM_KIND_CAM_ABSENT, 0},      {ALARM_KIND_CAM_ABSENT, 1},    {ALARM_KIND_CA_SYS_MISMATCH, 0},
    {ALARM_KIND_CA_SYS_MISMATCH, 1}, {ALARM_KIND_CA_PID_ABSENT, 0}, {ALARM_KIND_CA_PID_ABSENT, 1},
    {ALARM_KIND_CI_INPUT, 0},        {ALARM_KIND_DESCRAMBLE, 0},    {ALARM_KIND_DESCRAMBLE, 1},
};

}  // namespace

int32_t camAlarm(uint32_t slotNo) {
  int32_t result = 0;
  for (const Check &check : checks) {
    result = camAlarmCheck(slotNo, check.camSlot, check.kind);
  }
  return result;
}

int32_t camAlarmCheck(uint32_t slotNo, uint32_t camSlot, uint32_t kind) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const uint8_t cam = static_cast<uint8_t>(camSlot);
  if (slot >= MAX_BOARD_NUM) {
    printf("camAlarmCheck slotNo=%d err! \n", slot);
    return -1;
  }
  if (cam >= MAX_CAM_NUM) {
    printf("camAlarmCheck camSlot=%d err! \n", cam);
    return -1;
  }
  const CiData *card = pCiData[slot];
  if (card == nullptr) {
    printf("camAlarmCheck pCiData[%d] == NULL!! \n", slot);
    return -1;
  }
  AlarmMask mask;
  mask.cam[0] = card->CamAlarmMask(slot, 0);
  mask.cam[1] = card->CamAlarmMask(slot, 1);
  return runAlarmCheck(slot, cam, static_cast<uint16_t>(kind), mask);
}
