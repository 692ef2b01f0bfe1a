// What the chassis of the soak is like; it answers accordingly.
#ifndef TESTS_SOAK_WORLD_H
#define TESTS_SOAK_WORLD_H

#include <cstdint>

#include "invariants/Platform.h"

// What one CAM and its stream do.
struct CamWorld {
  uint8_t inserted = 1;
  bool declares = true;    // its CA system
  bool masked = false;     // its alarms
  bool ecmPresent = true;  // before the CAM
  bool ecmErrors = false;
  bool refuses = false;    // answers queries with a refusal
  uint8_t failing = 0;     // bit n: stream n is not descrambled
  uint8_t unreadable = 0;  // bit n: stream n cannot be read
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
  CamWorld cam[MAX_CAM_NUM];
};

struct World {
  CardWorld card[MAX_BOARD_NUM];
  bool addFails = false;
  bool deleteFails = false;
  bool sendFails = false;
};

extern World world;
extern CiDesc table;  // alike on every card

// Starts the platform with these answers and gives every card its table.
void startWorld(rules::Complaint complaint);

#endif
