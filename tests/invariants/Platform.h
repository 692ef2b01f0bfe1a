// A platform without a transcript: it answers as it is told to and tells the rules what the module
// does.
#ifndef TESTS_INVARIANTS_PLATFORM_H
#define TESTS_INVARIANTS_PLATFORM_H

#include <cstdint>

#include "Answers.h"
#include "Rules.h"

namespace lean {

extern uint32_t now;  // milliseconds; the module's pauses let it go on

// Registers all cards and runs the start-up task.
void start(Answers &answers, rules::Complaint complaint);

// The library wants a fresh CA PMT for a CAM.
void wantCaPmt(uint32_t slotNo, uint32_t camSlot);

// One cycle and the alarm checks of a card; table: what stands in its program table.
void supervise(uint32_t slotNo, const CiDesc &table);

// getDescStatWeb of the card.
void askStatus(uint32_t slotNo, uint32_t query);

}  // namespace lean

// What the module calls in place of malloc and printf.
extern "C" void *leanMalloc(size_t size);
extern "C" int leanPrintf(const char *format, ...);

#endif
