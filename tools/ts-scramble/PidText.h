// PIDs as this tool tells and bounds them.
#pragma once

#include <cstdint>
#include <string>

#include "base/Text.h"

namespace tsscramble {

constexpr std::uint16_t patPid = 0x0000;
constexpr std::uint16_t catPid = 0x0001;
constexpr std::uint16_t firstOrdinaryPid = 0x0020;  // below: PSI, SI and reserved

inline std::string pidText(unsigned pid) {
  return chassis::hex(pid, 4);
}

}  // namespace tsscramble
