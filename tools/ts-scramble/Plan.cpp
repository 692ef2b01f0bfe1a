#include "Plan.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>

#include "PidText.h"
#include "base/InputError.h"
#include "base/Text.h"

namespace tsscramble {

using chassis::InputError;
using chassis::PsiProgram;
using chassis::PsiStream;
using chassis::labca::ControlWord;

namespace {

constexpr std::uint16_t defaultCaPid = 0x1500;  // where free PIDs are looked for first
constexpr std::uint16_t lastFreePid = 0x1FFA;   // those above have a use in some systems

// Streams of sections, which stay readable for everybody.
constexpr std::uint8_t sectionTypes[] = {0x05, 0x0A, 0x0B, 0x0C, 0x0D, 0x86};

class PidStock {
 public:
  PidStock(const Request &request, const Survey &survey)
      : path_(survey.path),
        used_(survey.usedPids),
        next_(request.firstEcmPid.value_or(defaultCaPid)) {
    if (request.emmPid) {
      reserve(*request.emmPid, "EMM PID");
    }
    for (const ProgramRequest &program : request.programs) {
      for (const std::uint16_t pid : program.ecmPids) {
        reserve(pid, "ECM PID");
      }
    }
  }

  std::uint16_t take() {
    while (next_ <= lastFreePid && used_.count(next_) != 0) {
      ++next_;
    }
    if (next_ > lastFreePid) {
      throw InputError("'" + path_ + "' leaves no PID free for an ECM or EMM stream");
    }
    return next_++;
  }

 private:
  void reserve(std::uint16_t pid, const std::string &what) {
    if (!used_.insert(pid).second) {
      throw InputError(what + " " + pidText(pid) + " is in use in '" + path_ +
                       "'; a free one would be right");
    }
  }

  const std::string &path_;
  std::set<std::uint16_t> used_;
  std::uint16_t next_;
};

std::string programList(const Survey &survey) {
  std::vector<std::string> texts;
  for (const PsiProgram &program : survey.programs) {
    texts.push_back(std::to_string(program.number));
  }
  return chassis::joined(texts);
}

std::vector<ProgramRequest> chosenPrograms(const Request &request, const Survey &survey) {
  for (const ProgramRequest &program : request.programs) {
    if (survey.program(program.number) == nullptr) {
      throw InputError("'" + survey.path + "' has no program " + std::to_string(program.number) +
                       "; it has " + programList(survey));
    }
  }
  std::vector<ProgramRequest> chosen = request.programs;
  for (const PsiProgram &program : survey.programs) {
    if (request.programs.empty()) {
      chosen.push_back({program.number, std::nullopt, {}});
    }
  }
  return chosen;
}

std::size_t programsWith(const Survey &survey, std::uint16_t pid) {
  const auto has = [pid](const PsiProgram &program) {
    return std::any_of(program.streams.begin(), program.streams.end(),
                       [pid](const PsiStream &stream) { return stream.pid == pid; });
  };
  return static_cast<std::size_t>(
      std::count_if(survey.programs.begin(), survey.programs.end(), has));
}

bool isScramblable(const Survey &survey, const PsiStream &stream) {
  const bool ordinary = stream.pid >= firstOrdinaryPid && stream.pid < chassis::nullPid &&
                        survey.psiPids.count(stream.pid) == 0;
  return ordinary && std::count(std::begin(sectionTypes), std::end(sectionTypes), stream.type) == 0;
}

std::vector<std::uint16_t> streamsToScramble(const Survey &survey, const PsiProgram &program,
                                             Plan &plan) {
  std::vector<std::uint16_t> pids;
  for (const PsiStream &stream : program.streams) {
    if (!isScramblable(survey, stream)) {
      continue;
    }
    if (survey.scrambledPids.count(stream.pid) != 0) {
      throw InputError("PID " + pidText(stream.pid) + " of program " +
                       std::to_string(program.number) + " in '" + survey.path +
                       "' is scrambled already");
    }
    if (programsWith(survey, stream.pid) > 1) {
      plan.leftClear.insert(stream.pid);
    } else {
      pids.push_back(stream.pid);
    }
  }
  if (pids.empty()) {
    throw InputError("program " + std::to_string(program.number) + " in '" + survey.path +
                     "' has no stream of its own to scramble");
  }
  return pids;
}

// The streams of each ECM PID of a program.
std::vector<std::vector<std::uint16_t>> groups(Level level,
                                               const std::vector<std::uint16_t> &pids) {
  if (level == Level::Program) {
    return {pids};
  }
  std::vector<std::vector<std::uint16_t>> single;
  single.reserve(pids.size());
  for (const std::uint16_t pid : pids) {
    single.push_back({pid});
  }
  return single;
}

void addEcm(Plan &plan, std::uint16_t casid, Level level, const EcmStream &ecm) {
  const Descriptors descriptor = caDescriptor(casid, ecm.pid);
  PmtEdit &edit = plan.pmts[ecm.program];
  if (level == Level::Program) {
    edit.program = descriptor;
  }
  for (const std::uint16_t pid : ecm.pids) {
    plan.ecmOfPid[pid] = plan.ecms.size();
    if (level == Level::Stream) {
      edit.streams[pid] = descriptor;
    }
  }
  plan.ecms.push_back(ecm);
}

void addProgram(Plan &plan, const Request &request, const Survey &survey, PidStock &stock,
                const ProgramRequest &wanted) {
  const PsiProgram &program = *survey.program(wanted.number);
  const Level level = wanted.level.value_or(request.level);
  const auto grouped = groups(level, streamsToScramble(survey, program, plan));
  if (!wanted.ecmPids.empty() && wanted.ecmPids.size() != grouped.size()) {
    throw InputError("program " + std::to_string(wanted.number) + " needs " +
                     std::to_string(grouped.size()) + " ECM PIDs, " +
                     std::to_string(wanted.ecmPids.size()) + " are given");
  }
  for (std::size_t i = 0; i < grouped.size(); ++i) {
    const std::uint16_t pid = wanted.ecmPids.empty() ? stock.take() : wanted.ecmPids[i];
    addEcm(plan, request.casid, level, {pid, wanted.number, grouped[i]});
  }
}

void addNewPmt(Plan &plan, std::uint16_t program) {
  const auto edit = plan.pmts.find(program);
  if (edit == plan.pmts.end()) {
    throw InputError("program " + std::to_string(program) +
                     " is not scrambled, so its PMT stays as it is");
  }
  edit->second.nextVersion = true;
}

// As many periods as come nearest to the one asked for, an even number of them.
std::uint32_t countPeriods(const Request &request, const Survey &survey) {
  const double pairs = survey.seconds() / request.cryptoPeriod / 2;
  const auto periods = 2 * static_cast<std::uint32_t>(std::max(1.0, std::round(pairs)));
  if (survey.packets < periods) {
    throw InputError("'" + survey.path + "' has " + std::to_string(survey.packets) +
                     " packets for " + std::to_string(periods) +
                     " crypto periods; give a higher --bitrate or a longer --crypto-period");
  }
  if (survey.seconds() / periods < 2 * request.ecmInterval) {
    std::ostringstream text;
    text << "'" << survey.path << "' lasts " << survey.seconds()
         << " s, too short for two crypto periods of twice the ECM interval ("
         << request.ecmInterval << " s)";
    throw InputError(text.str());
  }
  return periods;
}

// Spreads every bit of the input over the whole result.
std::uint64_t mix(std::uint64_t value) {
  value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9;
  value = (value ^ value >> 27) * 0x94D049BB133111EB;
  return value ^ value >> 31;
}

}  // namespace

std::uint32_t Plan::periodAt(std::uint64_t index) const {
  return static_cast<std::uint32_t>(index * periods / packets);
}

Plan makePlan(const Request &request, const Survey &survey) {
  Plan plan;
  PidStock stock(request, survey);
  plan.packets = survey.packets;
  plan.periods = countPeriods(request, survey);
  for (const ProgramRequest &program : chosenPrograms(request, survey)) {
    addProgram(plan, request, survey, stock, program);
  }
  for (const std::uint16_t program : request.newPmts) {
    addNewPmt(plan, program);
  }
  plan.emmPid = request.emmPid ? *request.emmPid : stock.take();
  return plan;
}

ControlWord controlWord(const Request &request, const Plan &plan, std::size_t ecm,
                        std::uint32_t period) {
  const std::uint64_t place = std::uint64_t{ecm} << 32 | period % plan.periods;
  const std::uint64_t bits = mix(mix(request.seed + 0x9E3779B97F4A7C15) ^ mix(place + 1));
  ControlWord word;
  for (std::size_t i = 0; i < word.size(); ++i) {
    word[i] = static_cast<std::uint8_t>(bits >> 8 * i);
  }
  chassis::labca::setChecksums(word);
  return word;
}

chassis::labca::Ecm ecmOf(const Request &request, const Plan &plan, std::size_t ecm,
                          std::uint32_t period) {
  const ControlWord now = controlWord(request, plan, ecm, period);
  const ControlWord next = controlWord(request, plan, ecm, period + 1);
  const bool odd = (period & 1) != 0;
  return {plan.ecms[ecm].program, period, request.cipher, odd ? next : now, odd ? now : next};
}

}  // namespace tsscramble
