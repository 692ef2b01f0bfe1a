// The end of what a program says on standard output.
#pragma once

#include <string>

namespace chassis {

// Writes what still waits. The exit status of the program: `status`, or exitLost where it would be
// exitDone and standard output has lost something, which one line on standard error tells.
int finishStandardOutput(const std::string &program, int status);

}  // namespace chassis
