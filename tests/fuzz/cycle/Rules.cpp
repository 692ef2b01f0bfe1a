#include "Rules.h"

#include <algorithm>

#include "Input.h"
#include "World.h"

using fuzz::require;

namespace rules {

Counts counts;

namespace {

constexpr uint32_t alarmIds = 0x800;
constexpr uint32_t objects = 8;

struct Cam {
  bool sentOnce;
  uint32_t sentAt;
  bool partReset;
  bool pllLost;  // in this cycle
  uint32_t lastFaultAt;
};

Cam cams[MAX_BOARD_NUM][MAX_CAM_NUM];
bool locked;
bool inCycle;

// By card, object and fault; the index that the service gives is the place.
bool standing[MAX_BOARD_NUM * objects * alarmIds];

int32_t indexOf(const AlarmRecord &record) {
  const uint32_t slotNo = static_cast<uint32_t>(record.pairs[0].instance) - 1;
  const uint32_t object = record.pairs[1].id - 0x700;
  const uint32_t fault = record.pairs[2].id;
  require(record.head == 1 && record.pairs[0].id == 1, "alarm record with another head");
  require(record.pairCount == 3 || record.pairCount == 5, "alarm record of another size");
  require(slotNo < MAX_BOARD_NUM && object < objects && fault < alarmIds, "unknown alarm");
  return static_cast<int32_t>((slotNo * objects + object) * alarmIds + fault);
}

bool oneOf(uint8_t value, std::initializer_list<uint8_t> codes) {
  return std::find(codes.begin(), codes.end(), value) != codes.end();
}

bool isSummary(uint8_t summary) {
  return oneOf(summary,
               {DESC_SUM_OK, DESC_SUM_PART, DESC_SUM_ALL, DESC_SUM_PART | DESC_SUM_SCRAMBLED,
                DESC_SUM_ALL | DESC_SUM_SCRAMBLED, DESC_SUM_ERROR});
}

bool isFlag(uint32_t value) {
  return value <= 1 || value == 0xFF;
}

void checkRecord(const CiData &card, uint32_t camSlot) {
  require(isFlag(card.cimaxStat) && isFlag(card.preCamPidStat[camSlot]) &&
              isFlag(card.casidStat[camSlot]) && isSummary(card.descStat[camSlot]),
          "finding that is no code");
}

void checkRows(uint32_t slotNo, const CiDesc &table) {
  for (uint32_t p = 0; p < table.descProgCnt; ++p) {
    const DescProgStat &row = DescStatus[slotNo][p];
    uint8_t worst = DESC_STAT_OK;
    for (uint32_t e = 0; e < table.prog[p].eleNum; ++e) {
      checkStatus(row.pid[e].status);
      worst = std::min(worst, row.pid[e].status);
    }
    checkStatus(row.progStatus);
    const bool told = row.progStatus == DESC_STAT_UNKNOWN || row.progStatus == worst;
    require(told, "program status that is not its worst PID's");
  }
}

bool anyFault(const CiData &card, uint32_t camSlot, bool pllFault) {
  const uint8_t summary = card.descStat[camSlot];
  return summary == (DESC_SUM_ALL | DESC_SUM_SCRAMBLED) ||
         summary == (DESC_SUM_PART | DESC_SUM_SCRAMBLED) || card.cimaxStat == 1 || pllFault;
}

// A clean cycle arms again when the last fault is more than TIME_NO_RESET ago.
void trackArming(const CiData &card, Cam &cam, uint32_t camSlot) {
  if (anyFault(card, camSlot, cam.pllLost)) {
    cam.lastFaultAt = world.now;
  } else if (card.descStat[camSlot] == DESC_SUM_OK && world.now - cam.lastFaultAt > TIME_NO_RESET) {
    cam.partReset = false;
  }
}

}  // namespace

void checkStatus(uint8_t status) {
  require(oneOf(status, {DESC_STAT_SCRAMBLED, DESC_STAT_NO_ENTITLEMENT, DESC_STAT_TECHNICAL,
                         DESC_STAT_NO_ECM, DESC_STAT_ECM_CC, DESC_STAT_UNKNOWN, DESC_STAT_OK}),
          "status that is no code");
}

void caPmtSent(uint32_t slotNo, uint32_t camSlot, bool query) {
  require(locked, "CA PMT sent without the lock");
  ++(query ? counts.queries : counts.caPmts);
  // The quiet time is the scheduler's: what a person sends from the console does not start it.
  if (inCycle) {
    cams[slotNo][camSlot].sentOnce = true;
    cams[slotNo][camSlot].sentAt = world.now;
  }
}

void camReset(uint32_t slotNo, uint32_t camSlot, bool partial) {
  Cam &cam = cams[slotNo][camSlot];
  ++counts.resets;
  require(!cam.sentOnce || world.now - cam.sentAt > TIME_CAPMT, "reset too soon behind a CA PMT");
  require(!partial || !cam.partReset, "second partial reset before re-arming");
  cam.partReset = cam.partReset || partial;
}

void pllLost(uint32_t slotNo, uint32_t camSlot) {
  require(camSlot < MAX_CAM_NUM, "clock asked for no CAM");
  cams[slotNo][camSlot].pllLost = true;
}

int32_t alarmRaised(const AlarmRecord &record, bool fails) {
  const int32_t index = indexOf(record);
  require(!standing[index], "alarm raised twice");
  if (fails) {
    return -1;
  }
  standing[index] = true;
  return index;
}

void alarmCleared(int32_t index, bool fails) {
  require(index >= 0 && static_cast<size_t>(index) < sizeof standing && standing[index],
          "an alarm is cleared that does not stand");
  standing[index] = fails;
}

bool anyAlarm(uint32_t slotNo) {
  const bool *first = standing + slotNo * objects * alarmIds;
  return std::find(first, first + objects * alarmIds, true) != first + objects * alarmIds;
}

void lockTaken() {
  require(!locked, "lock taken twice");
  locked = true;
}

void lockGiven() {
  require(locked, "lock given untaken");
  locked = false;
}

void cycleBegins() {
  inCycle = true;
  for (auto &slot : cams) {
    for (Cam &cam : slot) {
      cam.pllLost = false;
    }
  }
}

void cycleEnded(uint32_t slotNo, const CiDesc *table, bool measured) {
  inCycle = false;
  require(!locked, "lock kept");
  if (!measured) {
    return;
  }
  checkRows(slotNo, *table);
  for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    checkRecord(*pCiData[slotNo], camSlot);
    trackArming(*pCiData[slotNo], cams[slotNo][camSlot], camSlot);
  }
}

}  // namespace rules
