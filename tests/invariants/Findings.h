// What the module may leave in its records: rules about one look at them.
#ifndef TESTS_INVARIANTS_FINDINGS_H
#define TESTS_INVARIANTS_FINDINGS_H

#include <cstdint>

#include "CiPlatform.h"

namespace rules {

bool isStatus(uint8_t status);
bool isFinding(uint8_t value);  // of a CAM, or of the card's controller
bool areFindings(const CiData &card, uint32_t camSlot);
bool haveStatuses(const DescProgStat &row, const CiDescProg &program);
bool isOfItsWorst(const DescProgStat &row, const CiDescProg &program);
bool isWithinLimits(const CaPmtProg &record);

// What the module resets a CAM for.
bool isFault(const CiData &card, uint32_t camSlot);

}  // namespace rules

#endif
