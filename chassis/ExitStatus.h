// How a program of the chassis ends, the same for all of them; their --help tells it.
#pragma once

namespace chassis {

enum ExitStatus : int {
  exitDone = 0,
  exitUnexpected = 1,   // an expectation of the script did not come true
  exitBadInput = 2,     // an argument, a script, a stream: nothing was run, or not to its end
  exitLost = 3,         // an output, or standard output, lost data
  exitFailed = 4,       // the program itself failed
  exitSignalled = 128,  // and the number of the signal: 130 Ctrl-C, 143 SIGTERM
};

}  // namespace chassis
