// The leanest platform: every function returns what stands in a variable or an array.
#pragma once

#include <cstdint>

#include "CiPlatform.h"

struct Load {
  std::uint32_t programs = 32;
  std::uint32_t streams = 32;
  std::uint32_t caEntries = 32;
  bool scrambled = false;
  bool supported = true;  // the CAMs support the CA system of the tables
};

constexpr std::uint16_t caSystem = 0x0500;
constexpr std::uint32_t listMax = 32;

// Registers a card when it is new, fills its tables and takes them over.
void loadCard(std::uint32_t slotNo, const Load &load);

extern "C" int benchPrintf(const char *format, ...);
