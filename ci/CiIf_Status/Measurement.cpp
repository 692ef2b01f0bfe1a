#include "CiIf_Status/FailureCause.h"
#include "CiIf_Status/Internal.h"
#include "CiIf_fpga/Checked.h"

using namespace ciif;

namespace {

constexpr uint8_t readFailed = 0xFF;

uint8_t readDescState(uint8_t slotNo, uint16_t pid, uint32_t pidType) {
  checked::wrDesPid(slotNo, pid);
  return static_cast<uint8_t>(checked::rdDescStat(slotNo, pidType));
}

uint8_t pidStatus(uint8_t slotNo, const DescPidStat &record, FailureCause &cause, uint16_t e) {
  const uint8_t state = readDescState(slotNo, record.pid, record.type);
  if (ciLikely(state == 0)) {
    return DESC_STAT_OK;
  }
  if (state == readFailed) {
    printf("read pid:0x%x desc status error!!\n", record.pid);
    return DESC_STAT_UNKNOWN;
  }
  return cause.ofStream(e);
}

void measureProgram(const CamPass &pass, const CiDescProg &program, DescProgStat &result) {
  FailureCause cause(pass, program);
  const uint8_t slotNo = pass.slotNo;
  uint8_t worst = DESC_STAT_OK;
  result.progStatus = worst;
  const uint16_t count = program.eleNum;
  for (uint16_t e = 0; e < count; ++e) {
    const uint8_t status = pidStatus(slotNo, result.pid[e], cause, e);
    result.pid[e].status = status;
    if (status < worst) {
      result.progStatus = worst = status;
    }
  }
}

}  // namespace

void getFpgaDescPidSta(uint32_t slotNo, uint32_t camSlot) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const CiDesc *pdesc = guardedDesc(statusUnit, slot, 458, 460);
  if (pdesc == nullptr) {
    return;
  }
  const CamPass pass = {slot, camSlot, casidMatch(slot, camSlot)};
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    if (onCam(pdesc->prog[p], camSlot)) {
      measureProgram(pass, pdesc->prog[p], DescStatus[slot][p]);
    }
  }
}

int printDesSta(uint32_t slotNo) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const CiDesc *pdesc = guardedDesc(statusUnit, slot, 639, 641);
  if (pdesc == nullptr) {
    return 0;
  }
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    const CiDescProg &program = pdesc->prog[p];
    printf("card %d prog_num 0x%x :\n", slot + 1, program.prog_num);
    for (uint16_t e = 0; e < program.eleNum; ++e) {
      const DescPidStat &record = DescStatus[slot][p].pid[e];
      const uint8_t state = readDescState(slot, record.pid, 0xFF);
      printf("    pid=0x%x,type=0x%x value=%d \n", record.pid, record.type, state);
    }
  }
  return 0;
}
