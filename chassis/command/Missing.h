// What is told of a call whose slot lacks what it needs.
#pragma once

#include <cstdint>
#include <string>

#include "base/InputError.h"

namespace chassis {

inline InputError noCardIn(std::uint64_t slot) {
  const std::string name = std::to_string(slot);
  return InputError("no card is in slot " + name + "; put one in first: cardInsert " + name +
                    ", \"file\"");
}

inline InputError noCamIn(std::uint64_t slot, std::uint64_t cam) {
  const std::string place = std::to_string(slot) + ", " + std::to_string(cam);
  return InputError("no CAM is in " + place + "; put one in first: camInsert " + place + ", casid");
}

}  // namespace chassis
