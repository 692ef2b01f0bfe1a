// Makes a scrambled transport stream from a clear one, for the laboratory CA system.
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "PidText.h"
#include "Scrambler.h"
#include "Version.h"
#include "app/CommandLine.h"
#include "app/OptionValue.h"
#include "app/Program.h"
#include "base/ExitStatus.h"
#include "base/Text.h"
#include "card/StreamScan.h"
#include "console/ProgressLine.h"

namespace {

using namespace tsscramble;

// The command line as it was typed.
struct Arguments {
  std::string in;
  std::string out;
  std::vector<std::string> programs;
  std::string level = "program";
  std::string cipher = "xor";
  Request request;
};

void declare(CLI::App &app, Arguments &arguments) {
  Request &request = arguments.request;
  const CLI::Validator ordinaryPids = chassis::wholeNumber(firstOrdinaryPid, chassis::nullPid - 1);
  const CLI::Validator numbers = chassis::wholeNumber(1, 0xFFFF);
  app.add_option("IN", arguments.in, "clear transport stream")->required();
  app.add_option("OUT", arguments.out, "scrambled transport stream")->required();
  app.add_option(
         "--program", arguments.programs,
         "NUMBER[:LEVEL[:PID[,PID...]]]: a program to scramble, its level, program or stream, "
         "and its ECM PIDs, one, or one for each stream; may be repeated; without it, all "
         "programs")
      ->allow_extra_args(false);
  app.add_option("--new-pmt", request.newPmts,
                 "NUMBER: a program whose PMT becomes the next version; may be repeated")
      ->transform(numbers)
      ->allow_extra_args(false);
  app.add_option("--level", arguments.level, "level of programs that tell none: program or stream")
      ->capture_default_str();
  app.add_option("--casid", request.casid, "CA system id")
      ->transform(numbers)
      ->default_str(pidText(request.casid));
  app.add_option("--crypto-period", request.cryptoPeriod,
                 "seconds; an even number of equal periods nearest to it is made")
      ->capture_default_str();
  app.add_option("--ecm-interval", request.ecmInterval, "seconds between ECMs of a PID")
      ->capture_default_str();
  app.add_option("--ecm-pid", request.firstEcmPid,
                 "ECM PIDs are the first free ones from here upwards")
      ->transform(ordinaryPids);
  app.add_option("--emm-pid", request.emmPid, "EMM PID; without it, a free one")
      ->transform(ordinaryPids);
  app.add_option("--cipher", arguments.cipher, "of the ECMs: none or xor")->capture_default_str();
  app.add_option("--seed", request.seed, "of the control words")
      ->transform(chassis::wholeNumber(0, std::numeric_limits<std::uint64_t>::max() - 1))
      ->capture_default_str();
  app.add_option("--bitrate", request.bitrate, "of IN in bit/s; without it, from its PCRs")
      ->transform(chassis::wholeNumber(1, chassis::maxBitrate));
}

Request requestOf(const Arguments &arguments) {
  Request request = arguments.request;
  request.level = parseLevel(arguments.level);
  request.cipher = parseCipher(arguments.cipher);
  for (const std::string &program : arguments.programs) {
    request.programs.push_back(parseProgram(program));
  }
  return request;
}

template <typename Pids>
std::string pidList(const Pids &pids) {
  std::vector<std::string> texts;
  texts.reserve(pids.size());
  for (const std::uint16_t pid : pids) {
    texts.push_back(pidText(pid));
  }
  return chassis::joined(texts);
}

void tell(const Request &request, const Result &result) {
  const Plan &plan = result.plan;
  std::printf("CA system 0x%04X, EMM PID %s, %u crypto periods of %.2f s\n", request.casid,
              pidText(plan.emmPid).c_str(), plan.periods, result.survey.seconds() / plan.periods);
  for (const EcmStream &ecm : plan.ecms) {
    std::printf("program %u: ECM PID %s for %s\n", ecm.program, pidText(ecm.pid).c_str(),
                pidList(ecm.pids).c_str());
  }
  if (!plan.leftClear.empty()) {
    std::printf("left clear, since several programs share them: %s\n",
                pidList(plan.leftClear).c_str());
  }
}

int run(int argc, char **argv) {
  CLI::App app(
      "Makes a scrambled transport stream from a clear one, for the laboratory CA system, which "
      "protects nothing.",
      "ts-scramble");
  Arguments arguments;
  declare(app, arguments);
  app.set_version_flag("--version", std::string("ts-scramble ") + chassis::version);
  app.footer(chassis::exitStatusHelp);
  return chassis::parsed(app, argc, argv, [&arguments] {
    const Request request = requestOf(arguments);
    chassis::ProgressLine progress(STDERR_FILENO);
    const Result result =
        scramble(request, arguments.in, arguments.out, chassis::showingOn(progress));
    progress.clear();
    tell(request, result);
    return static_cast<int>(chassis::exitDone);
  });
}

}  // namespace

int main(int argc, char **argv) {
  return chassis::runProgram("ts-scramble", [&] { return run(argc, argv); });
}
