// Long work before there is a user interface: the streams of a script are looked into before it
// plays. It shows at a terminal how far it is, and a signal that ends the program ends it.
#pragma once

#include <functional>

#include "base/LongWork.h"

namespace chassis {

// Runs what begins its long work with `begin`. Returns 0, or 128 and the number of the signal that
// has ended it. Throws what the work throws, but Interrupted when a signal is the reason.
int prepare(const std::function<void(const BeginWork &begin)> &work);

}  // namespace chassis
