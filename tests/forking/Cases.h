// The cases of a GoogleTest program, each in a process of its own: the module's state starts at
// zero only once in a process, and to start the program afresh for each costs more than the case.
#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace forking {

// The full names of the cases that the flags of GoogleTest and its sharding variables select.
std::vector<std::string> selectedCases();

// What one case may use; zero: no limit.
struct Limits {
  unsigned wallSeconds = 0;
  rlim_t cpuSeconds = 0;
  rlim_t memory = 0;
  bool alone = false;  // in a process group of its own, of which nothing is left behind
};

// Runs one case, with its standard output and error going to a descriptor. Returns the status of
// waitpid, 0 when the case passed; -1 when there could be no process. A name of no case fails.
int runCase(const std::string &name, int output, const Limits &limits);

}  // namespace forking
