#include "Request.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "PidText.h"
#include "base/InputError.h"
#include "base/Number.h"
#include "ts/TsPacket.h"

namespace tsscramble {

using chassis::InputError;

namespace {

constexpr double shortestCryptoPeriod = 0.1;
constexpr double longestCryptoPeriod = 3600;
constexpr double shortestEcmInterval = 0.01;
constexpr const char *programForm = "; NUMBER[:program|stream[:PID[,PID...]]] would be right";

std::vector<std::string> split(const std::string &text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    parts.push_back(part);
  }
  if (text.empty() || text.back() == separator) {
    parts.emplace_back();
  }
  return parts;
}

std::uint16_t parseNumber(const std::string &text, unsigned least, unsigned most,
                          const std::string &what) {
  const std::optional<std::uint64_t> number = chassis::readWhole(text);
  if (!number || *number < least || *number > most) {
    throw InputError("'" + text + "' is no " + what + "; " + std::to_string(least) + " to " +
                     std::to_string(most) + " would be right");
  }
  return static_cast<std::uint16_t>(*number);
}

void checkRange(double value, double least, double most, const std::string &what) {
  if (!(value >= least && value <= most)) {
    std::ostringstream text;
    text << what << " " << value << " s is out of range; " << least << " to " << most
         << " s would be right";
    throw InputError(text.str());
  }
}

void checkPid(std::uint16_t pid, const std::string &what) {
  if (pid < firstOrdinaryPid || pid >= chassis::nullPid) {
    throw InputError(what + " " + pidText(pid) + " is reserved; " + pidText(firstOrdinaryPid) +
                     " to " + pidText(chassis::nullPid - 1) + " would be right");
  }
}

void checkPids(const Request &request) {
  std::set<std::uint16_t> taken;
  const auto take = [&taken](std::uint16_t pid, const std::string &what) {
    checkPid(pid, what);
    if (!taken.insert(pid).second) {
      throw InputError(what + " " + pidText(pid) + " is given twice");
    }
  };
  if (request.emmPid) {
    take(*request.emmPid, "EMM PID");
  }
  for (const ProgramRequest &program : request.programs) {
    for (const std::uint16_t pid : program.ecmPids) {
      take(pid, "ECM PID");
    }
  }
}

}  // namespace

Level parseLevel(const std::string &text) {
  if (text == "program" || text == "stream") {
    return text == "program" ? Level::Program : Level::Stream;
  }
  throw InputError("'" + text + "' is no level; program or stream would be right");
}

chassis::labca::Cipher parseCipher(const std::string &text) {
  if (text == "none" || text == "xor") {
    return text == "none" ? chassis::labca::Cipher::None : chassis::labca::Cipher::Xor;
  }
  throw InputError("'" + text + "' is no cipher; none or xor would be right");
}

ProgramRequest parseProgram(const std::string &text) try {
  const std::vector<std::string> parts = split(text, ':');
  if (parts.size() > 3) {
    throw InputError("it has more than three parts");
  }
  ProgramRequest program;
  program.number = parseNumber(parts[0], 1, 0xFFFF, "program number");
  if (parts.size() > 1) {
    program.level = parseLevel(parts[1]);
  }
  if (parts.size() > 2) {
    for (const std::string &pid : split(parts[2], ',')) {
      program.ecmPids.push_back(parseNumber(pid, 0, chassis::nullPid, "PID"));
    }
  }
  return program;
} catch (const InputError &error) {
  throw InputError("program '" + text + "': " + error.what() + programForm);
}

void check(const Request &request) {
  checkRange(request.cryptoPeriod, shortestCryptoPeriod, longestCryptoPeriod, "crypto period");
  checkRange(request.ecmInterval, shortestEcmInterval, request.cryptoPeriod / 2, "ECM interval");
  if (request.firstEcmPid) {
    checkPid(*request.firstEcmPid, "first ECM PID");
  }
  checkPids(request);
  std::set<std::uint16_t> numbers;
  for (const ProgramRequest &program : request.programs) {
    if (!numbers.insert(program.number).second) {
      throw InputError("program " + std::to_string(program.number) + " is given twice");
    }
  }
}

}  // namespace tsscramble
