#include <unistd.h>

#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "InputError.h"
#include "Version.h"
#include "console/Operation.h"
#include "report/AlarmList.h"
#include "report/StatusTable.h"

namespace {

using namespace chassis;

struct Options {
  std::string script;
  bool console = false;
  std::string speed = "1";
  double seconds = -1;
  std::vector<std::string> outputs;
  std::uint32_t clockStart = 0;
  bool debug = false;
  bool noTable = false;
};

constexpr int badInput = 2;
constexpr const char *standardInput = "-";

const std::string footer =
    "At a terminal there is a prompt beside the running chassis, also when the script is over;\n"
    "help lists what it takes. exit and Ctrl-D end the chassis with exit status 0, Ctrl-C with "
    "130\n"
    "and SIGTERM with 143. Without a terminal the run ends with the script; with --console, when\n"
    "standard input has ended too. At speed max, chassis time then stands still until the next\n"
    "line has come. The prompt's history is kept in ~/.ci_chassis_history or in the file that\n"
    "CI_CHASSIS_HISTORY names.\n\n"
    "Functions of a script, written name arg, arg or name(arg, arg):\n";

double readSpeed(const std::string &text) {
  if (text == "max") {
    return 0;
  }
  char *end = nullptr;
  const double speed = std::strtod(text.c_str(), &end);
  if (*end != '\0' || text.empty() || !(speed > 0) || speed > 1e6) {
    throw InputError("--speed " + text + " does not fit; write a number above 0, or max");
  }
  return speed;
}

void openOutput(Chassis &chassis, const std::string &text) {
  const bool named = text.size() > 2 && text[1] == ':';
  if (!named || text[0] < '0' || text[0] >= '0' + MAX_BOARD_NUM) {
    throw InputError("--output " + text + " does not fit; write SLOT:FILE with a slot of 0 to " +
                     std::to_string(MAX_BOARD_NUM - 1));
  }
  chassis.output(static_cast<std::uint32_t>(text[0] - '0'), text.substr(2));
}

bool wantColour() {
  return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
}

void printTables(Chassis &chassis, bool colour) {
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (chassis.card(slot).inserted()) {
      std::cout << "\n"
                << statusTable(examine(chassis, slot), colour)
                << camHistory(chassis.library(), slot);
    }
  }
  std::cout << "\n" << standingAlarms(chassis.alarms());
}

DeskMode modeOf(const Options &options) {
  if (options.script == standardInput) {
    if (options.console) {
      throw InputError("--console and --script - both read standard input; leave one out");
    }
    return DeskMode::Script;
  }
  if (isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1) {
    return DeskMode::Terminal;
  }
  if (!options.console && options.script.empty()) {
    throw InputError("nothing to run; give --script FILE, --console, or a terminal");
  }
  return options.console ? DeskMode::Pipe : DeskMode::Script;
}

Script scriptOf(const Options &options) {
  if (options.script.empty()) {
    return Script{};
  }
  return options.script == standardInput ? readScript("standard input", std::cin)
                                         : readScript(options.script);
}

std::string historyPath() {
  if (const char *path = std::getenv("CI_CHASSIS_HISTORY")) {
    return path;
  }
  const char *home = std::getenv("HOME");
  return home == nullptr ? "" : std::string(home) + "/.ci_chassis_history";
}

Operation::Config configOf(const Options &options) {
  Operation::Config config;
  config.mode = modeOf(options);
  config.historyPath = historyPath();
  config.speed = readSpeed(options.speed);
  if (options.seconds >= 0) {
    config.endMs = static_cast<std::uint64_t>(options.seconds * 1000);
  }
  config.clockStart = options.clockStart;
  config.colour = wantColour();
  config.debug = options.debug;
  return config;
}

int play(const Options &options) {
  const Operation::Config config = configOf(options);
  Operation operation(config, scriptOf(options));
  for (const std::string &output : options.outputs) {
    openOutput(operation.chassis(), output);
  }
  const int status = operation.run();
  if (!options.noTable) {
    printTables(operation.chassis(), config.colour);
  }
  return status;
}

void describe(CLI::App &app, Options &options) {
  app.add_option("--script", options.script, "the script of shell lines to run; - standard input")
      ->type_name("FILE");
  app.add_flag("--console", options.console,
               "without a terminal: runs standard input as lines of the console");
  app.add_option("--speed", options.speed,
                 "chassis seconds per real second, or max (at the prompt 1)")
      ->type_name("N|max")
      ->capture_default_str();
  app.add_option("--for", options.seconds, "chassis time to run; default: to the end of the script")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 1e6).description(""));
  app.add_option("--output", options.outputs, "writes the descrambled stream of a card to a file")
      ->type_name("SLOT:FILE");
  app.add_option("--clock-start", options.clockStart,
                 "the 32-bit millisecond stamp at which the clock starts")
      ->type_name("STAMP");
  app.add_flag("--debug", options.debug, "shows the firmware's debug prints too");
  app.set_version_flag("--version", std::string("ci-chassis ") + version);
  app.add_flag("--no-table", options.noTable, "leaves out the table at the end");
  app.footer(footer + functionHelp());
}

int complain(const char *what, int status) {
  std::fprintf(stderr, "ci-chassis: %s\n", what);
  return status;
}

int runProgram(int argc, char **argv) {
  Options options;
  CLI::App app("A software chassis that runs the Common Interface supervision module.",
               "ci-chassis");
  describe(app, options);
  try {
    app.parse(argc, argv);
    return play(options);
  } catch (const CLI::Success &success) {
    return app.exit(success);
  } catch (const CLI::ParseError &error) {
    return complain(error.what(), badInput);
  } catch (const InputError &error) {
    return complain(error.what(), badInput);
  }
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_CTYPE, "");
  try {
    return runProgram(argc, argv);
  } catch (const std::exception &error) {
    return complain(error.what(), 1);
  }
}
