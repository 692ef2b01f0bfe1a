#include "CiIf_Status/Internal.h"
#include "CiIf_fpga/Checked.h"

using namespace ciif;

uint32_t TIME_CAPMT = 10000;
uint32_t TIME_FIRST_RESET = 30000;
uint32_t TIME_RESET = 300000;
uint32_t TIME_PART_RESET = 30000;
uint32_t TIME_NO_RESET = 5000;

namespace {

uint32_t not_ok_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t not_err_all_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t not_err_part_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t err_all_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint8_t err_all_flag[MAX_BOARD_NUM][MAX_CAM_NUM];
uint8_t err_part_flag[MAX_BOARD_NUM][MAX_CAM_NUM];

enum class Fault { none, some, all };

Fault classify(uint8_t descStat, uint8_t cimaxStat, uint8_t pll) {
  if (descStat == (DESC_SUM_ALL | DESC_SUM_SCRAMBLED) || cimaxStat == 1 || pll == 0) {
    return Fault::all;
  }
  return descStat == (DESC_SUM_PART | DESC_SUM_SCRAMBLED) ? Fault::some : Fault::none;
}

// A fault is reset when it has lasted long enough and the CAM has had time for its last CA PMT.
bool resetDue(uint8_t slotNo, uint8_t camSlot, uint32_t limit, uint32_t since) {
  return longerThan(limit, since) && caPmtQuiet(slotNo, camSlot);
}

void resetForAll(uint8_t slotNo, uint8_t camSlot, const char *message) {
  printf("%s", message);
  resetCAM(slotNo, camSlot);
  err_all_time[slotNo][camSlot] = OSTimeGet();
  err_all_flag[slotNo][camSlot] = 1;
}

void allProgramsFault(uint8_t slotNo, uint8_t camSlot) {
  not_ok_time[slotNo][camSlot] = OSTimeGet();
  not_err_part_time[slotNo][camSlot] = OSTimeGet();
  if (err_all_flag[slotNo][camSlot] == 0) {
    if (resetDue(slotNo, camSlot, TIME_FIRST_RESET, not_err_all_time[slotNo][camSlot])) {
      resetForAll(slotNo, camSlot, "all programs error, first reset! \n");
    }
  } else if (resetDue(slotNo, camSlot, TIME_RESET, err_all_time[slotNo][camSlot])) {
    resetForAll(slotNo, camSlot, "all programs error, repeat reset! \n");
  }
}

void someProgramsFault(uint8_t slotNo, uint8_t camSlot) {
  not_ok_time[slotNo][camSlot] = OSTimeGet();
  not_err_all_time[slotNo][camSlot] = OSTimeGet();
  if (err_part_flag[slotNo][camSlot] == 0 &&
      resetDue(slotNo, camSlot, TIME_PART_RESET, not_err_part_time[slotNo][camSlot])) {
    printf("partial programs error, reset! \n");
    resetCAM(slotNo, camSlot);
    err_part_flag[slotNo][camSlot] = 1;
  }
}

void noFault(uint8_t slotNo, uint8_t camSlot, bool clean) {
  not_err_part_time[slotNo][camSlot] = OSTimeGet();
  not_err_all_time[slotNo][camSlot] = OSTimeGet();
  if (clean && longerThan(TIME_NO_RESET, not_ok_time[slotNo][camSlot])) {
    err_all_flag[slotNo][camSlot] = 0;
    err_part_flag[slotNo][camSlot] = 0;
  }
}

}  // namespace

void camReset(uint8_t slotNo, uint8_t camSlot) {
  const CiData *card = pCiData[slotNo];
  if (!ciAssert(card != nullptr, statusUnit, __LINE__, "pCiData[slotNo]")) {
    return;
  }
  const uint8_t descStat = card->descStat[camSlot];
  const uint8_t cimaxStat = card->cimaxStat;
  const uint8_t pll = cardReady(slotNo) ? static_cast<uint8_t>(checked::PllLock(slotNo)) : 0xFF;
  switch (classify(descStat, cimaxStat, pll)) {
    case Fault::all:
      allProgramsFault(slotNo, camSlot);
      break;
    case Fault::some:
      someProgramsFault(slotNo, camSlot);
      break;
    default:
      noFault(slotNo, camSlot, descStat == DESC_SUM_OK);
      break;
  }
}
