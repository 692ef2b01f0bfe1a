#include "CaPmts.h"

#include <algorithm>

#include "cilib/ApduCodec.h"

namespace {

constexpr uint8_t add = 4;

template <typename Level>
void setCa(Level &level, const CiDescCaList &list) {
  level.cmdId = list.caNum != 0 ? chassis::cmdOkDescrambling : 0;
  level.caNum = static_cast<uint8_t>(list.caNum);
  for (uint32_t k = 0; k < list.caNum; ++k) {
    level.casid[k] = list.ca[k].casid;
    level.caPid[k] = list.ca[k].ecmPid;
  }
}

}  // namespace

chassis::Apdu caPmtOf(const CiDescProg &program) {
  CaPmtProg record{};
  record.mark = record.version = 1;
  record.caLevel = static_cast<uint8_t>(program.caLevel);
  record.listMgmt = add;
  record.progNum = program.prog_num;
  setCa(record, program.caList);
  record.eleNum = static_cast<uint8_t>(program.eleNum);
  for (uint32_t e = 0; e < program.eleNum; ++e) {
    record.ele[e].streamType = static_cast<uint8_t>(program.ele[e].streamType);
    record.ele[e].pid = program.ele[e].pid;
    setCa(record.ele[e], program.ele[e].caList);
  }
  return chassis::encodeCaPmt(record).apdu;
}
