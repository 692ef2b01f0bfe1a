#include <string.h>

#include "CiIf_Status/Internal.h"

using namespace ciif;

DescProgStat DescStatus[MAX_BOARD_NUM][32];

namespace {

constexpr uint16_t noPid = 0x1FFF;

// ISO/IEC 13818-1 stream_type of MPEG-1 and MPEG-2 video and audio, AAC in LATM and H.264.
constexpr uint16_t audioVideoTypes[] = {0x01, 0x02, 0x03, 0x04, 0x11, 0x1B};

uint8_t pidType(uint16_t streamType) {
  for (const uint16_t type : audioVideoTypes) {
    if (type == streamType) {
      return DESC_PID_TYPE_AV;
    }
  }
  return DESC_PID_TYPE_OTHER;
}

void clearProgram(DescProgStat &program) {
  program.progStatus = DESC_STAT_UNKNOWN;
  for (DescPidStat &record : program.pid) {
    record.pid = noPid;
    record.status = DESC_STAT_UNKNOWN;
  }
}

}  // namespace

void clrSlotDescPID(uint32_t slotNo) {
  DescProgStat(&rows)[32] = DescStatus[static_cast<uint8_t>(slotNo)];
  memset(rows, 0, sizeof rows);
  for (DescProgStat &program : rows) {
    clearProgram(program);
  }
}

void clrDescStat(uint32_t slotNo, uint32_t camSlot) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const CiDesc *pdesc = guardedDesc(statusUnit, slot, 190, 192);
  if (pdesc == nullptr) {
    return;
  }
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    if (!onCam(pdesc->prog[p], camSlot)) {
      continue;
    }
    DescStatus[slot][p].progStatus = DESC_STAT_UNKNOWN;
    for (uint16_t e = 0; e < pdesc->prog[p].eleNum; ++e) {
      DescStatus[slot][p].pid[e].status = DESC_STAT_UNKNOWN;
    }
  }
}

void getDescPidInfo(uint32_t slotNo, uint32_t camSlot) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const CiDesc *pdesc = guardedDesc(statusUnit, slot, 229, 231);
  if (pdesc == nullptr) {
    return;
  }
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    const CiDescProg &program = pdesc->prog[p];
    if (!onCam(program, camSlot)) {
      continue;
    }
    for (uint16_t e = 0; e < program.eleNum; ++e) {
      const CiDescElem &stream = program.ele[e];
      DescStatus[slot][p].pid[e].pid = stream.pid;
      DescStatus[slot][p].pid[e].type = pidType(stream.streamType);
      bbPrintf("card %d program 0x%x,streamType 0x%x Pid 0x%x\n", slot + 1, program.prog_num,
               stream.streamType, stream.pid);
    }
  }
}

void getSlotDescPidInfo(uint32_t slotNo) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  if (!ciAssert(slot < MAX_BOARD_NUM, statusUnit, 270, "slotNo<MAX_BOARD_NUM")) {
    return;
  }
  clrSlotDescPID(slot);
  getDescPidInfo(slot, 0);
  getDescPidInfo(slot, 1);
}
