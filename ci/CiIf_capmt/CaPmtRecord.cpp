#include "CiIf_capmt/CaPmtRecord.h"

#include <string.h>

#include "CiIf_capmt/CaDescriptors.h"

using namespace ciif;

namespace {

// Copies private bytes to the place that they have in the pool: those of each descriptor up to the
// end of the pool as seen from their own offset and from `boundOff`.
template <typename Level>
void copyPrivate(Level &level, const PrivateRun &run, const uint8_t *pool, uint8_t boundOff) {
  if (run.whole(privSize - boundOff)) {
    memcpy(level.privData, pool, run.end);
    return;
  }
  for (uint8_t k = 0; k < level.caNum; ++k) {
    const uint8_t off = level.privOff[k];
    const uint32_t room = privSize - (off > boundOff ? off : boundOff);
    const uint32_t len = level.privLen[k];
    memcpy(level.privData + off, pool + off, len < room ? len : room);
  }
}

void writeProgramCa(CaPmtProg &record, const CiDescProg &program, uint8_t index) {
  const PrivateRun run = writeCa(record, program.caList, index);
  copyPrivate(record, run, program.caList.privData, 0);
}

// Stream s bounds all its private data by the offset in collection slot s, and leaves descriptors
// without private data at offset 0.
void writeStreamCa(CaPmtElem &entry, const CiDescElem &stream, uint8_t s, uint8_t index,
                   CaPmtCmdId cmdId) {
  const PrivateRun run = writeCa(entry, stream.caList, index);
  copyPrivate(entry, run, stream.caList.privData, entry.privOff[s]);
  if (!run.whole(privSize)) {
    for (uint8_t k = 0; k < entry.caNum; ++k) {
      entry.privOff[k] = entry.privLen[k] != 0 ? entry.privOff[k] : 0;
    }
  }
  if (entry.caNum != 0) {
    entry.cmdId = cmdId;
  }
}

}  // namespace

void ciif::fillCaPmtRecord(CaPmtProg &record, const CiDescProg &program, uint8_t index,
                           uint8_t version, CaPmtCmdId streamCmdId) {
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
