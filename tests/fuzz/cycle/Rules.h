// What must hold whatever the hardware, the library and the CAMs answer. A broken rule ends the
// run.
#ifndef TESTS_FUZZ_CYCLE_RULES_H
#define TESTS_FUZZ_CYCLE_RULES_H

#include <cstdint>

#include "CiPlatform.h"

namespace rules {

struct Counts {
  uint32_t caPmts, queries, resets;
};
extern Counts counts;

// Called by the platform.
void caPmtSent(uint32_t slotNo, uint32_t camSlot, bool query);
void camReset(uint32_t slotNo, uint32_t camSlot, bool partial);
void pllLost(uint32_t slotNo, uint32_t camSlot);
int32_t alarmRaised(const AlarmRecord &record, bool fails);
void alarmCleared(int32_t index, bool fails);
void lockTaken();
void lockGiven();

// Around a cycle of a card; measured: the cycle went through to its end.
void cycleBegins();
void cycleEnded(uint32_t slotNo, const CiDesc *table, bool measured);

void checkStatus(uint8_t status);
bool anyAlarm(uint32_t slotNo);

}  // namespace rules

#endif
