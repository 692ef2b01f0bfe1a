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

#define FIELD(name)                              \
  StatusField {                                  \
    offsetof(CiData, name), sizeof(CiData::name) \
  }
#define CAM_FIELD(name)                                        \
  StatusField {                                                \
    offsetof(CiData, name), sizeof(CiData::name) / MAX_CAM_NUM \
  }

// The values of the field that are faults.
struct Faults {
  uint8_t first;
  uint8_t last;
};

// Which of the alarm delays, and what a fault that lasts beyond its raise delay answers.
struct Delay {
  uint8_t pair;
  bool answersStanding;
};

// Second pair of the alarm's record, by CAM.
struct Objects {
  uint32_t byCam[MAX_CAM_NUM];
};

// The pairs behind it.
struct FaultIds {
  uint8_t count;
  uint32_t id[faultIdMax];
};

// What is printed when the alarm service fails.
struct Failures {
  const char *maskClear;
  const char *raise;
  const char *clear;
};

// What makes one kind of alarm differ from the others.
struct AlarmKind {
  uint16_t kind;
  Scope scope;
  StatusField field;
  Faults faults;
  Delay delay;
  void (*raiseAction)(uint8_t slotNo, uint8_t camSlot);
  Objects objects;
  FaultIds faultIds;
  Failures failures;
};

// What is done just before an alarm is raised.
void clearCaSysIds(uint8_t slotNo, uint8_t camSlot);
void nothing(uint8_t slotNo, uint8_t camSlot);

#define CAM_DEL "Card%d Cam%d AlarmDel failed\r\n"
#define PORT_DEL "Card%d port%d AlarmDel failed\r\n"
#define UPPER_CAM_DEL "Card%d CAM%d AlarmDel failed\r\n"
#define CAM_ADD "Card%d CAM%d AlarmAdd failed\r\n"

// The delay pairs are not in the order of the kinds, two kinds never answer 1, and the wording of
// the failures differs from place to place: those who read the log rely on each as it is, down to
// the missing blank of the first kind's last text.
constexpr AlarmKind kinds[] = {
    {
        ALARM_KIND_CAM_ABSENT,
        Scope::cam,
        CAM_FIELD(camInsert),
        Faults{0, 0},
        Delay{0, true},
        clearCaSysIds,
        Objects{0x705, 0x706},
        FaultIds{1, {0x703}},
        Failures{CAM_DEL, CAM_ADD, "Card%d port%dAlarmDel failed\r\n"},
    },
    {
        ALARM_KIND_CA_PID_ABSENT,
        Scope::cam,
        CAM_FIELD(preCamPidStat),
        Faults{1, 1},
        Delay{1, false},
        nothing,
        Objects{0x705, 0x706},
        FaultIds{1, {0x708}},
        Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
    },
    {
        ALARM_KIND_CA_SYS_MISMATCH,
        Scope::cam,
        CAM_FIELD(casidStat),
        Faults{0, 0},
        Delay{3, true},
        nothing,
        Objects{0x705, 0x706},
        FaultIds{1, {0x707}},
        Failures{CAM_DEL, CAM_ADD, CAM_DEL},
    },
    {
        ALARM_KIND_CI_INPUT,
        Scope::card,
        FIELD(cimaxStat),
        Faults{1, 1},
        Delay{2, false},
        nothing,
        Objects{0x701, 0x701},
        FaultIds{1, {0x111}},
        Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
    },
    {
        ALARM_KIND_DESCRAMBLE,
        Scope::cam,
        CAM_FIELD(descStat),
        Faults{DESC_SUM_OK + 1, DESC_SUM_ERROR - 1},
        Delay{4, true},
        nothing,
        Objects{0x705, 0x706},
        FaultIds{3, {0x702, 0x142, 0x714}},
        Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
    },
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
    used |= 1u << kind.delay.pair;
  }
  return used == (1u << kindCount) - 1;
}

static constexpr bool wideFaultsZero() {
  for (const AlarmKind &kind : kinds) {
    if (kind.field.size != 1 && kind.faults.last != 0) {
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
#undef CAM_DEL
#undef PORT_DEL
#undef UPPER_CAM_DEL
#undef CAM_ADD

}  // namespace ciif

#endif
