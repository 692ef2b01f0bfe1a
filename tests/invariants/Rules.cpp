#include "Rules.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "Findings.h"

namespace rules {

Counts counts;

namespace {

constexpr const char *texts[] = {
    "another card is touched",
    "a CAM is asked for that there is not",
    "an index is used that the library did not give",
    "lock taken with a limit",
    "lock taken twice",
    "lock given untaken",
    "lock kept",
    "flag waited for",
    "flag given by the module",
    "CA PMT sent without the lock",
    "more CA PMT records sent than there are",
    "CA PMT record out of its limits",
    "query too soon behind a CA PMT",
    "reset too soon behind a CA PMT",
    "reset without a reason",
    "second first or partial reset before re-arming",
    "reset repeated too soon",
    "clock asked for no CAM",
    "unknown alarm",
    "alarm raised twice",
    "alarm cleared that does not stand",
    "another answer of the alarm checks",
    "finding that is no code",
    "status that is no code",
    "program status that is not its worst PID's",
    "memory taken beside the cards' records",
    "limit changed by the module",
};
static_assert(std::size(texts) == static_cast<size_t>(Rule::count), "one text per rule");

// What the service may be told: by what stands in the second pair and behind it.
struct KnownAlarm {
  uint32_t object, fault;
  uint8_t pairCount;
};

constexpr KnownAlarm knownAlarms[] = {
    {0x705, 0x703, 3}, {0x706, 0x703, 3}, {0x705, 0x708, 3}, {0x706, 0x708, 3}, {0x705, 0x707, 3},
    {0x706, 0x707, 3}, {0x701, 0x111, 3}, {0x705, 0x702, 5}, {0x706, 0x702, 5},
};
constexpr int32_t alarmKinds = std::size(knownAlarms);

// By the beginning of the text that announces it. What comes once waits for a clean spell to come
// again.
enum ResetKind : uint8_t { partial, first, repeat, resetKinds };
constexpr const char *resetTexts[resetKinds] = {
    "partial programs error", "all programs error, first", "all programs error, repeat"};

constexpr uint32_t noIndex = ~0u;

struct Cam {
  uint32_t index = noIndex;  // that the library gave
  bool sent = false;         // a CA PMT or query, at
  uint32_t sentAt = 0;
  bool spent[resetKinds] = {};
  uint32_t resetAt = 0;    // for all programs
  bool clockLost = false;  // in this cycle
  uint32_t lastFaultAt = 0;
};

struct Limits {
  uint32_t ms[5];
};

struct State {
  Complaint complaint = nullptr;
  uint32_t slotNo = 0;
  bool locked = false;
  bool inCycle = false;
  bool resetting = false;     // behind the measurements of a cycle
  uint32_t onlineChecks = 0;  // since then: one for each CAM
  uint32_t recordsDue = 0;
  Limits limits = {};
  Cam cams[MAX_BOARD_NUM][MAX_CAM_NUM];
  bool standing[MAX_BOARD_NUM][alarmKinds] = {};
};

State state;

bool require(bool holds, Rule rule, uint32_t slotNo, uint32_t camSlot = 0) {
  if (!holds) {
    state.complaint(rule, slotNo, camSlot);
  }
  return holds;
}

bool exists(uint32_t slotNo, uint32_t camSlot = 0) {
  return slotNo < MAX_BOARD_NUM && camSlot < MAX_CAM_NUM;
}

Limits limitsNow() {
  return {{TIME_CAPMT, TIME_FIRST_RESET, TIME_RESET, TIME_PART_RESET, TIME_NO_RESET}};
}

bool longerThan(uint32_t limit, uint32_t stamp) {
  return OSTimeGet() - stamp > limit;
}

bool quiet(const Cam &cam) {
  return !cam.sent || longerThan(TIME_CAPMT, cam.sentAt);
}

ResetKind resetKind(const char *reason) {
  const auto announces = [reason](const char *text) {
    return std::strncmp(reason, text, std::strlen(text)) == 0;
  };
  const auto *found = std::find_if(std::begin(resetTexts), std::end(resetTexts), announces);
  return static_cast<ResetKind>(found - resetTexts);
}

// The place of an alarm among the known ones, alarmKinds if it is none of them.
int32_t kindOf(const AlarmRecord &record) {
  const auto same = [&record](const KnownAlarm &known) {
    return record.pairs[1].id == known.object && record.pairs[2].id == known.fault &&
           record.pairCount == known.pairCount;
  };
  const auto *found = std::find_if(std::begin(knownAlarms), std::end(knownAlarms), same);
  return static_cast<int32_t>(found - knownAlarms);
}

bool &stands(int32_t index) {
  return state.standing[index / alarmKinds][index % alarmKinds];
}

// A clean cycle arms again when the last fault is more than TIME_NO_RESET ago.
void trackArming(const CiData &card, uint32_t slotNo, uint32_t camSlot) {
  Cam &cam = state.cams[slotNo][camSlot];
  if (isFault(card, camSlot) || cam.clockLost) {
    cam.lastFaultAt = OSTimeGet();
  } else if (card.descStat[camSlot] == DESC_SUM_OK && longerThan(TIME_NO_RESET, cam.lastFaultAt)) {
    std::fill(std::begin(cam.spent), std::end(cam.spent), false);
  }
}

void checkRows(uint32_t slotNo, const CiDesc &table) {
  for (uint32_t p = 0; p < table.descProgCnt; ++p) {
    const DescProgStat &row = DescStatus[slotNo][p];
    require(haveStatuses(row, table.prog[p]), Rule::statusNoCode, slotNo);
    require(isOfItsWorst(row, table.prog[p]), Rule::notTheWorst, slotNo);
  }
}

}  // namespace

const char *text(Rule rule) {
  return texts[static_cast<size_t>(rule)];
}

void begin(Complaint complaint) {
  state = State();
  state.complaint = complaint;
  counts = {};
}

void choose(uint32_t slotNo) {
  state.slotNo = slotNo;
}

// ------------------------------------------------------------------------------------------------
// Whom the module speaks of
// ------------------------------------------------------------------------------------------------

bool asked(uint32_t slotNo) {
  require(slotNo == state.slotNo, Rule::otherCard, slotNo);
  return exists(slotNo);
}

bool asked(uint32_t slotNo, uint32_t camSlot) {
  const bool card = asked(slotNo);
  return require(camSlot < MAX_CAM_NUM, Rule::noSuchCam, slotNo, camSlot) && card;
}

void indexGiven(uint32_t slotNo, uint32_t camSlot, uint32_t index) {
  if (exists(slotNo, camSlot)) {
    state.cams[slotNo][camSlot].index = index;
  }
}

void indexUsed(uint8_t index) {
  const auto gave = [index](const Cam &cam) { return cam.index == index; };
  const Cam(&cams)[MAX_CAM_NUM] = state.cams[state.slotNo];
  require(std::any_of(std::begin(cams), std::end(cams), gave), Rule::foreignIndex, state.slotNo);
}

// ------------------------------------------------------------------------------------------------
// Semaphores
// ------------------------------------------------------------------------------------------------

void lockTaken(int timeout) {
  require(timeout == -1, Rule::lockLimited, state.slotNo);
  require(!state.locked, Rule::lockTwice, state.slotNo);
  state.locked = true;
}

void lockGiven() {
  require(state.locked, Rule::lockUntaken, state.slotNo);
  state.locked = false;
}

void flagTaken(uint32_t index, int timeout) {
  asked(index / MAX_CAM_NUM);
  require(timeout == 0, Rule::flagWaitedFor, index / MAX_CAM_NUM, index % MAX_CAM_NUM);
}

void flagGiven(uint32_t index) {
  require(false, Rule::flagGiven, index / MAX_CAM_NUM, index % MAX_CAM_NUM);
}

// ------------------------------------------------------------------------------------------------
// CA PMTs and resets
// ------------------------------------------------------------------------------------------------

void caPmtSent(uint32_t slotNo, uint32_t camSlot, CaPmtProg *const *records, uint32_t count,
               bool query) {
  if (!exists(slotNo, camSlot)) {
    return;
  }
  require(state.locked, Rule::sendUnlocked, slotNo, camSlot);
  if (require(count <= 32, Rule::sendTooMany, slotNo, camSlot)) {
    const auto sound = [](const CaPmtProg *record) { return isWithinLimits(*record); };
    require(std::all_of(records, records + count, sound), Rule::sendBeyondLimits, slotNo, camSlot);
  }
  ++(query ? counts.queries : counts.caPmts);
  // The quiet time is the scheduler's: what a person sends from the console does not start it.
  if (state.inCycle) {
    Cam &cam = state.cams[slotNo][camSlot];
    require(!query || quiet(cam), Rule::queryTooSoon, slotNo, camSlot);
    cam.sent = true;
    cam.sentAt = OSTimeGet();
  }
}

void camReset(uint32_t slotNo, uint32_t camSlot, const char *reason) {
  if (!exists(slotNo, camSlot)) {
    return;
  }
  ++counts.resets;
  Cam &cam = state.cams[slotNo][camSlot];
  require(quiet(cam), Rule::resetTooSoon, slotNo, camSlot);
  const ResetKind kind = resetKind(reason);
  if (!require(kind != resetKinds, Rule::resetUntold, slotNo, camSlot)) {
    return;
  }
  counts.partialResets += kind == partial;
  if (kind == repeat) {
    require(cam.spent[first] && longerThan(TIME_RESET, cam.resetAt), Rule::resetRepeatedTooSoon,
            slotNo, camSlot);
  } else {
    require(!cam.spent[kind], Rule::resetTwice, slotNo, camSlot);
  }
  cam.spent[kind] = true;
  cam.resetAt = kind == partial ? cam.resetAt : OSTimeGet();
}

// ------------------------------------------------------------------------------------------------
// Alarms
// ------------------------------------------------------------------------------------------------

int32_t alarmRaised(const AlarmRecord &record, bool fails) {
  const uint32_t slotNo = static_cast<uint32_t>(record.pairs[0].instance) - 1;
  const int32_t kind = kindOf(record);
  const bool known =
      record.head == 1 && record.pairs[0].id == 1 && slotNo < MAX_BOARD_NUM && kind != alarmKinds;
  if (!require(known, Rule::alarmUnknown, state.slotNo)) {
    return -1;
  }
  asked(slotNo);
  const int32_t index = static_cast<int32_t>(slotNo) * alarmKinds + kind;
  require(!stands(index), Rule::alarmTwice, slotNo);
  if (fails) {
    return -1;
  }
  ++counts.raised;
  stands(index) = true;
  return index;
}

void alarmCleared(int32_t index, bool fails) {
  const bool known = index >= 0 && index < static_cast<int32_t>(MAX_BOARD_NUM) * alarmKinds;
  if (!require(known && stands(index), Rule::alarmNotStanding, state.slotNo)) {
    return;
  }
  asked(static_cast<uint32_t>(index / alarmKinds));
  counts.cleared += !fails;
  stands(index) = fails;
}

void checkAlarmAnswer(int32_t answer) {
  require(answer >= -1 && answer <= 1, Rule::alarmAnswer, state.slotNo);
}

bool anyAlarm(uint32_t slotNo) {
  const bool(&standing)[alarmKinds] = state.standing[slotNo];
  return std::find(std::begin(standing), std::end(standing), true) != std::end(standing);
}

// ------------------------------------------------------------------------------------------------
// Memory
// ------------------------------------------------------------------------------------------------

void registrationBegins() {
  state.recordsDue = 1;
}

void memoryTaken(size_t size) {
  require(state.recordsDue != 0 && size == sizeof(CiData), Rule::memory, state.slotNo);
  state.recordsDue = 0;
  ++counts.records;
}

void registrationEnds() {
  state.recordsDue = 0;
}

// ------------------------------------------------------------------------------------------------
// Cycles
// ------------------------------------------------------------------------------------------------

void cycleBegins(uint32_t slotNo) {
  choose(slotNo);
  state.inCycle = true;
  state.resetting = false;
  state.limits = limitsNow();
  for (Cam &cam : state.cams[slotNo]) {
    cam.clockLost = false;
  }
}

void pidRead() {
  ++counts.pidsRead;
}

void presenceCleared() {
  state.resetting = true;
  state.onlineChecks = 0;
}

void onlineAsked() {
  state.onlineChecks += state.resetting;
}

void clockRead(uint32_t slotNo, uint32_t value) {
  const uint32_t camSlot = state.onlineChecks - 1;
  const bool ofOne = state.resetting && camSlot < MAX_CAM_NUM;
  if (require(ofOne, Rule::clockOfNoCam, slotNo) && exists(slotNo)) {
    Cam &cam = state.cams[slotNo][camSlot];
    cam.clockLost = cam.clockLost || (value & 0xFF) == 0;
  }
}

void cycleEnded(uint32_t slotNo, const CiDesc &table) {
  const Limits limits = limitsNow();
  const bool unchanged = std::equal(std::begin(limits.ms), std::end(limits.ms), state.limits.ms);
  require(unchanged, Rule::limitChanged, slotNo);
  require(!state.locked, Rule::lockKept, slotNo);
  checkRows(slotNo, table);
  const CiData &card = *pCiData[slotNo];
  require(isFinding(card.cimaxStat), Rule::findingNoCode, slotNo);
  for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    require(areFindings(card, camSlot), Rule::findingNoCode, slotNo, camSlot);
    if (state.resetting) {
      trackArming(card, slotNo, camSlot);
    }
  }
  state.inCycle = false;
  state.resetting = false;
}

void checkStatus(uint8_t status) {
  require(isStatus(status), Rule::statusNoCode, state.slotNo);
}

}  // namespace rules
