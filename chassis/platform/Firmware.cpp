// The firmware's functions and data of CiPlatform.h.
#include "CiPlatform.h"
#include "platform/Binding.h"

using chassis::Binding;

namespace {

constexpr std::int32_t failed = -1;

}  // namespace

extern "C" {

volatile std::uint32_t is_all_card_loaded = 0;

int32_t AlarmAdd(AlarmRecord *record) {
  auto *alarms = Binding::parts().alarms;
  return alarms != nullptr ? alarms->raise(record) : failed;
}

int32_t AlarmDel(int32_t index, int32_t) {
  auto *alarms = Binding::parts().alarms;
  return alarms != nullptr ? alarms->clear(index) : failed;
}

// A card has one input port.
InPortForm *GetInPortFormList(std::uint32_t slotNo, std::uint32_t) {
  auto *card = Binding::card(slotNo);
  return card != nullptr ? card->inPortForm() : nullptr;
}

MuxCardForm *GetMuxCardFormList(std::uint32_t slotNo) {
  auto *card = Binding::card(slotNo);
  return card != nullptr ? card->muxForm() : nullptr;
}

}  // extern "C"
