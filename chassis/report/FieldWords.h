// The status fields of a card record in words.
#pragma once

#include <cstdint>

#include "report/Words.h"

namespace chassis {

struct FieldWords {
  std::uint16_t value;
  const char *text;
  Tone tone;
};

constexpr std::uint16_t fieldNotChecked = 0xFF;

const FieldWords &controllerWords(std::uint16_t cimaxStat);
const FieldWords &insertWords(std::uint16_t camInsert);
const FieldWords &casidWords(std::uint16_t casidStat);
const FieldWords &caPidWords(std::uint16_t preCamPidStat);
const FieldWords &summaryWords(std::uint16_t descStat);

}  // namespace chassis
