// The colour that shows how a clause is meant.
#pragma once

#include <string>

#include "status/Words.h"

namespace chassis {

// Text in a tone, with colour escapes behind its leading blanks when colour is on.
std::string toned(const std::string &text, Tone tone, bool colour);

}  // namespace chassis
