#include "CiCommon.h"
#include "CiIf_fpga/CiIf_fpga.h"

using namespace ciif;

namespace {

void clearCounts(uint32_t slotNo, uint16_t pid) {
  SetPreCAMCC(slotNo, pid, 0);
  SetCAMCC(slotNo, pid, 0);
  printf("PID 0x%x clr cc!!\n", pid);
}

void printCounts(uint32_t slotNo, uint16_t pid) {
  const uint16_t before = GetPreCAMCC(slotNo, pid);
  const uint16_t behind = GetCAMCC(slotNo, pid);
  printf("PID 0x%x Pre_CC = %d,CAM_CC = %d \n", pid, before, behind);
}

// Every PID of the card's programs, whatever their CAM, as the status table knows it.
void forEachPid(uint32_t slotNo, void (*act)(uint32_t slotNo, uint16_t pid)) {
  if (!ciAssert(slotNo < MAX_BOARD_NUM, fpgaUnit, __LINE__, "slotNo<MAX_BOARD_NUM")) {
    return;
  }
  const CiDesc *pdesc = guardedDesc(fpgaUnit, slotNo, __LINE__, __LINE__);
  if (pdesc == nullptr) {
    return;
  }
  for (uint16_t i = 0; i < pdesc->descProgCnt; ++i) {
    for (uint16_t e = 0; e < pdesc->prog[i].eleNum; ++e) {
      act(slotNo, DescStatus[slotNo][i].pid[e].pid);
    }
  }
}

}  // namespace

void ClrAllDescCC(uint32_t slotNo) {
  forEachPid(slotNo, clearCounts);
}

void CheckDescCC(uint32_t slotNo) {
  forEachPid(slotNo, printCounts);
}
