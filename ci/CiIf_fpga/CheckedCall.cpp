#include "CiIf_fpga/CheckedCall.h"

#include <string.h>

#include "CiCommon.h"
#include "CiIf_fpga/CiIf_fpga.h"

static CardFunction functionAt(const CiData *card, size_t offset) {
  CardFunction function;
  memcpy(&function, reinterpret_cast<const uint8_t *>(card) + offset, sizeof function);
  return function;
}

CardFunction reportedFunction(uint32_t slotNo, size_t offset, const char *name) {
  if (slotNo >= MAX_BOARD_NUM) {
    printf("slotNo == %lu error!! \n", lu(slotNo));
    return nullptr;
  }
  if (pCiData[slotNo] == nullptr) {
    printf("pcidata[%lu] == NULL!! \n", lu(slotNo));
    return nullptr;
  }
  const CardFunction function = functionAt(pCiData[slotNo], offset);
  if (function == nullptr) {
    printf("pcidata[%lu]->%s == NULL!! \n", lu(slotNo), name);
  }
  return function;
}

CardFunction assertedFunction(Range range, uint32_t slotNo, size_t offset, const char *condition) {
  const bool inRange = range == Range::vouched || slotNo < MAX_BOARD_NUM;
  if (!ciAssert(inRange, fpgaUnit, __LINE__, "slotNo<MAX_BOARD_NUM") ||
      !ciAssert(pCiData[slotNo] != nullptr, fpgaUnit, __LINE__, "pCiData[slotNo]")) {
    return nullptr;
  }
  const CardFunction function = functionAt(pCiData[slotNo], offset);
  ciAssert(function != nullptr, fpgaUnit, __LINE__, condition);
  return function;
}
