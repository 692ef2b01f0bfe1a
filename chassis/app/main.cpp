#include <langinfo.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <limits>

#include "Version.h"
#include "app/ChassisRun.h"
#include "app/CommandLine.h"
#include "app/OptionValue.h"
#include "app/Preparation.h"
#include "app/Probe.h"
#include "app/Program.h"
#include "app/Reports.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "base/Number.h"
#include "console/Colour.h"
#include "io/DescriptorText.h"

namespace {

using namespace chassis;

struct Options {
  std::string script;
  bool console = false;
  std::string speed = "1";
  std::optional<std::string> duration;
  std::uint32_t clockStart = 0;
  bool debug = false;
  Reports reports;
};

constexpr double slowest = 0.001;
constexpr double fastest = 1e6;

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

void requireReadableInput() {
  if (read(STDIN_FILENO, nullptr, 0) < 0) {
    throw InputError(std::string("standard input cannot be read: ") + std::strerror(errno));
  }
}

InputMode modeOf(const Options &options) {
  checkOutputTakers(options.reports, options.console);
  if (options.console || options.script == standardStream) {
    requireReadableInput();
  }
  if (options.script == standardStream) {
    if (options.console) {
      throw InputError("--console and --script - both read standard input; leave one out");
    }
    return InputMode::Script;
  }
  const bool shown = shownOf(options.reports) == Shown::Timeline;
  if (shown && isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    return InputMode::Terminal;
  }
  if (!options.console && options.script.empty()) {
    throw InputError("nothing to run; give --script FILE, --console, or a terminal");
  }
  return options.console ? InputMode::Pipe : InputMode::Script;
}

Script scriptOf(const Options &options, const BeginWork &begin) {
  if (options.script.empty()) {
    return Script{};
  }
  StreamPrograms streams(begin);
  const ScriptSetting setting{Shell::names(), &streams};
  if (options.script != standardStream) {
    return readScript(options.script, setting);
  }
  DescriptorText input(STDIN_FILENO);
  std::istream lines(&input);
  return readScript("standard input", lines, setting);
}

std::string historyPath() {
  if (const char *path = std::getenv("CI_CHASSIS_HISTORY")) {
    return path;
  }
  const char *home = std::getenv("HOME");
  return home == nullptr ? "" : std::string(home) + "/.ci_chassis_history";
}

ChassisRun::Config configOf(const Options &options) {
  ChassisRun::Config config;
  config.mode = modeOf(options);
  config.historyPath = historyPath();
  config.speed = readSpeed(options.speed);
  if (options.duration) {
    config.endMs = readDuration(*options.duration);
  }
  config.clockStart = options.clockStart;
  config.colour = outputWantsColour();
  config.debug = options.debug;
  config.shown = shownOf(options.reports);
  config.writesFiles = writesFiles(options.reports);
  config.scriptFromInput = options.script == standardStream;
  return config;
}

int play(const Options &options) {
  const ChassisRun::Config config = configOf(options);
  Script script;
  const int ended = prepare([&](const BeginWork &begin) { script = scriptOf(options, begin); });
  if (ended != exitDone) {
    return ended;
  }
  ChassisRun chassisRun(config, std::move(script));
  if (isFile(options.script)) {
    chassisRun.chassis().rack().files().read("the script", options.script);
  }
  openReports(chassisRun, options.reports);
  return runAndReport(chassisRun, options.reports, config);
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
  describeOutputs(app, options.reports);
  describeReports(app, options.reports);
  app.add_option("--clock-start", options.clockStart,
                 "the 32-bit millisecond stamp at which the clock starts")
      ->transform(wholeNumber(0, std::numeric_limits<std::uint32_t>::max()))
      ->type_name("STAMP");
  app.add_flag("--debug", options.debug, "shows the firmware's debug prints too");
  app.set_version_flag("--version", std::string("ci-chassis ") + version);
  app.footer(helpParagraph(footer) + "\n" + exitStatusHelp + signalStatusHelp + functionsTitle +
             functionHelp());
}

int run(int argc, char **argv) {
  Options options;
  ProbeOptions probeOptions;
  CLI::App app("A software chassis that runs the Common Interface supervision module.",
               programName);
  describe(app, options);
  CLI::App *const judge =
      app.add_subcommand("probe", "judges a receiver elsewhere by what goes in and what comes out");
  describeProbe(*judge, probeOptions);
  return parsed(app, argc, argv,
                [&] { return judge->parsed() ? probe(probeOptions) : play(options); });
}

int runChecked(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (const InputError &error) {
    return failedCheck(error.what());
  }
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
  return runProgram(programName, [&] {
    return asksForCheck(argc, argv) ? runChecked(argc, argv) : run(argc, argv);
  });
}
