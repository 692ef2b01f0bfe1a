// A platform without a transcript: it answers from what the world holds and tells the rules what
// the module does.
#ifndef TESTS_SOAK_LEAN_PLATFORM_H
#define TESTS_SOAK_LEAN_PLATFORM_H

#include <cstdint>

#include "CiPlatform.h"

// What one CAM and its stream do.
struct World {
  uint8_t inserted = 1;
  bool declares = true;    // its CA system
  bool masked = false;     // its alarms
  bool ecmPresent = true;  // before the CAM
  bool ecmErrors = false;
  bool refuses = false;    // answers queries with a refusal
  uint8_t failing = 0;     // bit n: stream n is not descrambled
  uint8_t unreadable = 0;  // bit n: stream n cannot be read
  bool flag = false;       // wants a fresh CA PMT
};

// What one card does.
struct CardWorld {
  bool online = true;
  bool ready = true;
  bool busy = false;
  bool table = true;
  bool form = true;
  bool sync = true;
  bool fast = true;
  bool locked = true;
  World cam[MAX_CAM_NUM];
};

struct Chassis {
  uint32_t now = 0;
  CardWorld card[MAX_BOARD_NUM];
  bool addFails = false;
  bool delFails = false;
  bool sendFails = false;
  uint32_t allocations = 0;
  uint64_t calls = 0;
};

extern Chassis chassis;

constexpr uint32_t PROGRAMS = 3;  // by CAM: A, B, both
constexpr uint32_t STREAMS = 2;

// Registers a card with all its functions and gives it its table.
void registerLeanCard(uint32_t slotNo);

#endif
