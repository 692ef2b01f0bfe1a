// The five alarm checks behind camAlarmCheck.
#ifndef ALARM_CHECKS_H
#define ALARM_CHECKS_H

#include "CiPlatform.h"

// What CamAlarmMask answers for the card's CAMs; non-zero holds a CAM's alarms clear.
struct AlarmMask {
  uint32_t cam[MAX_CAM_NUM];
};

// Runs the check of a kind: raises or clears its alarm when the delay has run out. slotNo 0..5,
// camSlot 0..1, a registered card. Returns what camAlarmCheck returns, 0 for an unknown kind.
int32_t runAlarmCheck(uint8_t slotNo, uint8_t camSlot, uint16_t kind, const AlarmMask &mask);

#endif
