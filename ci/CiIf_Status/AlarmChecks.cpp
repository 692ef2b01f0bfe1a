#include "CiIf_Status/AlarmChecks.h"

#include "CiIf_Status/Internal.h"

namespace {

constexpr uint16_t firstKind = ALARM_KIND_CAM_ABSENT;
constexpr uint8_t kindCount = 5;
constexpr uint8_t faultIdMax = 3;

enum class Scope { cam, card };

// What makes one kind of alarm differ from the others.
struct AlarmKind {
  uint16_t kind;
  Scope scope;
  bool (*fault)(const CiData &card, uint8_t camSlot);
  uint8_t delayPair;
  bool answersStanding;  // returns 1 while the fault lasts beyond its raise delay
  void (*raiseAction)(uint8_t slotNo, uint8_t camSlot);
  uint32_t object[MAX_CAM_NUM];  // second pair of the record, by CAM
  uint8_t faultIdCount;
  uint32_t faultId[faultIdMax];  // the pairs behind it
  const char *maskClearFailed;
  const char *raiseFailed;
  const char *clearFailed;
};

bool camAbsent(const CiData &card, uint8_t camSlot) {
  return card.camInsert[camSlot] == 0;
}

bool caPidAbsent(const CiData &card, uint8_t camSlot) {
  return card.preCamPidStat[camSlot] == 1;
}

bool caSysMismatch(const CiData &card, uint8_t camSlot) {
  return card.casidStat[camSlot] == 0;
}

bool ciInput(const CiData &card, uint8_t) {
  return card.cimaxStat == 1;
}

bool descramble(const CiData &card, uint8_t camSlot) {
  return card.descStat[camSlot] != DESC_SUM_OK && card.descStat[camSlot] != DESC_SUM_ERROR;
}

void clearCaSysIds(uint8_t slotNo, uint8_t camSlot) {
  EXT_Clear_Ca_Sys_Id(static_cast<uint8_t>(ciLibGetCardIndex(slotNo, camSlot)));
  printf("clear ca sys id, slotNo %d,CAM %c! \n", slotNo + 1, camLetter(camSlot));
}

void nothing(uint8_t, uint8_t) {}

#define CAM_OBJECTS \
  { 0x705, 0x706 }
#define CARD_OBJECTS \
  { 0x701, 0x701 }
#define CAM_DEL "Card%d Cam%d AlarmDel failed\r\n"
#define PORT_DEL "Card%d port%d AlarmDel failed\r\n"
#define UPPER_CAM_DEL "Card%d CAM%d AlarmDel failed\r\n"
#define CAM_ADD "Card%d CAM%d AlarmAdd failed\r\n"

// The delay pairs are not in the order of the kinds, two kinds never answer 1, and the wording of
// the failures differs from place to place: those who read the log rely on each as it is, down to
// the missing blank of the first kind's last text.
constexpr AlarmKind kinds[] = {
    {ALARM_KIND_CAM_ABSENT,
     Scope::cam,
     camAbsent,
     0,
     true,
     clearCaSysIds,
     CAM_OBJECTS,
     1,
     {0x703},
     CAM_DEL,
     CAM_ADD,
     "Card%d port%dAlarmDel failed\r\n"},
    {ALARM_KIND_CA_PID_ABSENT,
     Scope::cam,
     caPidAbsent,
     1,
     false,
     nothing,
     CAM_OBJECTS,
     1,
     {0x708},
     PORT_DEL,
     CAM_ADD,
     UPPER_CAM_DEL},
    {ALARM_KIND_CA_SYS_MISMATCH,
     Scope::cam,
     caSysMismatch,
     3,
     true,
     nothing,
     CAM_OBJECTS,
     1,
     {0x707},
     CAM_DEL,
     CAM_ADD,
     CAM_DEL},
    {ALARM_KIND_CI_INPUT,
     Scope::card,
     ciInput,
     2,
     false,
     nothing,
     CARD_OBJECTS,
     1,
     {0x111},
     PORT_DEL,
     CAM_ADD,
     UPPER_CAM_DEL},
    {ALARM_KIND_DESCRAMBLE,
     Scope::cam,
     descramble,
     4,
     true,
     nothing,
     CAM_OBJECTS,
     3,
     {0x702, 0x142, 0x714},
     PORT_DEL,
     CAM_ADD,
     UPPER_CAM_DEL},
};

constexpr bool kindsConsecutive() {
  for (uint8_t i = 0; i < kindCount; ++i) {
    if (kinds[i].kind != firstKind + i) {
      return false;
    }
  }
  return true;
}

constexpr bool delayPairsDistinct() {
  uint32_t used = 0;
  for (const AlarmKind &kind : kinds) {
    used |= 1u << kind.delayPair;
  }
  return used == (1u << kindCount) - 1;
}

static_assert(sizeof kinds / sizeof kinds[0] == kindCount, "one row per kind");
static_assert(kindsConsecutive(), "a kind is the index of its row");
static_assert(delayPairsDistinct(), "each kind has delays of its own");

// One alarm: of a CAM, or of a card in the place of its CAM A.
struct AlarmState {
  uint32_t ok_time_cnt;   // last call that saw no fault
  uint32_t err_time_cnt;  // last call that saw the fault
  int32_t alarm_index;    // as AlarmAdd gave it
  uint8_t alarm_traped;   // 1 while raised
};

struct Checker {
  uint8_t sValInitDone;
  AlarmState alarm[MAX_BOARD_NUM][MAX_CAM_NUM];
};

Checker checkers[kindCount];

// Set aside for resets on alarm by the kinds that answer 1, and by descrambling; nothing uses them.
[[maybe_unused]] uint32_t rst_cam_time_cnt[3][MAX_BOARD_NUM][MAX_CAM_NUM];
[[maybe_unused]] uint8_t first_rst[MAX_BOARD_NUM][MAX_CAM_NUM];

void initialise(Checker &checker) {
  if (checker.sValInitDone != 0) {
    return;
  }
  for (auto &slot : checker.alarm) {
    for (AlarmState &alarm : slot) {
      alarm = {0, 0, -1, 0};
    }
  }
  checker.sValInitDone = 1;
}

AlarmRecord makeRecord(const AlarmKind &kind, uint8_t slotNo, uint8_t camSlot) {
  AlarmRecord record = {};
  record.head = 1;
  record.pairCount = static_cast<uint8_t>(2 + kind.faultIdCount);
  record.pairs[0] = {1, slotNo + 1};
  record.pairs[1] = {kind.object[camSlot], -1};
  for (uint8_t i = 0; i < kind.faultIdCount; ++i) {
    record.pairs[2 + i] = {kind.faultId[i], -1};
  }
  return record;
}

// One call of a check.
struct Call {
  const AlarmKind &kind;
  uint8_t slotNo;
  uint8_t camSlot;
  AlarmState &alarm;
};

int32_t failed(const Call &call, const char *message) {
  bbPrintf(message, call.slotNo, call.camSlot);
  return -1;
}

int32_t raise(const Call &call) {
  call.kind.raiseAction(call.slotNo, call.camSlot);
  AlarmRecord record = makeRecord(call.kind, call.slotNo, call.camSlot);
  const int32_t index = AlarmAdd(&record);
  if (index < 0) {
    return failed(call, call.kind.raiseFailed);
  }
  call.alarm.alarm_index = index;
  call.alarm.alarm_traped = 1;
  return call.kind.answersStanding;
}

int32_t clear(const Call &call, const char *failure) {
  if (AlarmDel(call.alarm.alarm_index, 0) < 0) {
    return failed(call, failure);
  }
  call.alarm.alarm_traped = 0;
  return 0;
}

int32_t whileMasked(const Call &call) {
  call.alarm.ok_time_cnt = OSTimeGet();
  return call.alarm.alarm_traped == 1 ? clear(call, call.kind.maskClearFailed) : 0;
}

int32_t whileFaulty(const Call &call) {
  call.alarm.err_time_cnt = OSTimeGet();
  if (!longerThan(alarmRaiseDelay(call.kind.delayPair), call.alarm.ok_time_cnt)) {
    return 0;
  }
  return call.alarm.alarm_traped == 0 ? raise(call) : call.kind.answersStanding;
}

int32_t whileGood(const Call &call) {
  call.alarm.ok_time_cnt = OSTimeGet();
  const bool due = call.alarm.alarm_traped == 1 &&
                   longerThan(alarmClearDelay(call.kind.delayPair), call.alarm.err_time_cnt);
  return due ? clear(call, call.kind.clearFailed) : 0;
}

bool masked(const Call &call, const AlarmMask &mask) {
  return call.kind.scope == Scope::card ? mask.cam[0] != 0 && mask.cam[1] != 0
                                        : mask.cam[call.camSlot] != 0;
}

}  // namespace

int32_t runAlarmCheck(uint8_t slotNo, uint8_t camSlot, uint16_t kind, const AlarmMask &mask) {
  const uint16_t row = static_cast<uint16_t>(kind - firstKind);
  if (row >= kindCount) {
    return 0;
  }
  initialise(checkers[row]);
  const uint8_t place = kinds[row].scope == Scope::card ? 0 : camSlot;
  const Call call = {kinds[row], slotNo, place, checkers[row].alarm[slotNo][place]};
  if (masked(call, mask)) {
    return whileMasked(call);
  }
  return call.kind.fault(*pCiData[slotNo], place) ? whileFaulty(call) : whileGood(call);
}
