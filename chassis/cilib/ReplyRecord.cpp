#include "cilib/ReplyRecord.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace chassis {
namespace {

CaPmtReplyProg makeEntry(const CaReply &reply) {
  CaPmtReplyProg entry{};
  entry.progNum = reply.program;
  entry.caEnable = reply.caEnable;
  entry.eleNum = static_cast<std::uint8_t>(std::min(reply.streams.size(), std::size(entry.ele)));
  for (std::size_t s = 0; s < entry.eleNum; ++s) {
    entry.ele[s].pid = reply.streams[s].pid;
    entry.ele[s].caEnable = reply.streams[s].caEnable;
  }
  return entry;
}

CaPmtReplyProg *endOf(CaPmtReply &record) {
  return record.prog + std::min<std::size_t>(record.progNum, std::size(record.prog));
}

CaPmtReplyProg *find(CaPmtReply &record, std::uint16_t program) {
  return std::find_if(record.prog, endOf(record),
                      [program](const CaPmtReplyProg &entry) { return entry.progNum == program; });
}

}  // namespace

FiledReply fileReply(CaPmtReply &record, const CaReply &reply) {
  FiledReply result;
  CaPmtReplyProg *place = find(record, reply.program);
  const bool appended = place == endOf(record);
  if (place == std::end(record.prog)) {
    return result;
  }
  const CaPmtReplyProg entry = makeEntry(reply);
  result.filed = true;
  result.changed = appended || std::memcmp(place, &entry, sizeof entry) != 0;
  result.streamsLeftOut = reply.streams.size() - entry.eleNum;
  *place = entry;
  record.progNum = static_cast<std::uint16_t>(record.progNum + (appended ? 1 : 0));
  return result;
}

void dropReply(CaPmtReply &record, std::uint16_t program) {
  CaPmtReplyProg *place = find(record, program);
  CaPmtReplyProg *end = endOf(record);
  if (place == end) {
    return;
  }
  std::move(place + 1, end, place);
  *(end - 1) = CaPmtReplyProg{};
  record.progNum = static_cast<std::uint16_t>(end - 1 - record.prog);
}

}  // namespace chassis
