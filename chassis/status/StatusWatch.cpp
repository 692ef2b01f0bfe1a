#include "status/StatusWatch.h"

#include <utility>

#include "status/Changes.h"

namespace chassis {

StatusWatch::StatusWatch(Chassis &chassis, Events &events) : chassis_(chassis), events_(events) {
  last_.fill(std::make_shared<const CardFinding>());
  chassis_.onChecked([this](std::uint32_t slot) { look(slot); });
}

void StatusWatch::look(std::uint32_t slot) {
  CardFinding now = examine(chassis_, slot);
  for (const Event &change : changesBetween(*last_[slot], now)) {
    events_.tell(change);
  }
  keep(slot, std::move(now));
}

void StatusWatch::keep(std::uint32_t slot, CardFinding now) {
  last_[slot] = std::make_shared<const CardFinding>(std::move(now));
  insertions_[slot] = chassis_.card(slot).insertions();
}

void StatusWatch::lookAtLast() {
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (chassis_.card(slot).inserted()) {
      keep(slot, examine(chassis_, slot));
    }
  }
}

std::shared_ptr<const CardFinding> StatusWatch::known(std::uint32_t slot) const {
  const Card &card = chassis_.card(slot);
  if (!card.inserted()) {
    return nullptr;
  }
  return card.insertions() == insertions_[slot]
             ? last_[slot]
             : std::make_shared<const CardFinding>(uncheckedFinding(card, slot));
}

std::shared_ptr<const Snapshot> StatusWatch::snapshot() const {
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->takenMs = chassis_.clock().elapsedMs();
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    snapshot->cards[slot] = known(slot);
    snapshot->cams[slot] = camsOf(chassis_.library(), slot);
  }
  for (const auto &[index, alarm] : chassis_.alarms().active()) {
    snapshot->alarms.push_back(alarm);
  }
  return snapshot;
}

}  // namespace chassis
