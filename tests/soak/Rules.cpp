#include "Rules.h"

#include <cstdio>
#include <cstdlib>

#include "LeanPlatform.h"

namespace rules {

uint64_t seed;
uint32_t step;
Counts counts;

namespace {

constexpr uint32_t QUIET_MS = 10000;
constexpr uint32_t REARM_MS = 5000;
constexpr uint32_t ALARM_IDS = 0x800;

// The rules' own view of a CAM, from what its record shows after each cycle.
struct Cam {
  bool sentOnce;
  uint32_t sentAt;
  bool partReset;
  uint32_t lastFaultAt;
};

Cam cams[MAX_BOARD_NUM][MAX_CAM_NUM];
bool locked;

// By card, object and fault: what tells one alarm from another. The index names them.
uint8_t standing[MAX_BOARD_NUM][8][ALARM_IDS];

int32_t indexOf(const AlarmRecord &record) {
  const uint32_t slotNo = static_cast<uint32_t>(record.pairs[0].instance) - 1;
  const uint32_t object = record.pairs[1].id - 0x700;
  const uint32_t fault = record.pairs[2].id;
  if (record.head != 1 || record.pairs[0].id != 1 || slotNo >= MAX_BOARD_NUM || object >= 8 ||
      fault >= ALARM_IDS) {
    broken("alarm record with unknown identifiers", slotNo, object);
  }
  return static_cast<int32_t>((slotNo * 8 + object) * ALARM_IDS + fault);
}

uint8_t &stands(int32_t index) {
  if (index < 0 || static_cast<size_t>(index) >= sizeof standing) {
    broken("an alarm is cleared that never was", 0, 0);
  }
  return (&standing[0][0][0])[index];
}

bool isStatus(uint8_t status) {
  switch (status) {
    case DESC_STAT_SCRAMBLED:
    case DESC_STAT_NO_ENTITLEMENT:
    case DESC_STAT_TECHNICAL:
    case DESC_STAT_NO_ECM:
    case DESC_STAT_ECM_CC:
    case DESC_STAT_UNKNOWN:
    case DESC_STAT_OK:
      return true;
    default:
      return false;
  }
}

bool isSummary(uint8_t summary) {
  switch (summary) {
    case DESC_SUM_OK:
    case DESC_SUM_PART:
    case DESC_SUM_ALL:
    case DESC_SUM_PART | DESC_SUM_SCRAMBLED:
    case DESC_SUM_ALL | DESC_SUM_SCRAMBLED:
    case DESC_SUM_ERROR:
      return true;
    default:
      return false;
  }
}

bool isFlag(uint32_t value) {
  return value <= 1 || value == 0xFF;
}

void checkTable(uint32_t slotNo) {
  for (uint32_t p = 0; p < PROGRAMS; ++p) {
    uint8_t worst = DESC_STAT_OK;
    for (uint32_t e = 0; e < STREAMS; ++e) {
      const uint8_t status = DescStatus[slotNo][p].pid[e].status;
      if (!isStatus(status)) {
        broken("PID status that is no code", slotNo, p);
      }
      worst = status < worst ? status : worst;
    }
    if (DescStatus[slotNo][p].progStatus != worst) {
      broken("program status that is not its worst PID's", slotNo, p);
    }
  }
}

void checkRecord(uint32_t slotNo, uint32_t camSlot) {
  const CiData &card = *pCiData[slotNo];
  if (!isFlag(card.cimaxStat) || !isFlag(card.preCamPidStat[camSlot]) ||
      !isFlag(card.casidStat[camSlot]) || !isSummary(card.descStat[camSlot])) {
    broken("finding that is no code", slotNo, camSlot);
  }
}

bool anyFault(uint32_t slotNo, uint32_t camSlot) {
  const CardWorld &world = chassis.card[slotNo];
  const uint8_t summary = pCiData[slotNo]->descStat[camSlot];
  return summary == (DESC_SUM_ALL | DESC_SUM_SCRAMBLED) ||
         summary == (DESC_SUM_PART | DESC_SUM_SCRAMBLED) || pCiData[slotNo]->cimaxStat == 1 ||
         (world.online && !world.busy && world.ready && !world.locked);
}

// A partial reset is armed again by a clean cycle more than five seconds behind the last fault. A
// cycle without the table sees neither.
void trackArming(uint32_t slotNo, uint32_t camSlot) {
  if (!chassis.card[slotNo].table) {
    return;
  }
  Cam &cam = cams[slotNo][camSlot];
  if (anyFault(slotNo, camSlot)) {
    cam.lastFaultAt = chassis.now;
  } else if (pCiData[slotNo]->descStat[camSlot] == DESC_SUM_OK &&
             chassis.now - cam.lastFaultAt > REARM_MS) {
    cam.partReset = false;
  }
}

}  // namespace

void broken(const char *rule, uint32_t slotNo, uint32_t camSlot) {
  std::printf("BROKEN: %s, card %u, %u; SOAK_SEED=%llu SOAK_STEP=%u\n", rule, slotNo, camSlot,
              static_cast<unsigned long long>(seed), step);
  std::exit(1);
}

void caPmtSent(uint32_t slotNo, uint32_t camSlot, bool query) {
  if (!locked) {
    broken("CA PMT sent without the lock", slotNo, camSlot);
  }
  ++(query ? counts.queries : counts.caPmts);
  cams[slotNo][camSlot].sentOnce = true;
  cams[slotNo][camSlot].sentAt = chassis.now;
}

void camReset(uint32_t slotNo, uint32_t camSlot, bool partial) {
  Cam &cam = cams[slotNo][camSlot];
  if (cam.sentOnce && chassis.now - cam.sentAt <= QUIET_MS) {
    broken("reset too soon behind a CA PMT", slotNo, camSlot);
  }
  ++counts.resets;
  if (partial) {
    ++counts.partialResets;
    if (cam.partReset) {
      broken("second partial reset before re-arming", slotNo, camSlot);
    }
    cam.partReset = true;
  }
}

int32_t alarmRaised(const AlarmRecord &record) {
  const int32_t index = indexOf(record);
  if (stands(index) != 0) {
    broken("alarm raised twice", static_cast<uint32_t>(index) / ALARM_IDS / 8, record.pairs[2].id);
  }
  if (chassis.addFails) {
    return -1;
  }
  ++counts.raised;
  stands(index) = 1;
  return index;
}

void alarmCleared(int32_t index) {
  if (stands(index) == 0) {
    broken("alarm cleared twice", static_cast<uint32_t>(index) / ALARM_IDS / 8, 0);
  }
  if (!chassis.delFails) {
    ++counts.cleared;
    stands(index) = 0;
  }
}

void lockTaken() {
  if (locked) {
    broken("lock taken twice", 0, 0);
  }
  locked = true;
}

void lockGiven() {
  if (!locked) {
    broken("lock given untaken", 0, 0);
  }
  locked = false;
}

void cycleEnded(uint32_t slotNo) {
  if (locked) {
    broken("lock kept", slotNo, 0);
  }
  checkTable(slotNo);
  for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    checkRecord(slotNo, camSlot);
    trackArming(slotNo, camSlot);
  }
}

}  // namespace rules
