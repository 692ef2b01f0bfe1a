#include "platform/Binding.h"

#include <utility>

namespace chassis {
namespace {

Binding *current = nullptr;
const Binding::Parts nothing{};

}  // namespace

Binding::Binding(const Parts &parts) : parts_(parts) {
  current = this;
  is_all_card_loaded = 0;
}

Binding::~Binding() {
  if (current == this) {
    current = nullptr;
    is_all_card_loaded = 0;
  }
}

void Binding::allCardsLoaded() {
  if (current == this) {
    is_all_card_loaded = 1;
  }
}

Printing Binding::onPrinted(PrintListener listener) {
  return printed_.onLine(std::move(listener));
}

const Binding::Parts &Binding::parts() {
  return current != nullptr ? current->parts_ : nothing;
}

Card *Binding::card(std::uint32_t slot) {
  return slot < MAX_BOARD_NUM ? parts().cards[slot] : nullptr;
}

void Binding::print(ConsolePort port, const char *text) {
  if (current != nullptr) {
    current->printed_.push(port, text);
  }
}

}  // namespace chassis
