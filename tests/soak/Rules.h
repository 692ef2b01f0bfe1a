// What must hold whatever the chassis does. A broken rule ends the program with the seed and step
// that lead to it.
#ifndef TESTS_SOAK_RULES_H
#define TESTS_SOAK_RULES_H

#include <cstdint>

#include "CiPlatform.h"

namespace rules {

extern uint64_t seed;
extern uint32_t step;

struct Counts {
  uint64_t caPmts, queries, resets, partialResets, raised, cleared;
};
extern Counts counts;

[[noreturn]] void broken(const char *rule, uint32_t slotNo, uint32_t camSlot);

// Called by the platform.
void caPmtSent(uint32_t slotNo, uint32_t camSlot, bool query);
void camReset(uint32_t slotNo, uint32_t camSlot, bool partial);
int32_t alarmRaised(const AlarmRecord &record);
void alarmCleared(int32_t index);
void lockTaken();
void lockGiven();

// Called after each cycle of a card.
void cycleEnded(uint32_t slotNo);

}  // namespace rules

#endif
