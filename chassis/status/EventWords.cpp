#include "status/EventWords.h"

#include "status/CamWords.h"
#include "status/CheckWords.h"
#include "status/LineWords.h"
#include "status/StreamWords.h"

namespace chassis {

EventWords wordsOf(const Facts &facts, const Place &place) {
  return std::visit([&place](const auto &known) { return words::of(known, place); }, facts);
}

}  // namespace chassis
