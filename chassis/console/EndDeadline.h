// A signal that ends the program does so within a second, whatever holds it up meanwhile: an output
// that nobody reads, a terminal that is stopped. What could not be written by then is lost, and
// that is told.
#pragma once

namespace chassis {

constexpr int endDeadlineMs = 900;

// To be called first, once in a process; takes SIGALRM.
void prepareEndDeadline();

// From now on; the first call counts. Fit for a signal handler.
void armEndDeadline(int signal);

}  // namespace chassis
