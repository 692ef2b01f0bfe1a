// How a clause is meant, and the colour that shows it.
#pragma once

#include <string>

namespace chassis {

enum class Tone { Plain, Good, Bad, Faint, Alarm };

// Text in a tone, with colour escapes behind its leading blanks when colour is on.
std::string toned(const std::string &text, Tone tone, bool colour);

}  // namespace chassis
