// The module's record of a CAM's answer to the last query.
#pragma once

#include <cstddef>
#include <cstdint>

#include "CiPlatform.h"
#include "cilib/ApduCodec.h"

namespace chassis {

// What became of a reply.
struct FiledReply {
  bool filed = false;              // false: the record is full
  bool changed = false;            // the record says something else than before
  std::size_t streamsLeftOut = 0;  // streams beyond the 32 of an entry
};

// Puts a reply in place of the one of the same program, else behind the last one. What lies beyond
// the counts stays zero.
FiledReply fileReply(CaPmtReply &record, const CaReply &reply);

// Takes the reply of a program out again; those behind it move up.
void dropReply(CaPmtReply &record, std::uint16_t program);

}  // namespace chassis
