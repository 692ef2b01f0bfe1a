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

// For --help: the statuses of every program, and those of one that takes signals.
constexpr const char *exitStatusHelp =
    "Exit statuses:\n"
    "  0    done\n"
    "  1    an expectation of the script did not come true (ci-chassis)\n"
    "  2    bad input: an argument, a script, a stream; standard error names it\n"
    "  3    an output, or standard output, lost data: a full disk, a reader that has gone\n"
    "  4    the program itself failed\n";
constexpr const char *signalStatusHelp =
    "  130  ended by Ctrl-C\n"
    "  143  ended by SIGTERM; other signals likewise, 128 and the signal's number\n";

}  // namespace chassis
