// Calls of a card's hardware functions, checked in one of two styles. The function's own parameter
// types cut the arguments to their widths. The checks stand in line with the caller, who asks a
// card thousands of times a cycle; what tells of a failure does not.
#ifndef CHECKED_CALL_H
#define CHECKED_CALL_H

#include "CiIf.h"

namespace ciif {

// Functions without a result are not all range-checked: some callers vouch for the slot.
enum class Range { checked, vouched };

// Tells what is missing on the way to a function of the slot's record, first things first.
void reportMissing(uint32_t slotNo, const char *name);
void assertMissing(Range range, uint32_t slotNo, const char *condition);

// A function of the slot's record; null when anything on the way to it is missing.
template <typename Function>
Function registered(Range range, size_t slotNo, Function CiData::*field) {
  const bool inRange = range == Range::vouched || slotNo < MAX_BOARD_NUM;
  return inRange && pCiData[slotNo] != nullptr ? pCiData[slotNo]->*field : nullptr;
}

// A driver may answer with the whole register where sixteen bits count. Conventions differ in who
// cuts a result, so a compiler may take it to be cut already; what is stored is cut in any case.
inline uint16_t cut(uint16_t result) {
  volatile uint16_t stored = result;
  return stored;
}
inline uint32_t cut(uint32_t result) {
  return result;
}
inline int32_t cut(int32_t result) {
  return result;
}

// A function with a result: a message tells what is missing, and `failure` is the answer.
template <typename Result, typename... Params>
struct Reported {
  Result (*CiData::*field)(uint32_t, Params...);
  const char *name;
  Result failure;

  template <typename... Args>
  Result operator()(size_t slotNo, Args... args) const {
    const auto function = registered(Range::checked, slotNo, field);
    if (function == nullptr) {
      reportMissing(static_cast<uint32_t>(slotNo), name);
      return failure;
    }
    return cut(function(static_cast<uint32_t>(slotNo), static_cast<Params>(args)...));
  }
};

// A function without a result: an assertion tells what is missing.
template <typename Slot, typename... Params>
struct Asserted {
  void (*CiData::*field)(Slot, Params...);
  const char *condition;
  Range range;

  template <typename... Args>
  void operator()(size_t slotNo, Args... args) const {
    const auto function = registered(range, slotNo, field);
    if (function == nullptr) {
      assertMissing(range, static_cast<uint32_t>(slotNo), condition);
      return;
    }
    function(static_cast<Slot>(slotNo), static_cast<Params>(args)...);
  }
};

template <typename Result, typename... Params>
Reported(Result (*CiData::*)(uint32_t, Params...), const char *, int)
    -> Reported<Result, Params...>;

template <typename Slot, typename... Params>
Asserted(void (*CiData::*)(Slot, Params...), const char *, Range) -> Asserted<Slot, Params...>;

}  // namespace ciif

#endif
