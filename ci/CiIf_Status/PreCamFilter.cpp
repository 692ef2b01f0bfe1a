#include <string.h>

#include "CiIf_Status/Internal.h"
#include "CiIf_fpga/Checked.h"

using namespace ciif;

namespace {

constexpr uint32_t pidCount = 0x2000;
constexpr uint16_t nullPid = 0x1FFF;
constexpr uint16_t everyPid = 0xFFFF;
constexpr uint32_t pass = 1;
constexpr uint32_t filter = 0;

struct PidSet {
  uint8_t bits[pidCount / 8] = {};

  void add(uint16_t pid) {
    if (pid < pidCount) {
      bits[pid >> 3] = static_cast<uint8_t>(bits[pid >> 3] | 1u << (pid & 7));
    }
  }
  bool has(uint16_t pid) const { return pid < pidCount && test_bit(bits, pid) != 0; }
};

struct Port {
  uint32_t slotNo;
  uint32_t port;

  unsigned long cardNo() const { return lu(slotNo + 1); }
  unsigned long portNo() const { return lu(port + 1); }
};

// The multiplexer form is the chassis's: its fields stand at these byte offsets.
constexpr uint32_t programCountAt = 110;
constexpr uint32_t pidCountAt = 128;
constexpr uint32_t pidAt = 206;
constexpr uint32_t programSize = 236;
constexpr uint32_t pidSize = 4;

template <typename Field>
Field formField(const MuxCardForm *form, uint32_t offset) {
  Field field;
  memcpy(&field, reinterpret_cast<const uint8_t *>(form) + offset, sizeof field);
  return field;
}

void setRange(uint32_t slotNo, uint32_t end, uint32_t flag) {
  for (uint32_t pid = 0; pid < end; ++pid) {
    checked::SetCamFlit(slotNo, pid, flag);
  }
}

void collectScrambled(const Port &port, const CiDesc *pdesc, PidSet &scrambled) {
  const uint16_t count = static_cast<uint16_t>(pdesc->descProgCnt);
  for (uint16_t p = 0; p < count; ++p) {
    for (uint16_t e = 0; e < pdesc->prog[p].eleNum; ++e) {
      const uint16_t pid = pdesc->prog[p].ele[e].pid;
      scrambled.add(pid);
      bbPrintf("card %lu port %lu  pid 0x%x scrFlag\n", port.cardNo(), port.portNo(), pid);
    }
  }
}

void filterProgram(const Port &port, const MuxCardForm *form, uint16_t program,
                   const PidSet &scrambled) {
  const uint32_t base = program * programSize;
  const uint8_t count = formField<uint8_t>(form, base + pidCountAt);
  for (uint8_t j = 0; j < count; ++j) {
    const uint16_t pid = formField<uint16_t>(form, base + pidAt + j * pidSize);
    if (!scrambled.has(pid)) {
      checked::SetCamFlit(port.slotNo, pid, filter);
      bbPrintf("card %lu port %lu pre-filt pid 0x%x \n", port.cardNo(), port.portNo(), pid);
    }
  }
}

void filterClear(const Port &port, const CiDesc *pdesc, const MuxCardForm *form,
                 const PidSet &scrambled) {
  setRange(port.slotNo, nullPid, pass);
  checked::SetCamFlit(port.slotNo, nullPid, filter);
  const uint16_t programs = formField<uint16_t>(form, programCountAt);
  bbPrintf("pMuxCardProgCnt = %d\n", programs);
  bbPrintf("descProgCnt = %d\n", static_cast<int>(pdesc->descProgCnt));
  for (uint16_t i = 0; i < programs; ++i) {
    filterProgram(port, form, i, scrambled);
  }
}

}  // namespace

uint32_t test_bit(const uint8_t *bitfield, uint32_t bit) {
  if (bitfield == nullptr) {
    printf("test_bit bitfield==NULL !\n");
    return 0xFF;
  }
  return (bitfield[(bit & 0xFFFF) >> 3] >> (bit & 7)) & 1u;
}

void PreCAMFilte(uint32_t slotNo, uint32_t port) {
  if (!ciAssert(slotNo < MAX_BOARD_NUM, statusUnit, __LINE__, "slotNo<MAX_BOARD_NUM")) {
    return;
  }
  const CiDesc *pdesc = guardedDesc(statusUnit, slotNo, __LINE__, __LINE__);
  if (pdesc == nullptr) {
    return;
  }
  const Port where = {slotNo, port};
  if (pCiData[slotNo]->GetCardReady(slotNo) == 0) {
    setRange(slotNo, pidCount, filter);
    bbPrintf("card %lu port %lu pre-filt all pid return \n", where.cardNo(), where.portNo());
    return;
  }
  PidSet scrambled;
  collectScrambled(where, pdesc, scrambled);
  const MuxCardForm *form = GetMuxCardFormList(static_cast<uint8_t>(slotNo));
  if (form == nullptr) {
    printf("card %lu port %lu set PreCAMFilte can not find pMuxCard\n", where.cardNo(),
           where.portNo());
    return;
  }
  filterClear(where, pdesc, form, scrambled);
}

int testprefilter(uint32_t slotNo, uint32_t pid, uint32_t flag) {
  const uint8_t slot = static_cast<uint8_t>(slotNo);
  const uint16_t onePid = static_cast<uint16_t>(pid);
  const uint8_t passes = static_cast<uint8_t>(flag);
  const char *verb = passes != 0 ? "PASS" : "FILT";
  if (onePid == everyPid) {
    setRange(slot, pidCount, passes);
    return printf("card %d #test pre filter#%s ALL PID\n", slot + 1, verb);
  }
  checked::SetCamFlit(slot, onePid, passes);
  return printf("card %d #test pre filter#%s PID 0x%x\n", slot + 1, verb, onePid);
}
