#include "status/ProbeCheck.h"

#include <algorithm>
#include <vector>

#include "base/ProgramText.h"
#include "base/Text.h"
#include "status/Verdict.h"

namespace chassis {
namespace {

constexpr const char *service = "DESCRAMBLING ";
constexpr const char *statusNames[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
// From the least to the worst: what cannot be judged says less than what is known to be bad.
constexpr CheckStatus byWeight[] = {checkOk, checkWarning, checkUnknown, checkCritical};

std::size_t weightOf(CheckStatus status) {
  return static_cast<std::size_t>(std::find(std::begin(byWeight), std::end(byWeight), status) -
                                  std::begin(byWeight));
}

// A bar begins the figures, whatever a stream calls its programs.
std::string withoutBars(std::string text) {
  std::replace(text.begin(), text.end(), '|', '/');
  return text;
}

CheckResult resultOf(CheckStatus status, const std::string &words, const std::string &figures) {
  return {status, service + std::string(statusNames[status]) + ": " + withoutBars(words) +
                      (figures.empty() ? "" : " | " + figures)};
}

std::uint64_t sumOf(const CardFinding &card, PidEvidence PidFinding::*side,
                    std::uint64_t PidEvidence::*count) {
  std::uint64_t sum = 0;
  for (const ProgramFinding &program : card.programs) {
    for (const PidFinding &pid : program.pids) {
      sum += program.probe != ProbeState::None ? pid.*side.*count : 0;
    }
  }
  return sum;
}

bool isScrambledBefore(const ProgramFinding &program) {
  return std::any_of(program.pids.begin(), program.pids.end(),
                     [](const PidFinding &pid) { return pid.before.scrambled > 0; });
}

bool isMissing(const ProgramFinding &program) {
  return program.probe == ProbeState::MissingBehind || program.probe == ProbeState::NothingBehind;
}

bool isBad(const ProgramFinding &program) {
  const bool measured = program.probe == ProbeState::Judged && program.status != DESC_STAT_UNKNOWN;
  return isMissing(program) || (measured && program.status != DESC_STAT_OK);
}

std::string verdictText(const Verdict &verdict) {
  return verdict.state + (verdict.cause.empty() ? "" : ", cause: " + verdict.cause) +
         (verdict.note.empty() ? "" : ", " + verdict.note);
}

}  // namespace

// Of one program; the worse one is named.
struct ProbeCheck::Judgement {
  CheckStatus status = checkOk;
  std::uint8_t code = DESC_STAT_OK;  // of the module; the lower the worse
  std::string words;
  bool worseThan(const Judgement &other) const {
    return weightOf(status) != weightOf(other.status) ? weightOf(status) > weightOf(other.status)
                                                      : code < other.code;
  }
};

CheckResult cannotCheck(const std::string &why) {
  return resultOf(checkUnknown, why, "");
}

void ProbeCheck::note(const CardFinding &card) {
  card_ = card;
  noted_ = true;
  std::map<std::uint16_t, std::uint64_t> bad;
  for (const ProgramFinding &program : card.programs) {
    if (isBad(program)) {
      const auto since = badSinceMs_.find(program.number);
      bad[program.number] = since == badSinceMs_.end() ? card.takenMs : since->second;
    }
  }
  badSinceMs_ = std::move(bad);
}

ProbeCheck::Judgement ProbeCheck::judge(const ProgramFinding &program) const {
  const std::string words =
      programText(program.number, program.service.name) + " " + verdictText(verdictOf(program));
  const auto since = badSinceMs_.find(program.number);
  if (since != badSinceMs_.end()) {
    const std::uint64_t forMs = card_.takenMs - since->second;
    const std::uint8_t code = isMissing(program) ? 0 : program.status;
    return forMs < justBegunMs ? Judgement{checkWarning, code, words + " for " + secondsText(forMs)}
                               : Judgement{checkCritical, code, words};
  }
  const bool judged = program.probe == ProbeState::Judged;
  if (judged && program.status == DESC_STAT_OK) {
    return {};
  }
  const FieldWords &caSystem = caSystemWords(card_.cams[0]);
  const bool other = judged && caSystem.tone == Tone::Bad;
  return {checkUnknown, program.status,
          words + (other ? ", CAM " + std::string(caSystem.text) : "")};
}

std::string ProbeCheck::troubles() const {
  const SourceCounters &in = card_.input.counters;
  const SourceCounters out = card_.countersBehind.value_or(SourceCounters{});
  const auto lost = [&](std::uint64_t SourceCounters::*count) { return in.*count + out.*count; };
  const std::uint64_t errors = sumOf(card_, &PidFinding::before, &PidEvidence::ccErrors) +
                               sumOf(card_, &PidFinding::behind, &PidEvidence::ccErrors);
  std::vector<std::string> parts;
  const auto add = [&parts](std::uint64_t count, const char *one, const char *many) {
    if (count > 0) {
      parts.push_back(countText(count, one, many));
    }
  };
  add(errors, "continuity error", "continuity errors");
  add(lost(&SourceCounters::networkLost), "datagram lost in the network",
      "datagrams lost in the network");
  add(lost(&SourceCounters::kernelLost), "datagram lost at the socket",
      "datagrams lost at the socket");
  add(lost(&SourceCounters::dropped), "packet lost here", "packets lost here");
  add(card_.unmatchedStreams, "stream that does not come out", "streams that do not come out");
  return joined(parts);
}

std::string ProbeCheck::figures(std::uint64_t descrambled, std::uint64_t judged) const {
  const SourceCounters out = card_.countersBehind.value_or(SourceCounters{});
  const auto missing = std::count_if(card_.programs.begin(), card_.programs.end(), isMissing);
  const auto figure = [](const char *name, std::uint64_t value, const char *unit) {
    return std::string(name) + "=" + std::to_string(value) + unit;
  };
  const auto errors = [this](PidEvidence PidFinding::*side) {
    return sumOf(card_, side, &PidEvidence::ccErrors);
  };
  const SourceCounters &in = card_.input.counters;
  return joined(
      {figure("descrambled", descrambled, "") + ";;;0;" + std::to_string(judged),
       figure("judged", judged, ""), figure("missing", static_cast<std::uint64_t>(missing), ""),
       figure("continuity_errors_before", errors(&PidFinding::before), "c"),
       figure("continuity_errors_behind", errors(&PidFinding::behind), "c"),
       figure("network_lost", in.networkLost + out.networkLost, "c"),
       figure("kernel_lost", in.kernelLost + out.kernelLost, "c"),
       figure("dropped", in.dropped + out.dropped, "c")},
      " ");
}

// Of every program that is judged, or was to be. What is clear before the receiver tells nothing of
// its CAM.
std::vector<ProbeCheck::Judgement> ProbeCheck::judgements() const {
  std::vector<Judgement> judged;
  std::vector<std::uint16_t> left = asked_;
  for (const ProgramFinding &program : card_.programs) {
    const bool clear = program.probe == ProbeState::Judged && !isScrambledBefore(program);
    if (program.probe != ProbeState::None && !clear) {
      judged.push_back(judge(program));
      left.erase(std::remove(left.begin(), left.end(), program.number), left.end());
    }
  }
  for (const std::uint16_t number : left) {
    judged.push_back({checkUnknown, DESC_STAT_UNKNOWN,
                      "program " + std::to_string(number) + " does not go in scrambled"});
  }
  return judged;
}

// Why there is nothing to judge.
std::string ProbeCheck::nothingJudged() const {
  if (card_.unaligned) {
    return "'" + card_.input.name + "' and '" + card_.behindName +
           "' have no time in common, so one tells nothing of the other";
  }
  if (card_.input.silent) {
    return "nothing goes into the receiver";
  }
  const bool asked =
      std::any_of(card_.programs.begin(), card_.programs.end(),
                  [](const ProgramFinding &program) { return program.probe != ProbeState::None; });
  return asked ? "nothing scrambled goes into the receiver"
               : "no program that goes in has CA descriptors";
}

CheckResult ProbeCheck::result() const {
  if (!noted_) {
    return cannotCheck("nothing has been judged yet; give it longer with --for");
  }
  const std::vector<Judgement> judged = judgements();
  const auto isOk = [](const Judgement &judgement) { return judgement.status == checkOk; };
  const auto descrambled =
      static_cast<std::uint64_t>(std::count_if(judged.begin(), judged.end(), isOk));
  const std::string all = figures(descrambled, judged.size());
  if (judged.empty() || card_.input.silent || card_.unaligned) {
    return resultOf(checkUnknown, nothingJudged(), all);
  }
  const Judgement &worst =
      *std::max_element(judged.begin(), judged.end(),
                        [](const Judgement &a, const Judgement &b) { return b.worseThan(a); });
  const std::string counts = std::to_string(descrambled) + " of " +
                             countText(judged.size(), "program", "programs") + " descrambled";
  if (worst.status != checkOk) {
    return resultOf(worst.status, worst.words + "; " + counts, all);
  }
  const std::string trouble = troubles();
  return resultOf(trouble.empty() ? checkOk : checkWarning,
                  counts + (trouble.empty() ? "" : ", but with " + trouble), all);
}

}  // namespace chassis
