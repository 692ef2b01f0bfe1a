// CA PMT records as the module fills them.
#pragma once

#include <cstdint>

#include "CiPlatform.h"

namespace chassis {

// A program with one stream of PID 0x100 + number under one CA system at stream level.
inline void fillRecord(CaPmtProg &record, std::uint16_t program, std::uint8_t cmdId,
                       std::uint8_t listManagement, std::uint16_t casid) {
  record = {};
  record.mark = 1;
  record.caLevel = 2;
  record.cmdId = cmdId;
  record.listMgmt = listManagement;
  record.progNum = program;
  record.version = 1;
  record.eleNum = 1;
  record.ele[0].cmdId = cmdId;
  record.ele[0].streamType = 2;
  record.ele[0].pid = static_cast<std::uint16_t>(0x100 + program);
  record.ele[0].caNum = 1;
  record.ele[0].casid[0] = casid;
  record.ele[0].caPid[0] = static_cast<std::uint16_t>(0x200 + program);
}

}  // namespace chassis
