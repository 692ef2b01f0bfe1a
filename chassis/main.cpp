#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "InputError.h"
#include "report/StatusTable.h"
#include "report/StatusWatch.h"
#include "report/Timeline.h"
#include "script/Player.h"

namespace {

using namespace chassis;

struct Options {
  std::string script;
  std::string speed = "1";
  double seconds = -1;
  std::vector<std::string> outputs;
  std::uint32_t clockStart = 0;
  bool debug = false;
  bool noTable = false;
};

constexpr int badInput = 2;

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
}

void play(const Options &options) {
  Script script = readScript(options.script);
  Clock clock(options.clockStart, readSpeed(options.speed));
  const bool colour = wantColour();
  Timeline timeline(std::cout, {colour, options.debug}, [&clock] { return clock.elapsedMs(); });
  bindConsole(
      [&timeline](ConsolePort port, const std::string &line) { timeline.print(port, line); });
  Chassis chassis(clock, timeline);
  StatusWatch watch(chassis, timeline);
  for (const std::string &output : options.outputs) {
    openOutput(chassis, output);
  }
  Player player(std::move(script), chassis);
  const bool limited = options.seconds >= 0;
  chassis.run(limited ? static_cast<std::uint64_t>(options.seconds * 1000) : player.endMs(),
              player);
  timeline.flush();
  bindConsole(nullptr);
  if (!options.noTable) {
    printTables(chassis, colour);
  }
}

void describe(CLI::App &app, Options &options) {
  app.add_option("--script", options.script, "the script of shell lines to run")
      ->required()
      ->type_name("FILE");
  app.add_option("--speed", options.speed, "chassis seconds per real second, or max")
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
  app.add_flag("--no-table", options.noTable, "leaves out the table at the end");
  app.footer("Functions of a script, written name arg, arg or name(arg, arg):\n" + functionHelp());
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
    play(options);
  } catch (const CLI::Success &success) {
    return app.exit(success);
  } catch (const CLI::ParseError &error) {
    return complain(error.what(), badInput);
  } catch (const InputError &error) {
    return complain(error.what(), badInput);
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return runProgram(argc, argv);
  } catch (const std::exception &error) {
    return complain(error.what(), 1);
  }
}
