// Whether what is shown has colours, and codes that move the cursor and erase.
#pragma once

namespace chassis {

// Of a terminal, unless a person does not want any (NO_COLOR is set to something) or it has none
// (TERM is dumb or unknown). noColor and term are those variables; null: not set.
bool wantsColour(bool terminal, const char *noColor, const char *term);

bool outputWantsColour();  // of standard output, by the environment

// Whether a terminal of this kind takes codes at all: not one that is dumb or unknown (null,
// empty).
bool takesCodes(const char *term);

bool outputTakesCodes();  // by the environment

}  // namespace chassis
