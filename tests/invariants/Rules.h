// What must hold whatever the hardware, the library and the CAMs answer.
#ifndef TESTS_INVARIANTS_RULES_H
#define TESTS_INVARIANTS_RULES_H

#include <cstdint>

#include "CiPlatform.h"

namespace rules {

enum class Rule {
  otherCard,
  noSuchCam,
  foreignIndex,
  lockLimited,
  lockTwice,
  lockUntaken,
  lockKept,
  flagWaitedFor,
  flagGiven,
  sendUnlocked,
  sendTooMany,
  sendBeyondLimits,
  queryTooSoon,
  resetTooSoon,
  resetUntold,
  resetTwice,
  resetRepeatedTooSoon,
  clockOfNoCam,
  alarmUnknown,
  alarmTwice,
  alarmNotStanding,
  alarmAnswer,
  findingNoCode,
  statusNoCode,
  notTheWorst,
  memory,
  limitChanged,
  count
};

const char *text(Rule rule);

// Told of a broken rule, and which CAM was concerned; what does not concern one CAM gives its CAM
// A. It may return: the rules go on.
using Complaint = void (*)(Rule rule, uint32_t slotNo, uint32_t camSlot);

struct Counts {
  uint64_t caPmts, queries, resets, partialResets, raised, cleared, pidsRead, records;
};
extern Counts counts;

// As at the start of a program: nothing has happened.
void begin(Complaint complaint);

// The card that the module is to deal with from now on.
void choose(uint32_t slotNo);

// What the platform is asked for and told. Of a card or a CAM that there is not, asked answers no,
// and the others note nothing.
bool asked(uint32_t slotNo);
bool asked(uint32_t slotNo, uint32_t camSlot);
void indexGiven(uint32_t slotNo, uint32_t camSlot, uint32_t index);
void indexUsed(uint8_t index);
void lockTaken(int timeout);
void lockGiven();
void flagTaken(uint32_t index, int timeout);
void flagGiven(uint32_t index);
void caPmtSent(uint32_t slotNo, uint32_t camSlot, CaPmtProg *const *records, uint32_t count,
               bool query);
void camReset(uint32_t slotNo, uint32_t camSlot, const char *reason);
int32_t alarmRaised(const AlarmRecord &record, bool fails);  // its index, negative when it fails
void alarmCleared(int32_t index, bool fails);
void memoryTaken(size_t size);
void pidRead();

// What tells how far a cycle has come: with the presence flags cleared its resets follow, where
// each CAM asks once whether its card is online, and then for the clock.
void presenceCleared();
void onlineAsked();
void clockRead(uint32_t slotNo, uint32_t value);

// Around a registration, and a cycle of a card.
void registrationBegins();
void registrationEnds();
void cycleBegins(uint32_t slotNo);
void cycleEnded(uint32_t slotNo, const CiDesc &table);

// What the module answers.
void checkStatus(uint8_t status);
void checkAlarmAnswer(int32_t answer);

bool anyAlarm(uint32_t slotNo);

}  // namespace rules

#endif
