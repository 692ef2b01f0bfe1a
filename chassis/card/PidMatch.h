// Which PID behind a receiver is which before it: by the programs of both.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "ts/Psi.h"

namespace chassis {

// Program numbers behind, by those before; those that are not in it are the same.
using ProgramNumbers = std::map<std::uint16_t, std::uint16_t>;
std::uint16_t numberBehind(const ProgramNumbers &numbers, std::uint16_t program);

// A stream before that has none behind.
struct UnmatchedStream {
  std::uint16_t program = 0;
  std::uint16_t pid = nullPid;
  std::uint8_t type = 0;
};
bool operator==(const UnmatchedStream &a, const UnmatchedStream &b);

struct PidMatch {
  PidMatch() : before(pidCount, nullPid) {}

  std::vector<std::uint16_t> before;  // by the PID behind; nullPid: none
  std::set<std::uint16_t> missing;    // programs before that are not behind
  std::vector<UnmatchedStream> unmatched;
};

// The streams of a program are the same by PID and type; those that are left, by type and order. A
// PID before has one behind: the first that is found.
PidMatch matchPids(const Psi &before, const Psi &behind, const ProgramNumbers &numbers);

// The same programs without the streams that have none behind.
Psi withoutUnmatched(const Psi &before, const PidMatch &match);

}  // namespace chassis
