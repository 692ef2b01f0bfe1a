// What the files of the source unit CiIf_Status share: guards, tests and walks written once.
#ifndef CIIF_STATUS_INTERNAL_H
#define CIIF_STATUS_INTERNAL_H

#include "CiCommon.h"
#include "CiIf_Status/CiIf_Status.h"
#include "CiPlatform.h"

namespace ciif {

// The unit's path in messages.
constexpr char statusUnit[] = "../../CiIf_Status";

// The card's program table for a query that reports in its own name.
inline CiDesc *namedDesc(uint32_t slotNo, const char *query) {
  if (pCiData[slotNo] == nullptr) {
    printf("%s pCiData==NULL! \n", query);
    return nullptr;
  }
  CiDesc *pdesc = pCiData[slotNo]->GetProgDesc(slotNo);
  if (pdesc == nullptr) {
    printf("%s pdesc==NULL! \n", query);
  }
  return pdesc;
}

// Online, not busy and ready, asked afresh and in this order at every use.
inline bool cardReady(uint32_t slotNo) {
  const CiData *card = pCiData[slotNo];
  return card->GetCardOnline(slotNo) == 1 && card->GetCardBusy(slotNo) == 0 &&
         card->GetCardReady(slotNo) == 1;
}

// Insert status of a CAM, 0 not inserted.
inline uint8_t insertStatus(uint32_t slotNo, uint32_t camSlot) {
  return static_cast<uint8_t>(ciLibGetInsertCard(slotNo, camSlot));
}

inline char camLetter(uint32_t camSlot) {
  return static_cast<char>('A' + camSlot);
}

// Suspends the task for a number of milliseconds.
inline void pauseMs(int ms) {
  taskDelay(sysClkRateGet() * ms / 1000);
}

// Whether more than `limit` milliseconds have passed since a stamp.
inline bool longerThan(uint32_t limit, uint32_t stamp) {
  return get_inc_of_time(stamp) > limit;
}

// Whether the CAM has had TIME_CAPMT for its last CA PMT and its last query.
bool caPmtQuiet(uint8_t slotNo, uint8_t camSlot);

// Delays of an alarm kind, by pair: how long a fault lasts before the alarm is raised, and how long
// it is gone before the alarm is cleared. Milliseconds; 0 until ciAlarmDlyTimeInit.
uint32_t alarmRaiseDelay(uint32_t pair);
uint32_t alarmClearDelay(uint32_t pair);

}  // namespace ciif

#endif
