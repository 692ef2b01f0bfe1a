// Calls of a card's hardware functions, checked in one of two styles. The function's own parameter
// types cut the arguments to their widths.
#ifndef CHECKED_CALL_H
#define CHECKED_CALL_H

#include "CiIf.h"

using CardFunction = void (*)(void);

// A function of the card record: where it stands and what a message calls it.
template <typename Function>
struct CardField {
  size_t offset;
  const char *name;
};

#define REPORTED(name) (CardField<decltype(CiData::name)>{offsetof(CiData, name), #name})
#define ASSERTED(name) \
  (CardField<decltype(CiData::name)>{offsetof(CiData, name), "pCiData[slotNo]->" #name})

// Functions without a result are not all range-checked: some callers vouch for the slot.
enum class Range { checked, vouched };

// The function at `offset` of the slot's record; null after a message that tells what is missing.
CardFunction reportedFunction(uint32_t slotNo, size_t offset, const char *name);
CardFunction assertedFunction(Range range, uint32_t slotNo, size_t offset, const char *condition);

template <typename Result, typename... Params, typename... Args>
Result callReported(CardField<Result (*)(uint32_t, Params...)> field, Result failure,
                    uint32_t slotNo, Args... args) {
  const CardFunction function = reportedFunction(slotNo, field.offset, field.name);
  if (function == nullptr) {
    return failure;
  }
  return reinterpret_cast<Result (*)(uint32_t, Params...)>(function)(slotNo,
                                                                     static_cast<Params>(args)...);
}

template <typename Slot, typename... Params, typename... Args>
void callAsserted(CardField<void (*)(Slot, Params...)> field, Range range, uint32_t slotNo,
                  Args... args) {
  const CardFunction function = assertedFunction(range, slotNo, field.offset, field.name);
  if (function != nullptr) {
    reinterpret_cast<void (*)(Slot, Params...)>(function)(static_cast<Slot>(slotNo),
                                                          static_cast<Params>(args)...);
  }
}

#endif
