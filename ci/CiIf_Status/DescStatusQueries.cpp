#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

// A program on one CAM can only be told while that CAM is in; one on both is always told.
bool camsAnswer(uint32_t slotNo, uint8_t camMask) {
  switch (camMask) {
    case 0:
      return false;
    case 1:
      return insertStatus(slotNo, 0) != 0;
    case 2:
      return insertStatus(slotNo, 1) != 0;
    default:
      return true;
  }
}

uint8_t pidStatus(const DescProgStat &program, uint16_t eleNum, uint16_t pid) {
  for (uint16_t e = 0; e < eleNum; ++e) {
    if (program.pid[e].pid == pid) {
      return program.pid[e].status;
    }
  }
  return DESC_STAT_UNKNOWN;
}

struct Count {
  uint32_t total = 0;
  uint32_t bad = 0;
  uint8_t scrambled = 0;  // DESC_SUM_SCRAMBLED or 0
};

// All statuses in one byte: DESC_STAT_OK has all bits set, so it is left only when all are that.
uint8_t common(const DescProgStat &program, uint16_t eleNum) {
  uint8_t bits = DESC_STAT_OK;
  if (eleNum % 2 != 0) {
    bits = program.pid[eleNum - 1].status;
  }
  for (uint16_t e = 0; e < eleNum / 2; ++e) {
    bits &= program.pid[2 * e].status & program.pid[2 * e + 1].status;
  }
  return bits;
}

void countBad(const DescProgStat &program, uint16_t eleNum, Count &count) {
  for (uint16_t e = 0; e < eleNum; ++e) {
    const uint8_t status = program.pid[e].status;
    if (status != DESC_STAT_OK) {
      ++count.bad;
    }
    if (status == DESC_STAT_SCRAMBLED) {
      count.scrambled = DESC_SUM_SCRAMBLED;
    }
  }
}

void countProgram(const DescProgStat &program, uint16_t eleNum, Count &count) {
  count.total += eleNum;
  if (common(program, eleNum) != DESC_STAT_OK) {
    countBad(program, eleNum, count);
  }
}

static_assert(DESC_STAT_OK == 0xFF, "no other status has all bits set");

uint8_t summary(const Count &count) {
  // The bad count has 8 bits: 256 bad PIDs read as none.
  const uint8_t bad = static_cast<uint8_t>(count.bad);
  const uint16_t total = static_cast<uint16_t>(count.total);
  if (bad == 0) {
    return DESC_SUM_OK;
  }
  if (bad > total) {
    printf("getDescStat error! \n");
    return DESC_SUM_ERROR;
  }
  const uint8_t extent = bad < total ? DESC_SUM_PART : DESC_SUM_ALL;
  return static_cast<uint8_t>(extent | count.scrambled);
}

}  // namespace

uint8_t getDescStatWeb(uint32_t slotNo, uint32_t query) {
  const CiDesc *pdesc = namedDesc(slotNo, "getDescStatWeb");
  if (pdesc == nullptr) {
    return DESC_STAT_UNKNOWN;
  }
  if (pCiData[slotNo]->GetCardOnline(slotNo) != 1 || pCiData[slotNo]->GetCardReady(slotNo) == 0) {
    return DESC_STAT_UNKNOWN;
  }
  const uint32_t p = query >> 16;
  const uint16_t pid = query & 0x1FFF;
  const CiDescProg &program = pdesc->prog[p];
  if (!camsAnswer(slotNo, program.camMask) || program.eleNum == 0) {
    return DESC_STAT_UNKNOWN;
  }
  const DescProgStat &status = DescStatus[slotNo][p];
  return pid == 0 ? status.progStatus : pidStatus(status, program.eleNum, pid);
}

uint8_t getDescStat(uint32_t slotNo, uint32_t camSlot) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const CiDesc *pdesc = namedDesc(slot, "getDescStat");
  if (pdesc == nullptr) {
    return DESC_SUM_ERROR;
  }
  Count count;
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    if (onCam(pdesc->prog[p], camSlot)) {
      countProgram(DescStatus[slot][p], pdesc->prog[p].eleNum, count);
    }
  }
  return summary(count);
}
