#include "report/StatusWatch.h"

#include "report/Changes.h"

namespace chassis {

StatusWatch::StatusWatch(Chassis &chassis, Timeline &timeline)
    : chassis_(chassis), timeline_(timeline) {
  chassis_.onChecked([this](std::uint32_t slot) { look(slot); });
}

void StatusWatch::look(std::uint32_t slot) {
  CardFinding now = examine(chassis_, slot);
  for (const Change &change : changesBetween(last_[slot], now)) {
    timeline_.report(change.place, change.what, change.why, change.tone);
  }
  last_[slot] = std::move(now);
  insertions_[slot] = chassis_.card(slot).insertions();
}

const CardFinding *StatusWatch::snapshot(std::uint32_t slot) const {
  const Card &card = chassis_.card(slot);
  return card.inserted() && card.insertions() == insertions_[slot] ? &last_[slot] : nullptr;
}

}  // namespace chassis
