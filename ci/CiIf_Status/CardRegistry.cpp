#include <stdlib.h>
#include <string.h>

#include "CiIf_Status/Internal.h"

using namespace ciif;

CiData *pCiData[MAX_BOARD_NUM];

namespace {

struct RegistrationId {
  uint8_t vid;
  uint16_t offset;
};

#define FIELD(vid, name) \
  { vid, offsetof(CiData, name) }

constexpr RegistrationId ids[] = {
    FIELD(1, pCardName),
    FIELD(11, GetCardOnline),
    FIELD(12, GetCardReady),
    FIELD(13, GetProgDesc),
    FIELD(14, CardFn14),
    FIELD(15, CardFn15),
    FIELD(16, CamAlarmMask),
    FIELD(21, GetCardBusy),
    FIELD(30, cimax_sync_ok),
    FIELD(31, cimax_pid_rate_pre),
    FIELD(32, cimax_sys_rate_pre),
    FIELD(33, cimax_vld_rate_pre),
    FIELD(34, SetPreCAMCC),
    FIELD(35, GetPreCAMCC),
    FIELD(36, ClrAllPreCAMPidExist),
    FIELD(37, GetPreCAMPidExist),
    FIELD(41, cimax_pid_rate),
    FIELD(42, cimax_sys_rate),
    FIELD(43, cimax_vld_rate),
    FIELD(44, SetCAMCC),
    FIELD(45, GetCAMCC),
    FIELD(46, ClrAllCAMPidExist),
    FIELD(47, GetCAMPidExist),
    FIELD(51, PllReg),
    FIELD(52, PllLock),
    FIELD(53, SetCamFlit),
    FIELD(54, wrDesPid),
    FIELD(55, rdDescStat),
};

#undef FIELD

constexpr size_t idCount = sizeof ids / sizeof ids[0];

constexpr bool ascending() {
  for (size_t i = 1; i < idCount; ++i) {
    if (ids[i].vid <= ids[i - 1].vid || ids[i].offset <= ids[i - 1].offset) {
      return false;
    }
  }
  return true;
}

constexpr size_t offsetOf(uint32_t vid) {
  for (const RegistrationId &id : ids) {
    if (id.vid == vid) {
      return id.offset;
    }
  }
  return sizeof(CiData);
}

// Ids 41..47 are the CAM-output counterparts of the CAM-input ids 31..37.
constexpr bool outputsPairInputs() {
  for (uint32_t unit = 1; unit <= 7; ++unit) {
    if (offsetOf(40 + unit) != offsetOf(30 + unit) + 7 * sizeof(void *)) {
      return false;
    }
  }
  return offsetOf(30) != sizeof(CiData) && offsetOf(40) == sizeof(CiData);
}

static_assert(idCount == 28, "every registered field has one id");
static_assert(ascending(), "ids and fields are in the record's order");
static_assert(outputsPairInputs(), "ids of input and output functions are paired");

CiData *allocateRecord(uint32_t slotNo) {
  pCiData[slotNo] = static_cast<CiData *>(malloc(sizeof(CiData)));
  while (pCiData[slotNo] == nullptr) {
    printf("malloc pCiData[%lu] error!! \n", lu(slotNo));
    pCiData[slotNo] = static_cast<CiData *>(malloc(sizeof(CiData)));
    pauseMs(3000);
  }
  return pCiData[slotNo];
}

}  // namespace

void descIfRegist(uint32_t slotNo, const DescIfItem *items, uint32_t count) {
  CiData *card = allocateRecord(slotNo);
  memset(static_cast<void *>(card), 0, sizeof *card);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t offset = offsetOf(items[i].vid);
    if (offset == sizeof(CiData)) {
      printf("card%lu descIfRegist unknown vid=%lu!! \n", lu(slotNo + 1), lu(items[i].vid));
      continue;
    }
    memcpy(reinterpret_cast<uint8_t *>(card) + offset, &items[i].ptr, sizeof items[i].ptr);
  }
}
