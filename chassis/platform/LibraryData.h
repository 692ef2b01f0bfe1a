// The CI library's part of CiPlatform.h: its functions reach the bound CiLibrary, its data exists
// from the start.
#pragma once

#include "cilib/CiLibrary.h"

namespace chassis {

// CaPMTFlag and caPmtReplyInfo.
CiLibrary::SharedData libraryData();

}  // namespace chassis
