// The card driver: what the software cards register, 27 functions and a name.
// They find their card in the Binding.
#pragma once

#include <cstdint>

namespace chassis {

// Registers the card of a slot with the module (descIfRegist), once per slot and run: a record
// lasts for the whole run, so a card that is pulled and put back keeps it.
void registerCard(std::uint32_t slot);

}  // namespace chassis
