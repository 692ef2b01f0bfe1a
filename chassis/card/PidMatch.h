// Which PID behind a receiver is which before it: by the programs of both.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ts/Psi.h"

namespace chassis {

// Program numbers behind, by those before; those that are not in it are the same.
using ProgramNumbers = std::map<std::uint16_t, std::uint16_t>;

struct PidMatch {
  PidMatch() : before(pidCount, nullPid) {}

  std::vector<std::uint16_t> before;   // by the PID behind; nullPid: none
  std::set<std::uint16_t> missing;     // programs before that are not behind
  std::vector<std::string> unmatched;  // streams before that have none behind, a clause each
};

// The streams of a program are the same by PID and type; those that are left, by type and order. A
// PID before has one behind: the first that is found.
PidMatch matchPids(const Psi &before, const Psi &behind, const ProgramNumbers &numbers);

}  // namespace chassis
