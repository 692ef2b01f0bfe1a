// How a program ends, whatever ends it.
#pragma once

#include <functional>
#include <string>

namespace chassis {

// Runs a program's work. Its exit status: what `work` returns, or what stands for the exception
// that it throws, which is told on standard error; and what standard output has lost.
int runProgram(const std::string &name, const std::function<int()> &work);

// Each line of a text on standard error, with the program's name before it.
void complainLines(const std::string &name, const std::string &text);

}  // namespace chassis
