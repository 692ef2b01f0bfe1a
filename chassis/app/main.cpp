#include <langinfo.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <map>

#include "Version.h"
#include "app/CommandLine.h"
#include "app/Operation.h"
#include "app/OptionValue.h"
#include "app/Preparation.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "base/Number.h"
#include "base/Text.h"
#include "base/WallClock.h"
#include "console/AlarmList.h"
#include "console/Colour.h"
#include "console/StandardOutput.h"
#include "console/StatusTable.h"
#include "io/LiveOutput.h"
#include "io/ReplacedFile.h"
#include "status/StatusJson.h"

namespace {

using namespace chassis;

struct Options {
  std::string script;
  bool console = false;
  std::string speed = "1";
  std::optional<std::string> duration;
  std::vector<std::string> outputs;
  std::uint32_t clockStart = 0;
  bool debug = false;
  bool noTable = false;
  std::string events;
  std::string statusFile;
};

constexpr const char *programName = "ci-chassis";
constexpr double slowest = 0.001;
constexpr double fastest = 1e6;
constexpr double longest = 1e6;  // seconds of chassis time
constexpr double msPerSecond = 1000;
constexpr const char *standardStream = "-";  // in place of a file
constexpr const char *statusUser = "the file of the status";

const std::string footer =
    "At a terminal there is a prompt beside the running chassis, also when the script is over; "
    "help lists what it takes. exit, quit and Ctrl-D end the chassis, and so does Ctrl-C twice at "
    "an empty line. Without a terminal the run ends with the script; with --console, when "
    "standard input has ended too. At speed max, chassis time then stands still until the next "
    "line has come. The prompt's history is kept in ~/.ci_chassis_history or in the file that "
    "CI_CHASSIS_HISTORY names. A script's streams are looked for in the folder of the script, then "
    "in the working directory.";
const std::string functionsTitle =
    "\nFunctions of a script, written name arg, arg or name(arg, arg):\n";

double readSpeed(const std::string &text) {
  if (text == "max") {
    return 0;
  }
  const std::optional<double> speed = readDecimal(text);
  if (!speed || *speed < slowest || *speed > fastest) {
    throw InputError("--speed " + text + " does not fit; write 0.001 to 1000000, or max");
  }
  return *speed;
}

std::uint64_t readDuration(const std::string &text) {
  const std::optional<double> seconds = readDecimal(text);
  if (!seconds || *seconds > longest) {
    throw InputError("--for " + text + " does not fit; write 0 to 1000000 seconds");
  }
  return static_cast<std::uint64_t>(std::llround(*seconds * msPerSecond));
}

struct Output {
  std::uint32_t slot;
  std::string path;
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
void tellUnusedOutputs(const Options &options) {
  for (const std::string &text : options.outputs) {
    const std::uint32_t slot = readOutput(text).slot;
    if (pCiData[slot] == nullptr) {
      complainLines(programName, "--output " + text + ": no card was in slot " +
                                     std::to_string(slot) + ", so nothing was written");
    }
  }
}

void printTables(Chassis &chassis, bool colour) {
  const std::size_t width = outputWidth();
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (chassis.card(slot).inserted()) {
      writeStandardOutput("\n" + statusTable(examine(chassis, slot), colour, width) +
                          camHistory(chassis.library(), slot, width));
    }
  }
  writeStandardOutput("\n" + standingAlarms(chassis.alarms(), colour, width));
}

// What takes standard output from the timeline and the table.
std::vector<std::string> outputTakers(const Options &options) {
  std::vector<std::string> takers;
  for (const auto &[name, file] :
       {std::pair("--events", options.events), std::pair("--status-json", options.statusFile)}) {
    if (file == standardStream) {
      takers.push_back(std::string(name) + " -");
    }
  }
  return takers;
}

void checkOutputTakers(const Options &options) {
  std::vector<std::string> takers = outputTakers(options);
  if (!takers.empty() && options.console) {
    takers.emplace_back("--console");
  }
  if (takers.size() > 1) {
    throw InputError(joined(takers, " and ") +
                     " both write standard output; give a file in place of -");
  }
}

void requireReadableInput() {
  if (read(STDIN_FILENO, nullptr, 0) < 0) {
    throw InputError(std::string("standard input cannot be read: ") + std::strerror(errno));
  }
}

DeskMode modeOf(const Options &options) {
  checkOutputTakers(options);
  if (options.console || options.script == standardStream) {
    requireReadableInput();
  }
  if (options.script == standardStream) {
    if (options.console) {
      throw InputError("--console and --script - both read standard input; leave one out");
    }
    return DeskMode::Script;
  }
  const bool shown = outputTakers(options).empty();
  if (shown && isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    return DeskMode::Terminal;
  }
  if (!options.console && options.script.empty()) {
    throw InputError("nothing to run; give --script FILE, --console, or a terminal");
  }
  return options.console ? DeskMode::Pipe : DeskMode::Script;
}

Script scriptOf(const Options &options, const BeginWork &begin) {
  if (options.script.empty()) {
    return Script{};
  }
  StreamPrograms streams(begin);
  const ScriptSetting setting{Shell::names(), &streams};
  return options.script == standardStream ? readScript("standard input", std::cin, setting)
                                          : readScript(options.script, setting);
}

std::string historyPath() {
  if (const char *path = std::getenv("CI_CHASSIS_HISTORY")) {
    return path;
  }
  const char *home = std::getenv("HOME");
  return home == nullptr ? "" : std::string(home) + "/.ci_chassis_history";
}

Shown shownOf(const Options &options) {
  if (options.events == standardStream) {
    return Shown::EventLines;
  }
  return options.statusFile == standardStream ? Shown::Nothing : Shown::Timeline;
}

bool isFile(const std::string &path) {
  return !path.empty() && path != standardStream;
}

Operation::Config configOf(const Options &options) {
  Operation::Config config;
  config.mode = modeOf(options);
  config.historyPath = historyPath();
  config.speed = readSpeed(options.speed);
  if (options.duration) {
    config.endMs = readDuration(*options.duration);
  }
  config.clockStart = options.clockStart;
  config.colour = outputWantsColour();
  config.debug = options.debug;
  config.shown = shownOf(options);
  config.writesFiles =
      isFile(options.events) || isFile(options.statusFile) || !options.outputs.empty();
  return config;
}

void openOutputs(Operation &operation, const Options &options) {
  Chassis &chassis = operation.chassis();
  if (isFile(options.script)) {
    chassis.files().read("the script", options.script);
  }
  if (isFile(options.events)) {
    operation.writeEvents(options.events);
  }
  if (isFile(options.statusFile)) {
    requireWritable(options.statusFile);
    chassis.files().write(statusUser, options.statusFile);
  }
  for (const Output &output : readOutputs(options.outputs)) {
    chassis.output(output.slot, output.path);
  }
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

void writeStatus(Operation &operation, const Options &options) {
  const std::string status = statusJson(operation.chassis(), operation.losses(), wallClockMs());
  if (isFile(options.statusFile)) {
    replaceFile(options.statusFile, status);
  } else {
    writeStandardOutput(status);
  }
}

// What the run itself ended with says more than what its status has lost.
int tellStatus(Operation &operation, const Options &options, int ended) {
  try {
    writeStatus(operation, options);
    return ended;
  } catch (const OutputLost &error) {
    complainLines(programName, error.what());
    return ended == exitDone ? exitLost : ended;
  }
}

// Whatever else the status tells, what was lost is told too.
int runToEnd(Operation &operation) {
  struct TellLosses {
    explicit TellLosses(const Operation &ended) : operation(ended) {}
    ~TellLosses() {
      for (const std::string &loss : operation.losses()) {
        complainLines(programName, loss);
      }
    }
    const Operation &operation;
  };
  const TellLosses tell(operation);
  const int status = operation.run();
  return status == exitDone && !operation.losses().empty() ? exitLost : status;
}

int play(const Options &options) {
  const Operation::Config config = configOf(options);
  Script script;
  const int ended = prepare([&](const BeginWork &begin) { script = scriptOf(options, begin); });
  if (ended != exitDone) {
    return ended;
  }
  Operation operation(config, std::move(script));
  openOutputs(operation, options);
  int status = runToEnd(operation);
  if (!options.statusFile.empty()) {
    status = tellStatus(operation, options, status);
  }
  if (!options.noTable && config.shown == Shown::Timeline) {
    printTables(operation.chassis(), config.colour);
  }
  tellUnusedOutputs(options);
  return status;
}

void describe(CLI::App &app, Options &options) {
  app.add_option("--script", options.script, "the script of shell lines to run; - standard input")
      ->check(notEmpty())
      ->type_name("FILE");
  app.add_flag("--console", options.console,
               "without a terminal: runs standard input as lines of the console");
  app.add_option("--speed", options.speed,
                 "chassis seconds per real second, or max (at the prompt 1)")
      ->type_name("N|max")
      ->capture_default_str();
  app.add_option("--for", options.duration,
                 "chassis time to run; default: to the end of the script")
      ->type_name("SECONDS");
  app.add_option("--output", options.outputs, "writes the descrambled stream of a card to a file")
      ->type_name("SLOT:FILE");
  app.add_option("--events", options.events,
                 "writes every event as a line of JSON; - standard output, in place of the "
                 "timeline")
      ->check(notEmpty())
      ->type_name("FILE");
  app.add_option("--status-json", options.statusFile,
                 "writes what was found, at the end; - standard output, in place of all else")
      ->check(notEmpty())
      ->type_name("FILE");
  app.add_option("--clock-start", options.clockStart,
                 "the 32-bit millisecond stamp at which the clock starts")
      ->transform(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("STAMP");
  app.add_flag("--debug", options.debug, "shows the firmware's debug prints too");
  app.set_version_flag("--version", std::string("ci-chassis ") + version);
  app.add_flag("--no-table", options.noTable, "leaves out the table at the end");
  app.footer(helpParagraph(footer) + "\n" + exitStatusHelp + signalStatusHelp + functionsTitle +
             functionHelp());
}

int run(int argc, char **argv) {
  Options options;
  CLI::App app("A software chassis that runs the Common Interface supervision module.",
               programName);
  describe(app, options);
  return parsed(app, argc, argv, [&] { return play(options); });
}

// Without a locale, as in a bare container, names are in UTF-8 all the same.
void setCharacters() {
  std::setlocale(LC_CTYPE, "");
  if (std::strcmp(nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

}  // namespace

int main(int argc, char **argv) {
  setCharacters();
  return runProgram(programName, [&] { return run(argc, argv); });
}
