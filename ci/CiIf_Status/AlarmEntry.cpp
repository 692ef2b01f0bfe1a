#include <utility>

#include "CiIf_Status/AlarmFilter.h"
#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

struct Check {
  uint16_t kind;
  uint8_t camSlot;
};

// CA system mismatch comes before CA PID absent, other than in the order of the kinds.
constexpr Check checks[] = {
    {ALARM_KIND_CAM_ABSENT, 0},      {ALARM_KIND_CAM_ABSENT, 1},    {ALARM_KIND_CA_SYS_MISMATCH, 0},
    {ALARM_KIND_CA_SYS_MISMATCH, 1}, {ALARM_KIND_CA_PID_ABSENT, 0}, {ALARM_KIND_CA_PID_ABSENT, 1},
    {ALARM_KIND_CI_INPUT, 0},        {ALARM_KIND_DESCRAMBLE, 0},    {ALARM_KIND_DESCRAMBLE, 1},
};
constexpr size_t checkCount = sizeof checks / sizeof checks[0];

// The alarms of one kind.
struct Checker {
  uint8_t sValInitDone;
  AlarmState alarm[MAX_BOARD_NUM][MAX_CAM_NUM];
};

Checker checkers[kindCount];

[[gnu::noinline]] void initialise(Checker &checker) {
  for (auto &slot : checker.alarm) {
    for (AlarmState &alarm : slot) {
      alarm = {0, 0, -1, 0};
    }
  }
  checker.sValInitDone = 1;
}

AlarmState &alarmState(uint16_t row, uint8_t slotNo, uint8_t camSlot) {
  Checker &checker = checkers[row];
  if (checker.sValInitDone == 0) {
    initialise(checker);
  }
  return checker.alarm[slotNo][camSlot];
}

// The card of a check; null after a message that tells what is wrong with its arguments.
const CiData *checkedCard(uint8_t slot, uint8_t cam) {
  if (slot >= MAX_BOARD_NUM) {
    printf("camAlarmCheck slotNo=%d err! \n", slot);
    return nullptr;
  }
  if (cam >= MAX_CAM_NUM) {
    printf("camAlarmCheck camSlot=%d err! \n", cam);
    return nullptr;
  }
  if (pCiData[slot] == nullptr) {
    printf("camAlarmCheck pCiData[%d] == NULL!! \n", slot);
  }
  return pCiData[slot];
}

// What CamAlarmMask answers for the card's CAMs; non-zero holds a CAM's alarms clear.
struct AlarmMask {
  uint32_t cam[MAX_CAM_NUM];
};

// The card of a check, asked for its masks; null when there is none to ask.
[[gnu::always_inline]] inline const CiData *askMasks(uint8_t slot, uint8_t cam, AlarmMask &mask) {
  const CiData *card = checkedCard(slot, cam);
  if (ciLikely(card != nullptr)) {
    mask.cam[0] = card->CamAlarmMask(slot, 0);
    mask.cam[1] = card->CamAlarmMask(slot, 1);
  }
  return card;
}

uint8_t placeOf(const AlarmKind &kind, uint8_t cam) {
  return kind.scope == Scope::card ? 0 : cam;
}

// A field of two bytes is a fault only at 0, so its bytes can be taken together.
bool faulty(const AlarmKind &kind, const CiData &card, uint8_t camSlot) {
  const size_t size = kind.field.size;
  const uint8_t *field =
      reinterpret_cast<const uint8_t *>(&card) + kind.field.offset + camSlot * size;
  const uint8_t value = static_cast<uint8_t>(field[0] | field[size - 1]);
  return value >= kind.faults.first && value <= kind.faults.last;
}

bool masked(const AlarmKind &kind, uint8_t camSlot, const AlarmMask &mask) {
  return kind.scope == Scope::card ? mask.cam[0] != 0 && mask.cam[1] != 0 : mask.cam[camSlot] != 0;
}

// What takes longer than noting that all is well.
int32_t filter(const AlarmCall &call, const CiData &card, const AlarmMask &mask) {
  if (masked(call.kind, call.camSlot, mask)) {
    return whileMasked(call);
  }
  return faulty(call.kind, card, call.camSlot) ? whileFaulty(call) : whileGone(call);
}

// In line: where the kind and the CAM are constants, most of a check folds.
[[gnu::always_inline]] inline int32_t runCheck(uint8_t slot, uint8_t cam, uint16_t row) {
  AlarmMask mask;
  const CiData *card = askMasks(slot, cam, mask);
  if (card == nullptr) {
    return -1;
  }
  const AlarmKind &kind = kinds[row];
  const uint8_t place = placeOf(kind, cam);
  AlarmState &alarm = alarmState(row, slot, place);
  if (ciLikely(alarm.alarm_traped == 0) && ciLikely(!masked(kind, place, mask)) &&
      ciLikely(!faulty(kind, *card, place))) {
    alarm.ok_time_cnt = OSTimeGet();
    return 0;
  }
  return filter({kind, slot, place, alarm}, *card, mask);
}

template <size_t... I>
int32_t runChecks(uint8_t slot, std::index_sequence<I...>) {
  int32_t result = 0;
  ((result = runCheck(slot, checks[I].camSlot, rowOf(checks[I].kind))), ...);
  return result;
}

}  // namespace

int32_t camAlarm(uint32_t slotNo) {
  return runChecks(static_cast<uint8_t>(slotNo), std::make_index_sequence<checkCount>{});
}

int32_t camAlarmCheck(uint32_t slotNo, uint32_t camSlot, uint32_t kind) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const uint8_t cam = static_cast<uint8_t>(camSlot);
  const uint16_t row = rowOf(kind);
  if (row < kindCount) {
    return runCheck(slot, cam, row);
  }
  AlarmMask unused;
  return askMasks(slot, cam, unused) != nullptr ? 0 : -1;
}
