// What is timed: a call of the module and its floor, which makes the same platform calls in the
// same order and writes as many status or CA list bytes, and nothing else.
#pragma once

#include "platform/Platform.h"

struct Case {
  const char *name;
  Load load;
  void (*module)();
  void (*floor)();
};

constexpr std::size_t caseCount = 7;
extern const Case cases[caseCount];
