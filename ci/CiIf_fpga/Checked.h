// The hardware functions for those who call them thousands of times: what the exported accessor of
// the same name does, in line.
#ifndef CHECKED_H
#define CHECKED_H

#include "CiIf_fpga/CheckedCall.h"

namespace ciif::checked {

// A name cannot stand in parentheses. NOLINTBEGIN(bugprone-macro-parentheses)
#define REPORTED(name, failure)                     \
  [[maybe_unused]] constexpr auto name = Reported { \
    &CiData::name, #name, failure                   \
  }
#define ASSERTED(name, range)                              \
  [[maybe_unused]] constexpr auto name = Asserted {        \
    &CiData::name, "pCiData[slotNo]->" #name, Range::range \
  }
// NOLINTEND(bugprone-macro-parentheses)

// Functions with a result answer 0 where one is missing, PllReg alone -1. Three of those without
// one trust the slot number.
REPORTED(cimax_sync_ok, 0);
REPORTED(cimax_pid_rate_pre, 0);
REPORTED(cimax_sys_rate_pre, 0);
REPORTED(cimax_vld_rate_pre, 0);
ASSERTED(SetPreCAMCC, vouched);
REPORTED(GetPreCAMCC, 0);
ASSERTED(ClrAllPreCAMPidExist, checked);
REPORTED(GetPreCAMPidExist, 0);
REPORTED(cimax_pid_rate, 0);
REPORTED(cimax_sys_rate, 0);
REPORTED(cimax_vld_rate, 0);
ASSERTED(SetCAMCC, vouched);
REPORTED(GetCAMCC, 0);
ASSERTED(ClrAllCAMPidExist, vouched);
REPORTED(GetCAMPidExist, 0);
REPORTED(PllReg, -1);
REPORTED(PllLock, 0);
ASSERTED(SetCamFlit, checked);
ASSERTED(wrDesPid, checked);
REPORTED(rdDescStat, 0);

#undef REPORTED
#undef ASSERTED

}  // namespace ciif::checked

#endif
