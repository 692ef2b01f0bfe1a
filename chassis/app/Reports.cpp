#include "app/Reports.h"

#include <map>
#include <utility>

#include "app/OptionValue.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "base/WallClock.h"
#include "console/AlarmList.h"
#include "console/StandardOutput.h"
#include "console/StatusTable.h"
#include "io/LiveOutput.h"
#include "io/ReplacedFile.h"
#include "status/StatusJson.h"

namespace chassis {
namespace {

constexpr const char *statusUser = "the file of the status";

struct Output {
  std::uint32_t slot;
  std::string stream;
};

Output readOutput(const std::string &text) {
  const bool named = text.size() > 2 && text[1] == ':';
  if (!named || text[0] < '0' || text[0] >= '0' + MAX_BOARD_NUM) {
    throw InputError("--output " + text + " does not fit; write SLOT:FILE with a slot of 0 to " +
                     std::to_string(MAX_BOARD_NUM - 1));
  }
  return {static_cast<std::uint32_t>(text[0] - '0'), text.substr(2)};
}

std::vector<Output> readOutputs(const std::vector<std::string> &texts) {
  std::map<std::uint32_t, std::string> textOf;
  std::vector<Output> outputs;
  for (const std::string &text : texts) {
    outputs.push_back(readOutput(text));
    const auto [first, alone] = textOf.emplace(outputs.back().slot, text);
    if (!alone) {
      throw InputError("--output " + first->second + " and --output " + text +
                       " are for the same slot, which has one output; leave one out");
    }
  }
  return outputs;
}

// A slot that has had a card stays registered.
void tellUnusedOutputs(const Reports &reports) {
  for (const std::string &text : reports.outputs) {
    const std::uint32_t slot = readOutput(text).slot;
    if (pCiData[slot] == nullptr) {
      complainLines(programName, "--output " + text + ": no card was in slot " +
                                     std::to_string(slot) + ", so nothing was written");
    }
  }
}

void printTables(const Snapshot &snapshot, bool colour) {
  const std::size_t width = outputWidth();
  for (const auto &card : snapshot.cards) {
    if (card != nullptr) {
      writeStandardOutput("\n" + statusTable(*card, colour, width) +
                          camHistory(snapshot.cams[card->slot], width));
    }
  }
  writeStandardOutput("\n" + standingAlarms(snapshot.alarms, colour, width));
}

// What takes standard output from the timeline and the table.
std::vector<std::string> outputTakers(const Reports &reports) {
  std::vector<std::string> takers;
  for (const auto &[name, file] :
       {std::pair("--events", reports.events), std::pair("--status-json", reports.statusFile)}) {
    if (file == standardStream) {
      takers.push_back(std::string(name) + " -");
    }
  }
  for (const std::string &output : reports.outputs) {
    if (readOutput(output).stream == standardStream) {
      takers.push_back("--output " + output);
    }
  }
  return takers;
}

// What has become of the file while the chassis ran is no error of the call.
void replaceFile(const std::string &path, const std::string &status) {
  try {
    ReplacedFile file(path);
    file.write(status.data(), status.size());
    file.finish();
  } catch (const InputError &error) {
    throw OutputLost(error.what());
  }
}

void writeStatus(ChassisRun &chassisRun, const Reports &reports) {
  const std::string status = statusJson(*chassisRun.snapshot(), chassisRun.losses(), wallClockMs());
  if (isFile(reports.statusFile)) {
    replaceFile(reports.statusFile, status);
  } else {
    writeStandardOutput(status);
  }
}

// What the run itself ended with says more than what its status has lost.
int tellStatus(ChassisRun &chassisRun, const Reports &reports, int ended) {
  try {
    writeStatus(chassisRun, reports);
    return ended;
  } catch (const OutputLost &error) {
    complainLines(programName, error.what());
    return ended == exitDone ? exitLost : ended;
  }
}

// Whatever else the status tells, what was lost is told too.
int runToEnd(ChassisRun &chassisRun) {
  struct TellLosses {
    explicit TellLosses(const ChassisRun &ended) : chassisRun(ended) {}
    ~TellLosses() {
      for (const std::string &loss : chassisRun.losses()) {
        complainLines(programName, loss);
      }
    }
    const ChassisRun &chassisRun;
  };
  const TellLosses tell(chassisRun);
  const int status = chassisRun.run();
  return status == exitDone && !chassisRun.losses().empty() ? exitLost : status;
}

}  // namespace

void checkOutputTakers(const Reports &reports, bool console) {
  std::vector<std::string> takers = outputTakers(reports);
  if (!takers.empty() && console) {
    takers.emplace_back("--console");
  }
  if (takers.size() > 1) {
    throw InputError(joined(takers, " and ") +
                     " both write standard output; give a file in place of -");
  }
}

Shown shownOf(const Reports &reports) {
  if (reports.events == standardStream) {
    return Shown::EventLines;
  }
  return outputTakers(reports).empty() ? Shown::Timeline : Shown::Nothing;
}

bool writesFiles(const Reports &reports) {
  return isFile(reports.events) || isFile(reports.statusFile) || !reports.outputs.empty();
}

bool isFile(const std::string &path) {
  return !path.empty() && path != standardStream;
}

void openReports(ChassisRun &chassisRun, const Reports &reports) {
  Chassis &chassis = chassisRun.chassis();
  if (isFile(reports.events)) {
    chassisRun.writeEvents(reports.events);
  }
  if (isFile(reports.statusFile)) {
    requireWritable(reports.statusFile);
    chassis.rack().files().write(statusUser, reports.statusFile);
  }
  for (const Output &output : readOutputs(reports.outputs)) {
    chassis.rack().output(output.slot, output.stream);
  }
}

int runAndReport(ChassisRun &chassisRun, const Reports &reports, const ChassisRun::Config &config) {
  int status = runToEnd(chassisRun);
  if (!reports.statusFile.empty()) {
    status = tellStatus(chassisRun, reports, status);
  }
  if (!reports.noTable && config.shown == Shown::Timeline) {
    printTables(*chassisRun.snapshot(), config.colour);
  }
  tellUnusedOutputs(reports);
  return status;
}

void describeOutputs(CLI::App &app, Reports &reports) {
  app.add_option("--output", reports.outputs,
                 "writes the descrambled stream of a card to a file, a FIFO, udp:// or rtp://")
      ->type_name("SLOT:FILE");
}

void describeReports(CLI::App &app, Reports &reports) {
  app.add_option("--events", reports.events,
                 "writes every event as a line of JSON; - standard output, in place of the "
                 "timeline")
      ->check(notEmpty())
      ->type_name("FILE");
  app.add_option("--status-json", reports.statusFile,
                 "writes what was found, at the end; - standard output, in place of all else")
      ->check(notEmpty())
      ->type_name("FILE");
  app.add_flag("--no-table", reports.noTable, "leaves out the table at the end");
}

}  // namespace chassis
