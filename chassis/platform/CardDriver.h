// The card driver: what the software cards register, 27 functions and a name.
#pragma once

#include <cstdint>

#include "card/Card.h"

namespace chassis {

// The card behind a slot for the driver's functions; null: none, every function answers 0.
void bindCard(std::uint32_t slot, Card *card);

// Registers the card of a slot with the module (descIfRegist), once per slot and run: a record
// lasts for the whole run, so a card that is pulled and put back keeps it.
void registerCard(std::uint32_t slot);

}  // namespace chassis
