#include "CiIf_capmt/CaPmtRecord.h"

#include <string.h>

namespace {

constexpr uint8_t listSize = 32;
constexpr uint32_t privSize = 256;

// The CA descriptors of a list that the CAM supports.
struct Collection {
  uint8_t count = 0;
  CiDescCa ca[listSize] = {};
  uint8_t privLen[listSize] = {};
  uint8_t privOff[listSize] = {};
};

Collection collect(const CiDescCaList &list, uint8_t index) {
  Collection found;
  for (uint16_t k = 0; k < list.caNum && found.count < listSize; ++k) {
    if (ciLibCaSysIdMatch(index, list.ca[k].casid) != 0) {
      continue;
    }
    found.ca[found.count] = list.ca[k];
    found.privLen[found.count] = list.privLen[k];
    found.privOff[found.count] = list.privOff[k];
    ++found.count;
  }
  return found;
}

// Copies private bytes to the place that they have in the pool, up to the end of the pool as seen
// from their own offset and from `boundOff`.
void copyPrivate(uint8_t *area, const uint8_t *pool, uint8_t off, uint8_t len, uint8_t boundOff) {
  const uint32_t end = privSize - (off > boundOff ? off : boundOff);
  memcpy(area + off, pool + off, len < end ? len : end);
}

// The program and its streams hold their descriptors in fields of the same names.
template <typename Level>
void writeCa(Level &level, const Collection &found) {
  level.caNum = found.count;
  for (uint8_t k = 0; k < found.count; ++k) {
    level.casid[k] = found.ca[k].casid;
    level.caPid[k] = found.ca[k].ecmPid;
  }
}

template <typename Level>
void writePrivate(Level &level, const Collection &found, uint8_t k, const uint8_t *pool,
                  uint8_t boundOff) {
  level.privLen[k] = found.privLen[k];
  level.privOff[k] = found.privOff[k];
  copyPrivate(level.privData, pool, found.privOff[k], found.privLen[k], boundOff);
}

void writeProgramCa(CaPmtProg &record, const CiDescProg &program, uint8_t index) {
  const Collection found = collect(program.caList, index);
  writeCa(record, found);
  for (uint8_t k = 0; k < found.count; ++k) {
    writePrivate(record, found, k, program.caList.privData, found.privOff[k]);
  }
}

// Stream s bounds all its private data by the offset in collection slot s, and leaves descriptors
// without private data at offset 0.
void writeStreamCa(CaPmtElem &entry, const CiDescElem &stream, uint8_t s, uint8_t index,
                   CaPmtCmdId cmdId) {
  const Collection found = collect(stream.caList, index);
  writeCa(entry, found);
  if (found.count != 0) {
    entry.cmdId = cmdId;
  }
  for (uint8_t k = 0; k < found.count; ++k) {
    if (found.privLen[k] != 0) {
      writePrivate(entry, found, k, stream.caList.privData, found.privOff[s]);
    }
  }
}

}  // namespace

void fillCaPmtRecord(CaPmtProg &record, const CiDescProg &program, uint8_t index, uint8_t version,
                     CaPmtCmdId streamCmdId) {
  memset(&record, 0, sizeof record);
  record.mark = 1;
  record.progNum = program.prog_num;
  record.version = version;
  if ((program.caLevel & 1) != 0) {
    writeProgramCa(record, program, index);
  }
  record.cmdId = okDescrambling;
  record.caLevel = static_cast<uint8_t>(program.caLevel);
  record.eleNum = static_cast<uint8_t>(program.eleNum);
  for (uint8_t s = 0; s < record.eleNum && s < listSize; ++s) {
    record.ele[s].streamType = static_cast<uint8_t>(program.ele[s].streamType);
    record.ele[s].pid = program.ele[s].pid;
    if ((program.caLevel & 2) != 0) {
      writeStreamCa(record.ele[s], program.ele[s], s, index, streamCmdId);
    }
  }
}
