// ci-chassis probe: judges somebody else's receiver by what goes into it and what comes out of it.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/Reports.h"

namespace chassis {

struct ProbeOptions {
  std::string before;
  std::string behind;
  std::vector<std::string> programs;
  std::vector<std::string> caSystems;  // as they are given: 0x0500 or 1280
  std::vector<std::string> numbers;    // N=M
  std::optional<std::string> duration;
  std::string onReset;
  bool check = false;
  bool debug = false;
  Reports reports;
};

void describeProbe(CLI::App &probe, ProbeOptions &options);

// Returns the exit status; with --check that of monitoring plugins. Throws InputError.
int probe(const ProbeOptions &options);

// Whether these arguments ask for a check: its caller reads one line, whatever is wrong.
bool asksForCheck(int argc, char **argv);
// The line and the status of a check that could not be made.
int failedCheck(const std::string &why);

}  // namespace chassis
