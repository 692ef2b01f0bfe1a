// The status fields of a card record in words.
#pragma once

#include <cstdint>

#include "status/Words.h"

namespace chassis {

struct FieldWords {
  std::uint16_t value;
  const char *text;
  Tone tone;
};

constexpr std::uint16_t fieldNotChecked = 0xFF;

const FieldWords &controllerWords(std::uint16_t cimaxStat);
const FieldWords &insertWords(std::uint16_t camInsert);
// clearOnly: none of the CAM's programs has a CA descriptor.
const FieldWords &casidWords(std::uint16_t casidStat, bool clearOnly = false);
const FieldWords &caPidWords(std::uint16_t preCamPidStat);
// mayStillBegin: what is not descrambled may only not be so yet.
const FieldWords &summaryWords(std::uint16_t descStat, bool mayStillBegin = false);

}  // namespace chassis
