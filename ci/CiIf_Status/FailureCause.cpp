#include "CiIf_Status/FailureCause.h"

#include <string.h>

#include "CiIf_Status/Internal.h"
#include "CiIf_fpga/Checked.h"

using namespace ciif;

namespace {

// Where a program's CA information applies; the streams' own lists win.
enum class CaLevel { stream, program, none };

CaLevel caLevel(const CiDescProg &program) {
  if ((program.caLevel & 2) != 0) {
    return CaLevel::stream;
  }
  return (program.caLevel & 1) != 0 ? CaLevel::program : CaLevel::none;
}

// EN 50221 CA_enable: descrambling is not possible.
constexpr uint8_t noEntitlement = 0x71;
constexpr uint8_t technicalReasons = 0x73;

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

// Whether any CA_enable in reach of an entry is a refusal, that behind its last stream included.
bool refusesAny(size_t entry) {
  const uint8_t count = replyField<uint8_t>(entry + offsetof(CaPmtReplyProg, eleNum));
  size_t offset = entry + offsetof(CaPmtReplyProg, ele) + offsetof(CaPmtReplyElem, caEnable);
  uint8_t caEnable = replyField<uint8_t>(entry + offsetof(CaPmtReplyProg, caEnable));
  for (uint16_t n = 0; n <= count && caEnable != noEntitlement && caEnable != technicalReasons;
       ++n) {
    caEnable = replyField<uint8_t>(offset);
    offset += sizeof(CaPmtReplyElem);
  }
  return caEnable == noEntitlement || caEnable == technicalReasons;
}

ReplyEntries refusingEntries(const CamPass &pass, uint16_t progNum) {
  const uint32_t record = pass.slotNo * MAX_CAM_NUM + pass.camSlot;
  const uint16_t count = caPmtReplyInfo[record].progNum;
  size_t entry = record * sizeof(CaPmtReply) + offsetof(CaPmtReply, prog);
  ReplyEntries entries;
  for (uint16_t i = 0; i < count && entry < sizeof caPmtReplyInfo; ++i) {
    if (replyField<uint16_t>(entry) == progNum && refusesAny(entry)) {
      entries.begin = entries.end == 0 ? entry : entries.begin;
      entries.end = entry + sizeof(CaPmtReplyProg);
    }
    entry += sizeof(CaPmtReplyProg);
  }
  return entries;
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
uint8_t replyStatus(const CamPass &pass, const CiDescProg &program, const ReplyEntries &entries,
                    uint16_t pid) {
  for (size_t entry = entries.begin; entry < entries.end; entry += sizeof(CaPmtReplyProg)) {
    if (replyField<uint16_t>(entry) != program.prog_num) {
      continue;
    }
    const uint8_t caEnable = entryCaEnable(entry, caLevel(program), pid);
    if (caEnable == noEntitlement) {
      bbPrintf("card %d Program %04x NO_ENTITLEMENT\n", pass.slotNo + 1, program.prog_num);
      return DESC_STAT_NO_ENTITLEMENT;
    }
    if (caEnable == technicalReasons) {
      return DESC_STAT_TECHNICAL;
    }
  }
  return DESC_STAT_SCRAMBLED;
}

// A CA list's ECM PIDs, up to 32, each once. Two PIDs alike in their low 6 bits are compared with
// all before them; all others are new at a glance.
class EcmPids {
 public:
  bool full() const { return count_ == listSize; }

  // Whether the PID is new.
  bool add(uint16_t pid) {
    bool &seen = seen_[pid % groups];
    if (ciLikely(!seen) || !has(pid)) {
      seen = true;
      pid_[count_++] = pid;
      return true;
    }
    return false;
  }

 private:
  static constexpr uint32_t listSize = 32;
  static constexpr uint32_t groups = 64;

  bool has(uint16_t pid) const {
    for (const uint16_t *each = pid_; each != pid_ + count_; ++each) {
      if (*each == pid) {
        return true;
      }
    }
    return false;
  }

  bool seen_[groups] = {};
  uint32_t count_ = 0;
  uint16_t pid_[listSize];
};

// What the ECM PIDs say before the CAM. Reading their counts resets them: the next PID of the same
// program sees only what was counted since.
struct EcmReading {
  uint32_t existence = 0;
  uint32_t ccErrors = 0;

  void add(size_t slotNo, uint16_t pid) {
    existence += checked::GetPreCAMPidExist(slotNo, pid);
    ccErrors += checked::GetPreCAMCC(slotNo, pid);
    checked::SetPreCAMCC(slotNo, pid, 0);
  }
};

uint8_t ecmStatus(size_t slotNo, const CiDescCaList &list, uint16_t caSysId) {
  EcmPids ecmPids;
  EcmReading reading;
  for (uint32_t k = 0; k < list.caNum && !ecmPids.full(); ++k) {
    const CiDescCa &ca = list.ca[k];
    if (ciLikely(ca.casid == caSysId && ecmPids.add(ca.ecmPid))) {
      reading.add(slotNo, ca.ecmPid);
    }
  }
  if (reading.existence == 0) {
    return DESC_STAT_NO_ECM;
  }
  return reading.ccErrors != 0 ? DESC_STAT_ECM_CC : DESC_STAT_SCRAMBLED;
}

// Why a PID is not descrambled, by the stream before the CAM.
uint8_t streamStatus(const CamPass &pass, const CiDescProg &program, const CiDescElem &stream) {
  switch (caLevel(program)) {
    case CaLevel::stream:
      return ecmStatus(pass.slotNo, stream.caList, pass.caSysId);
    case CaLevel::program:
      return ecmStatus(pass.slotNo, program.caList, pass.caSysId);
    default:
      printf("getFpgaDescPidSta get ecm pid error! \n");
      return DESC_STAT_NO_ECM;
  }
}

}  // namespace

uint8_t ciif::FailureCause::ofStream(uint16_t e) {
  const CiDescElem &stream = program_.ele[e];
  const uint16_t count = caPmtReplyInfo[pass_.slotNo * MAX_CAM_NUM + pass_.camSlot].progNum;
  if (count != searched_) {
    entries_ = refusingEntries(pass_, program_.prog_num);
    searched_ = count;
  }
  const uint8_t status = replyStatus(pass_, program_, entries_, stream.pid);
  return status != DESC_STAT_SCRAMBLED ? status : streamStatus(pass_, program_, stream);
}
