#include "status/StatusWatch.h"

#include "status/Changes.h"

namespace chassis {

StatusWatch::StatusWatch(Chassis &chassis, Events &events) : chassis_(chassis), events_(events) {
  chassis_.onChecked([this](std::uint32_t slot) { look(slot); });
}

void StatusWatch::look(std::uint32_t slot) {
  CardFinding now = examine(chassis_, slot);
  for (const Event &change : changesBetween(last_[slot], now)) {
    events_.tell(change);
  }
  last_[slot] = std::move(now);
  insertions_[slot] = chassis_.card(slot).insertions();
}

const CardFinding *StatusWatch::snapshot(std::uint32_t slot) const {
  const Card &card = chassis_.card(slot);
  return card.inserted() && card.insertions() == insertions_[slot] ? &last_[slot] : nullptr;
}

}  // namespace chassis
