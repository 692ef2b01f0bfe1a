#include "app/Probe.h"

#include <algorithm>
#include <cstring>

#include "app/CommandLine.h"
#include "app/OptionValue.h"
#include "app/ResetCommand.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "base/Number.h"
#include "console/Colour.h"
#include "console/StandardOutput.h"
#include "io/Ports.h"
#include "status/ProbeCheck.h"

namespace chassis {
namespace {

constexpr std::uint32_t slot = 0;
constexpr std::uint64_t checkedMs = 20000;
constexpr std::uint64_t greatest = 0xFFFF;

const std::string footer =
    "BEFORE and BEHIND are what goes into the receiver and what comes out of it: udp:// or rtp:// "
    "with GROUP:PORT (?iface=NAME, ?source=ADDRESS, ?rcvbuf=BYTES), a FIFO, - or two files. "
    "Nothing is sent to the receiver. Every program with CA descriptors is judged; two files are "
    "aligned by their PCRs and judged as fast as they can be read.";
const std::string checkHelp =
    "With --check standard output has one line with figures, and the exit status is:\n"
    "  0    every judged program is descrambled\n"
    "  1    all are, but with losses or continuity errors; or a fault is younger than 5 s\n"
    "  2    at least one is not descrambled or does not come out\n"
    "  3    it cannot be judged: an input is silent or unreadable, nothing in it is scrambled, a "
    "wrong call\n";

std::uint16_t readId(const std::string &option, const std::string &text) {
  const std::optional<std::uint64_t> id = readWhole(text);
  if (!id || *id < 1 || *id > greatest) {
    throw InputError(option + " " + text + " does not fit; write 1 to 65535, or 0x0001 to 0xFFFF");
  }
  return static_cast<std::uint16_t>(*id);
}

std::vector<std::uint16_t> readIds(const std::string &option,
                                   const std::vector<std::string> &texts) {
  std::vector<std::uint16_t> ids;
  std::transform(texts.begin(), texts.end(), std::back_inserter(ids),
                 [&option](const std::string &text) { return readId(option, text); });
  return ids;
}

ProgramNumbers readNumbers(const std::vector<std::string> &texts) {
  ProgramNumbers numbers;
  for (const std::string &text : texts) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
      throw InputError("--map " + text +
                       " does not fit; write BEFORE=BEHIND, two program numbers such as 101=1");
    }
    const std::uint16_t before = readId("--map", text.substr(0, equals));
    if (!numbers.emplace(before, readId("--map", text.substr(equals + 1))).second) {
      throw InputError("--map gives program " + std::to_string(before) +
                       " two numbers behind; leave one out");
    }
  }
  return numbers;
}

// Two files are judged as fast as they can be read.
bool areFiles(const ProbeOptions &options) {
  return isPlayed(readUrl(options.before, Url::Use::Input)) &&
         isPlayed(readUrl(options.behind, Url::Use::Input));
}

ChassisRun::Config configOf(const ProbeOptions &options) {
  ChassisRun::Config config;
  checkOutputTakers(options.reports, false);
  config.mode = InputMode::Script;
  config.speed = areFiles(options) ? 0 : 1;
  config.endsWithStreams = true;
  config.colour = outputWantsColour();
  config.debug = options.debug;
  config.shown = options.check ? Shown::Nothing : shownOf(options.reports);
  config.writesFiles = writesFiles(options.reports);
  if (options.duration) {
    config.endMs = readDuration(*options.duration);
  } else if (options.check && !areFiles(options)) {
    config.endMs = checkedMs;
  }
  return config;
}

Rack::Probe probeOf(const ProbeOptions &options) {
  Rack::Probe probe;
  probe.before = options.before;
  probe.behind = options.behind;
  probe.programs = readIds("--program", options.programs);
  probe.caSystems = readIds("--casid", options.caSystems);
  probe.numbers = readNumbers(options.numbers);
  return probe;
}

int tellCheck(const CheckResult &result) {
  writeStandardOutput(result.line + "\n");
  return result.status;
}

// A signal that ended it says more than what was found until then.
int checkedStatus(int ended, const ProbeCheck &check) {
  return ended > exitSignalled ? ended : tellCheck(check.result());
}

void checkOptions(const ProbeOptions &options) {
  if (options.check && shownOf(options.reports) != Shown::Timeline) {
    throw InputError("--check writes standard output; give a file in place of -");
  }
}

}  // namespace

int probe(const ProbeOptions &options) {
  checkOptions(options);
  Rack::Probe judged = probeOf(options);
  const ChassisRun::Config config = configOf(options);
  ChassisRun chassisRun(config, Script{});
  openReports(chassisRun, options.reports);
  ResetCommand command(options.onReset, chassisRun.events());
  if (!options.onReset.empty()) {
    judged.onReset = [&command] { command.run(); };
  }
  ProbeCheck check(judged.programs);
  Chassis &chassis = chassisRun.chassis();
  chassis.onChecked([&](std::uint32_t checked) {
    command.look();
    check.note(*chassisRun.snapshot()->cards[checked]);
  });
  chassis.rack().probeInsert(slot, judged);
  const int ended = runAndReport(chassisRun, options.reports, config);
  check.note(*chassisRun.snapshot()->cards[slot]);
  return options.check ? checkedStatus(ended, check) : ended;
}

void describeProbe(CLI::App &app, ProbeOptions &options) {
  app.add_option("BEFORE", options.before, "what goes into the receiver")
      ->check(notEmpty())
      ->required()
      ->type_name("STREAM");
  app.add_option("BEHIND", options.behind, "what comes out of it")
      ->check(notEmpty())
      ->required()
      ->type_name("STREAM");
  app.add_option("--program", options.programs, "judges this program; may be given again")
      ->allow_extra_args(false)
      ->type_name("N");
  app.add_option("--casid", options.caSystems,
                 "a CA system of the receiver's CAM; default: the first that the programs carry")
      ->allow_extra_args(false)
      ->type_name("ID");
  app.add_option("--map", options.numbers, "the receiver gives program N the number M")
      ->allow_extra_args(false)
      ->type_name("N=M");
  app.add_option("--for", options.duration,
                 "chassis time to judge; default: until it is ended; with --check 20")
      ->type_name("SECONDS");
  app.add_flag("--check", options.check, "one line and an exit status for a monitoring system");
  app.add_option("--on-reset", options.onReset,
                 "a shell command that is run when the module would reset the CAM")
      ->check(notEmpty("command", "one of the shell"))
      ->type_name("COMMAND");
  describeReports(app, options.reports);
  app.add_flag("--debug", options.debug, "shows the firmware's debug prints too");
  app.footer(helpParagraph(footer) + "\n" + checkHelp);
}

bool asksForCheck(int argc, char **argv) {
  return std::any_of(argv, argv + argc,
                     [](const char *argument) { return std::strcmp(argument, "--check") == 0; });
}

int failedCheck(const std::string &why) {
  return tellCheck(cannotCheck(why));
}

}  // namespace chassis
