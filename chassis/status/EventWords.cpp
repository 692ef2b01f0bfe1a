#include "status/EventWords.h"

#include "status/CamWords.h"
#include "status/CheckWords.h"
#include "status/LineWords.h"
#include "status/StreamWords.h"

namespace chassis {

EventWords wordsOf(const Event &event) {
  return std::visit([&event](const auto &facts) { return words::of(facts, event.place); },
                    event.facts);
}

}  // namespace chassis
