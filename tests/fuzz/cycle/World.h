// What the chassis of an input is like; it answers accordingly.
#ifndef TESTS_FUZZ_CYCLE_WORLD_H
#define TESTS_FUZZ_CYCLE_WORLD_H

#include <cstdint>

#include "CiPlatform.h"
#include "Input.h"

// How something answers: always well, always badly, one or the other at random, or any number.
enum class Answer : uint8_t { good, bad, either, any };

struct CamWorld {
  Answer inserted = Answer::good;
  Answer masked = Answer::good;
  uint8_t supports = 0xFF;  // bit n: CA systems with the low bits n
  bool noIndex = false;     // the library knows no such CAM
  bool replies = false;     // to queries, with anything
};

struct World {
  uint32_t slotNo = 0;  // of the card that the input is about
  Answer online = Answer::good;
  Answer busy = Answer::good;
  Answer ready = Answer::good;
  Answer table = Answer::good;
  Answer form = Answer::good;
  Answer sync = Answer::good;
  Answer rate = Answer::good;
  Answer lock = Answer::good;
  Answer present = Answer::good;
  Answer errors = Answer::good;
  Answer descrambled = Answer::good;
  Answer readable = Answer::good;
  Answer added = Answer::good;
  Answer deleted = Answer::good;
  Answer sent = Answer::good;
  CamWorld cam[MAX_CAM_NUM];
  fuzz::Noise noise;
};

extern World world;
extern CiDesc table;       // of the input's card
extern InPortForm inPort;  // likewise
extern uint8_t mux[128 + 64 * 236 + 2048];

// Fills the whole reply record of a CAM with small numbers that meet the table's, counts included.
void randomReply(uint32_t record, fuzz::Noise &noise);

// Starts the platform with these answers; a broken rule is a finding.
void startWorld();

#endif
