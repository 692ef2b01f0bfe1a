// How a program ends, whatever ends it.
#pragma once

#include <functional>
#include <string>

namespace chassis {

// For the --help of programs that only read and write files.
constexpr const char *exitStatusHelp =
    "Exit status: 0 done, 2 bad input, 3 an output lost data, 4 the program failed,\n"
    "128 and the number of a signal: ended by it.";

// Runs a program's work. Its exit status: what `work` returns, or what stands for the exception
// that it throws, which is told in one line on standard error; and what standard output has lost.
int runProgram(const std::string &name, const std::function<int()> &work);

}  // namespace chassis
