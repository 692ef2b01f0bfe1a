#include "status/Verdict.h"

#include <algorithm>
#include <iterator>

#include "base/Text.h"

namespace chassis {

bool isMeasured(const ProgramFinding &program) {
  return program.probe == ProbeState::None || program.probe == ProbeState::Judged;
}

namespace {

bool isSilent(const PidFinding &pid) {
  return pid.behind.packets == 0;
}

// What is said of a program that somebody else's receiver is to descramble, in the order of
// ProbeState. Where an input is lost, nothing is said of its CAM.
struct ProbeWords {
  ProbeState state;
  const char *words;
  const char *note;
  Tone tone;
};
constexpr ProbeWords probeWords[] = {
    {ProbeState::None, "", "", Tone::Plain},
    {ProbeState::Learning, "not judged yet", "what comes out is not known yet", Tone::Faint},
    {ProbeState::Judged, "", "", Tone::Plain},
    {ProbeState::MissingBehind, "missing behind", "goes in, but does not come out", Tone::Bad},
    {ProbeState::NothingBehind, "missing behind", "goes in, but no packet of it comes out",
     Tone::Bad},
    {ProbeState::SilentBefore, "not judged", "nothing goes into the receiver", Tone::Faint},
    {ProbeState::SilentBehind, "not judged", "nothing comes out of the receiver", Tone::Faint},
    {ProbeState::SilentBoth, "not judged", "nothing goes in, and nothing comes out", Tone::Faint},
};

constexpr bool inOrder() {
  for (std::size_t i = 0; i < std::size(probeWords); ++i) {
    if (probeWords[i].state != static_cast<ProbeState>(i)) {
      return false;
    }
  }
  return std::size(probeWords) == static_cast<std::size_t>(ProbeState::SilentBoth) + 1;
}
static_assert(inOrder());

Verdict verdictOf(const ProgramFinding &program, std::uint8_t status, bool silent) {
  const ProbeWords &probed = probeWords[static_cast<std::size_t>(program.probe)];
  if (!isMeasured(program)) {
    return {probed.words, "", probed.note, probed.tone};
  }
  if (status == DESC_STAT_OK && silent) {
    return {"without packets", "", "counted as descrambled", Tone::Faint};
  }
  if (status == DESC_STAT_SCRAMBLED && mayStillBegin(program.caPmtAgeMs)) {
    const std::string age = secondsText(*program.caPmtAgeMs);
    return {"not descrambled yet", "", "CA PMT sent " + age + " ago", Tone::Plain};
  }
  const StatusWords &words = statusWords(status);
  const bool clear = status == DESC_STAT_UNKNOWN && program.clear;
  return {words.state, words.cause, clear ? "clear, no CA descriptors" : "", words.tone};
}

}  // namespace

std::vector<std::string> probeStates() {
  std::vector<std::string> states;
  for (const ProbeWords &words : probeWords) {
    const std::string state = words.words;
    if (!state.empty() && std::find(states.begin(), states.end(), state) == states.end()) {
      states.push_back(state);
    }
  }
  return states;
}

bool isSupervised(const ProgramFinding &program) {
  return program.camMask != 0 || program.probe != ProbeState::None;
}

Verdict verdictOf(const ProgramFinding &program) {
  const bool silent = std::all_of(program.pids.begin(), program.pids.end(), isSilent);
  return verdictOf(program, program.status, silent);
}

Verdict verdictOf(const ProgramFinding &program, const PidFinding &pid) {
  return verdictOf(program, pid.status, isSilent(pid));
}

const FieldWords &caSystemWords(const CamFinding &cam) {
  return casidWords(cam.casid, cam.programs > 0 && cam.clearPrograms == cam.programs);
}

const FieldWords &descramblingWords(const CamFinding &cam) {
  return summaryWords(cam.descrambling, mayStillBegin(cam.caPmtAgeMs));
}

}  // namespace chassis
