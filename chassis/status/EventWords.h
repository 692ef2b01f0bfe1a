// What happened, in an operator's words. Nothing below makes words of an event, and nothing reads
// them: programs decide by its kind and facts.
#pragma once

#include <string>

#include "event/Event.h"
#include "status/Words.h"

namespace chassis {

struct EventWords {
  std::string what;  // one short clause
  std::string why;   // the reason or evidence; empty where there is none
  Tone tone = Tone::Plain;
};

// Each kind has its row in LineWords.h, StreamWords.h, CamWords.h or CheckWords.h; one without a
// row does not compile.
EventWords wordsOf(const Event &event);

}  // namespace chassis
