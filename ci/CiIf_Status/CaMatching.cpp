#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

// Finds the first entry of a CA list that the CAM supports.
bool matchList(uint8_t index, const CiDescCaList &list, uint16_t &caSysId) {
  for (uint8_t k = 0; k < static_cast<uint8_t>(list.caNum); ++k) {
    if (ciLibCaSysIdMatch(index, list.ca[k].casid) == 0) {
      caSysId = list.ca[k].casid;
      return true;
    }
  }
  return false;
}

bool matchProgram(uint8_t index, const CiDescProg &program, uint16_t &caSysId) {
  if (matchList(index, program.caList, caSysId)) {
    return true;
  }
  for (uint8_t e = 0; e < program.eleNum; ++e) {
    if (matchList(index, program.ele[e].caList, caSysId)) {
      return true;
    }
  }
  return false;
}

}  // namespace

uint16_t casidMatch(uint32_t slotNo, uint32_t camSlot) {
  const CiDesc *pdesc = namedDesc(slotNo, "casidMatch");
  if (pdesc == nullptr) {
    return 0;
  }
  const uint8_t index = static_cast<uint8_t>(ciLibGetCardIndex(slotNo, camSlot));
  if (index >= camIndexCount) {
    printf("slotNo%lu camNo%lu casidMatch get ci_index=%d error! \n", lu(slotNo), lu(camSlot),
           index);
    return 0;
  }
  if (insertStatus(slotNo, camSlot) == 0) {
    return 0;
  }
  uint16_t caSysId = 0;
  for (uint8_t p = 0; p < pdesc->descProgCnt; ++p) {
    if (onCam(pdesc->prog[p], camSlot) && matchProgram(index, pdesc->prog[p], caSysId)) {
      return caSysId;
    }
  }
  return 0;
}
