// What a program says on standard output, and the end of it.
#pragma once

#include <string>

namespace chassis {

// Writes at once. The first failure is kept for the end.
void writeStandardOutput(const std::string &text);

// Whoever read it has gone, and will not come back.
bool standardOutputGone();

// Writes what still waits. The exit status of the program: `status`, or exitLost where it would be
// exitDone and standard output has lost something, which one line on standard error tells.
int finishStandardOutput(const std::string &program, int status);

}  // namespace chassis
