#include "CiIf_fpga/CheckedCall.h"

#include "CiCommon.h"
#include "CiIf_fpga/CiIf_fpga.h"

using namespace ciif;

void ciif::reportMissing(uint32_t slotNo, const char *name) {
  if (slotNo >= MAX_BOARD_NUM) {
    printf("slotNo == %lu error!! \n", lu(slotNo));
  } else if (pCiData[slotNo] == nullptr) {
    printf("pcidata[%lu] == NULL!! \n", lu(slotNo));
  } else {
    printf("pcidata[%lu]->%s == NULL!! \n", lu(slotNo), name);
  }
}

void ciif::assertMissing(Range range, uint32_t slotNo, const char *condition) {
  const bool inRange = range == Range::vouched || slotNo < MAX_BOARD_NUM;
  if (ciAssert(inRange, fpgaUnit, __LINE__, "slotNo<MAX_BOARD_NUM") &&
      ciAssert(pCiData[slotNo] != nullptr, fpgaUnit, __LINE__, "pCiData[slotNo]")) {
    ciAssert(false, fpgaUnit, __LINE__, condition);
  }
}
