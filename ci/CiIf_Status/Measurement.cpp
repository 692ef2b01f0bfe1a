#include <string.h>

#include "CiIf_Status/Internal.h"

namespace {

constexpr uint8_t readFailed = 0xFF;

uint8_t readDescState(uint8_t slotNo, uint16_t pid, uint32_t pidType) {
  wrDesPid(slotNo, pid);
  return static_cast<uint8_t>(rdDescStat(slotNo, pidType));
}

// Where a program's CA information applies; the streams' own lists win.
enum class CaLevel { stream, program, none };

CaLevel caLevel(const CiDescProg &program) {
  if ((program.caLevel & 2) != 0) {
    return CaLevel::stream;
  }
  return (program.caLevel & 1) != 0 ? CaLevel::program : CaLevel::none;
}

// The field of a reply at a byte offset of caPmtReplyInfo, 0 behind its end. The counts in a reply
// are the CAM's: a walk may leave the entry and the record that it began in.
template <typename Field>
Field replyField(size_t offset) {
  Field field = 0;
  if (offset + sizeof field <= sizeof caPmtReplyInfo) {
    memcpy(&field, reinterpret_cast<const uint8_t *>(caPmtReplyInfo) + offset, sizeof field);
  }
  return field;
}

// CA_enable of a PID in a reply entry. An entry without the PID answers with what stands behind
// its last stream, which the query's clearing left zero.
uint8_t streamCaEnable(size_t entry, uint16_t pid) {
  const uint8_t count = replyField<uint8_t>(entry + offsetof(CaPmtReplyProg, eleNum));
  size_t stream = entry + offsetof(CaPmtReplyProg, ele);
  for (uint8_t n = 0; n < count && replyField<uint16_t>(stream) != pid; ++n) {
    stream += sizeof(CaPmtReplyElem);
  }
  return replyField<uint8_t>(stream + offsetof(CaPmtReplyElem, caEnable));
}

// CA_enable that an entry gives for a PID; 0 where the program has no CA level.
uint8_t entryCaEnable(size_t entry, CaLevel level, uint16_t pid) {
  switch (level) {
    case CaLevel::stream:
      return streamCaEnable(entry, pid);
    case CaLevel::program:
      return replyField<uint8_t>(entry + offsetof(CaPmtReplyProg, caEnable));
    default:
      return 0;
  }
}

// What the CAM's reply says of a PID: DESC_STAT_NO_ENTITLEMENT, DESC_STAT_TECHNICAL or, when it
// refuses nothing, DESC_STAT_SCRAMBLED.
uint8_t replyStatus(uint8_t slotNo, uint32_t camSlot, const CiDescProg &program, uint16_t pid) {
  const uint32_t record = slotNo * MAX_CAM_NUM + camSlot;
  const uint16_t count = caPmtReplyInfo[record].progNum;
  size_t entry = record * sizeof(CaPmtReply) + offsetof(CaPmtReply, prog);
  for (uint16_t i = 0; i < count && entry < sizeof caPmtReplyInfo; ++i) {
    if (replyField<uint16_t>(entry) == program.prog_num) {
      const uint8_t caEnable = entryCaEnable(entry, caLevel(program), pid);
      if (caEnable == 0x71) {
        bbPrintf("card %d Program %04x NO_ENTITLEMENT\n", slotNo + 1, program.prog_num);
        return DESC_STAT_NO_ENTITLEMENT;
      }
      if (caEnable == 0x73) {
        return DESC_STAT_TECHNICAL;
      }
    }
    entry += sizeof(CaPmtReplyProg);
  }
  return DESC_STAT_SCRAMBLED;
}

struct EcmPids {
  uint16_t pid[32] = {};
  uint8_t count = 0;

  bool full() const { return count == 32; }
  void add(uint16_t ecmPid) {
    for (uint8_t k = 0; k < count; ++k) {
      if (pid[k] == ecmPid) {
        return;
      }
    }
    pid[count++] = ecmPid;
  }
};

void collectEcmPids(const CiDescCaList &list, uint16_t caSysId, EcmPids &ecmPids) {
  for (uint16_t k = 0; k < list.caNum && !ecmPids.full(); ++k) {
    if (list.ca[k].casid == caSysId) {
      ecmPids.add(list.ca[k].ecmPid);
    }
  }
}

// What the ECM PIDs before the CAM say. Reading their counts resets them: the next PID of the same
// program sees only what was counted since.
uint8_t ecmStatus(uint8_t slotNo, const EcmPids &ecmPids) {
  uint32_t existence = 0;
  uint32_t ccErrors = 0;
  for (uint8_t k = 0; k < ecmPids.count; ++k) {
    existence += GetPreCAMPidExist(slotNo, ecmPids.pid[k]);
    ccErrors += GetPreCAMCC(slotNo, ecmPids.pid[k]);
    SetPreCAMCC(slotNo, ecmPids.pid[k], 0);
  }
  if (existence == 0) {
    return DESC_STAT_NO_ECM;
  }
  return ccErrors != 0 ? DESC_STAT_ECM_CC : DESC_STAT_SCRAMBLED;
}

// Why a PID is not descrambled. The CAM's refusal wins over anything seen of the stream.
uint8_t classify(uint8_t slotNo, uint32_t camSlot, uint16_t caSysId, const CiDescProg &program,
                 const CiDescElem &stream) {
  const uint8_t status = replyStatus(slotNo, camSlot, program, stream.pid);
  if (status != DESC_STAT_SCRAMBLED) {
    return status;
  }
  EcmPids ecmPids;
  switch (caLevel(program)) {
    case CaLevel::stream:
      collectEcmPids(stream.caList, caSysId, ecmPids);
      break;
    case CaLevel::program:
      collectEcmPids(program.caList, caSysId, ecmPids);
      break;
    default:
      printf("getFpgaDescPidSta get ecm pid error! \n");
      break;
  }
  return ecmStatus(slotNo, ecmPids);
}

void measureProgram(uint8_t slotNo, uint32_t camSlot, uint16_t caSysId, const CiDescProg &program,
                    DescProgStat &result) {
  result.progStatus = DESC_STAT_OK;
  for (uint16_t e = 0; e < program.eleNum; ++e) {
    DescPidStat &record = result.pid[e];
    const uint8_t state = readDescState(slotNo, record.pid, record.type);
    if (state == readFailed) {
      record.status = DESC_STAT_UNKNOWN;
      printf("read pid:0x%x desc status error!!\n", record.pid);
    } else if (state == 0) {
      record.status = DESC_STAT_OK;
    } else {
      record.status = classify(slotNo, camSlot, caSysId, program, program.ele[e]);
    }
    if (result.progStatus >= record.status) {
      result.progStatus = record.status;
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
  const uint16_t caSysId = casidMatch(slot, camSlot);
  for (uint16_t p = 0; p < pdesc->descProgCnt; ++p) {
    if (onCam(pdesc->prog[p], camSlot)) {
      measureProgram(slot, camSlot, caSysId, pdesc->prog[p], DescStatus[slot][p]);
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
