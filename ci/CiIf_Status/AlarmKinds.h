// The five kinds of alarm.
#ifndef ALARM_KINDS_H
#define ALARM_KINDS_H

#include "CiPlatform.h"

namespace ciif {

constexpr uint16_t firstKind = ALARM_KIND_CAM_ABSENT;
constexpr uint8_t kindCount = 5;
constexpr uint8_t faultIdMax = 3;

enum class Scope { cam, card };

// A status field of the card record, by camSlot or the card's own.
struct StatusField {
  uint8_t offset;
  uint8_t size;
};

#define FIELD(name) \
  { offsetof(CiData, name), sizeof(CiData::name) }
#define CAM_FIELD(name) \
  { offsetof(CiData, name), sizeof(CiData::name) / MAX_CAM_NUM }

// What makes one kind of alarm differ from the others.
struct AlarmKind {
  uint16_t kind;
  Scope scope;
  StatusField field;
  uint8_t faultFirst;  // the values of the field that are faults
  uint8_t faultLast;
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

// What is done just before an alarm is raised.
void clearCaSysIds(uint8_t slotNo, uint8_t camSlot);
void nothing(uint8_t slotNo, uint8_t camSlot);

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
     CAM_FIELD(camInsert),
     0,
     0,
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
     CAM_FIELD(preCamPidStat),
     1,
     1,
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
     CAM_FIELD(casidStat),
     0,
     0,
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
     FIELD(cimaxStat),
     1,
     1,
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
     CAM_FIELD(descStat),
     DESC_SUM_OK + 1,
     DESC_SUM_ERROR - 1,
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

// The row of a kind, of which 16 bits count; kindCount or more for an unknown one.
constexpr uint16_t rowOf(uint32_t kind) {
  return static_cast<uint16_t>(kind - firstKind);
}

static constexpr bool kindsConsecutive() {
  for (uint8_t i = 0; i < kindCount; ++i) {
    if (kinds[i].kind != firstKind + i) {
      return false;
    }
  }
  return true;
}

static constexpr bool delayPairsDistinct() {
  uint32_t used = 0;
  for (const AlarmKind &kind : kinds) {
    used |= 1u << kind.delayPair;
  }
  return used == (1u << kindCount) - 1;
}

static constexpr bool wideFaultsZero() {
  for (const AlarmKind &kind : kinds) {
    if (kind.field.size != 1 && kind.faultLast != 0) {
      return false;
    }
  }
  return true;
}

static_assert(sizeof kinds / sizeof kinds[0] == kindCount, "one row per kind");
static_assert(kindsConsecutive(), "a kind is the index of its row");
static_assert(wideFaultsZero(), "a field of two bytes is a fault only at 0");
static_assert(DESC_SUM_OK == 0 && DESC_SUM_ERROR == 0xFF, "the summaries between are faults");
static_assert(delayPairsDistinct(), "each kind has delays of its own");

#undef FIELD
#undef CAM_FIELD
#undef CAM_OBJECTS
#undef CARD_OBJECTS
#undef CAM_DEL
#undef PORT_DEL
#undef UPPER_CAM_DEL
#undef CAM_ADD

}  // namespace ciif

#endif
