// What all units of the module share.
#ifndef CI_COMMON_H
#define CI_COMMON_H

#include <stdio.h>

#include "CiIf.h"

namespace ciif {

// The CI library's indexes of the CAMs are below this.
constexpr uint8_t camIndexCount = MAX_BOARD_NUM * MAX_CAM_NUM;

// A condition that nearly always holds: the compiler lays the code out for it.
inline bool ciLikely(bool condition) {
#ifdef __GNUC__
  return __builtin_expect(condition, true);
#else
  return condition;
#endif
}

// Whether a CAM descrambles a program.
inline bool onCam(const CiDescProg &program, uint32_t camSlot) {
  return ((program.camMask >> camSlot) & 1) != 0;
}

// The argument of a "%lu": the formats are the target's, where unsigned long has 32 bits.
inline unsigned long lu(uint32_t value) {
  return value;
}

// Checks a precondition; a failed one is printed with the unit's path, a line and its text.
// Returns whether it held.
inline bool ciAssert(bool holds, const char *unit, int line, const char *condition) {
  if (!holds) {
    printf("file[%s] line[%d] ci_assert:%s failed!!\n", unit, line, condition);
  }
  return holds;
}

// The card's program table; null after an assertion message with the line of the failed guard.
inline CiDesc *guardedDesc(const char *unit, uint32_t slotNo, int recordLine, int descLine) {
  if (!ciAssert(pCiData[slotNo] != nullptr, unit, recordLine, "pCiData[slotNo]")) {
    return nullptr;
  }
  CiDesc *pdesc = pCiData[slotNo]->GetProgDesc(slotNo);
  ciAssert(pdesc != nullptr, unit, descLine, "pdesc");
  return pdesc;
}

}  // namespace ciif

#endif
