// What a run writes beside its timeline: events, status, outputs, the tables at the end.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "app/ChassisRun.h"

namespace chassis {

constexpr const char *programName = "ci-chassis";
constexpr const char *standardStream = "-";  // in place of a file

struct Reports {
  std::vector<std::string> outputs;  // as they are given: SLOT:STREAM
  bool noTable = false;
  std::string events;      // a file; - standard output; empty: none
  std::string statusFile;  // the same
};

void describeOutputs(CLI::App &app, Reports &reports);
void describeReports(CLI::App &app, Reports &reports);  // all but the outputs

// Throws InputError: more than one thing that takes standard output. console: so do its answers.
void checkOutputTakers(const Reports &reports, bool console);
// What the user interface shows, when nothing else takes standard output.
Shown shownOf(const Reports &reports);
bool writesFiles(const Reports &reports);

// Before the run. Throws InputError.
void openReports(ChassisRun &chassisRun, const Reports &reports);
// Runs to the end, then writes status and tables. Returns the exit status.
int runAndReport(ChassisRun &chassisRun, const Reports &reports, const ChassisRun::Config &config);

// A file, not standard output nor nothing.
bool isFile(const std::string &path);

}  // namespace chassis
