#include "status/Verdict.h"

#include <algorithm>
#include <iterator>

#include "base/Text.h"

namespace chassis {

using event::Reading;

bool isMeasured(const ProgramFinding &program) {
  return program.probe == ProbeState::None || program.probe == ProbeState::Judged;
}

namespace {

bool isSilent(const PidFinding &pid) {
  return pid.behind.packets == 0;
}

// What is said beside the module's status, in the order of Reading. Where an input of a receiver
// that is judged is lost, nothing is said of its CAM.
struct ReadingWords {
  Reading reading;
  const char *state;  // empty: the status has words
  const char *note;
  Tone tone;
};
constexpr ReadingWords readingWords[] = {
    {Reading::Measured, "", "", Tone::Plain},
    {Reading::Clear, "", "clear, no CA descriptors", Tone::Plain},
    {Reading::WithoutPackets, "without packets", "counted as descrambled", Tone::Faint},
    {Reading::NotYet, "not descrambled yet", "", Tone::Plain},
    {Reading::Learning, "not judged yet", "what comes out is not known yet", Tone::Faint},
    {Reading::MissingBehind, "missing behind", "goes in, but does not come out", Tone::Bad},
    {Reading::NothingBehind, "missing behind", "goes in, but no packet of it comes out", Tone::Bad},
    {Reading::SilentBefore, "not judged", "nothing goes into the receiver", Tone::Faint},
    {Reading::SilentBehind, "not judged", "nothing comes out of the receiver", Tone::Faint},
    {Reading::SilentBoth, "not judged", "nothing goes in, and nothing comes out", Tone::Faint},
};

constexpr bool inOrder() {
  for (std::size_t i = 0; i < std::size(readingWords); ++i) {
    if (readingWords[i].reading != static_cast<Reading>(i)) {
      return false;
    }
  }
  return std::size(readingWords) == event::readings;
}
static_assert(inOrder());

// In the order of ProbeState.
constexpr Reading probeReadings[] = {
    Reading::Measured,      Reading::Learning,     Reading::Measured,     Reading::MissingBehind,
    Reading::NothingBehind, Reading::SilentBefore, Reading::SilentBehind, Reading::SilentBoth};
static_assert(std::size(probeReadings) == static_cast<std::size_t>(ProbeState::SilentBoth) + 1);

bool isSilent(const ProgramFinding &program) {
  return std::all_of(program.pids.begin(), program.pids.end(),
                     [](const PidFinding &pid) { return isSilent(pid); });
}

}  // namespace

Reading readingOf(const ProgramFinding &program, std::uint8_t status, bool silent) {
  if (!isMeasured(program)) {
    return probeReadings[static_cast<std::size_t>(program.probe)];
  }
  if (status == DESC_STAT_OK && silent) {
    return Reading::WithoutPackets;
  }
  if (status == DESC_STAT_SCRAMBLED && mayStillBegin(program.caPmtAgeMs)) {
    return Reading::NotYet;
  }
  return status == DESC_STAT_UNKNOWN && program.clear ? Reading::Clear : Reading::Measured;
}

Reading readingOf(const ProgramFinding &program) {
  return readingOf(program, program.status, isSilent(program));
}

Verdict verdictOf(std::uint8_t status, Reading reading, CaPmtAgeMs caPmtAge) {
  const ReadingWords &read = readingWords[static_cast<std::size_t>(reading)];
  if (reading == Reading::NotYet) {
    return {read.state, "", "CA PMT sent " + secondsText(caPmtAge.value_or(0)) + " ago", read.tone};
  }
  if (*read.state != '\0') {
    return {read.state, "", read.note, read.tone};
  }
  const StatusWords &words = statusWords(status);
  return {words.state, words.cause, read.note, words.tone};
}

std::vector<std::string> probeStates() {
  std::vector<std::string> states;
  for (const ReadingWords &words : readingWords) {
    const std::string state = words.state;
    const bool probed = words.reading >= Reading::Learning;
    if (probed && std::find(states.begin(), states.end(), state) == states.end()) {
      states.push_back(state);
    }
  }
  return states;
}

bool isSupervised(const ProgramFinding &program) {
  return program.camMask != 0 || program.probe != ProbeState::None;
}

Verdict verdictOf(const ProgramFinding &program) {
  return verdictOf(program.status, readingOf(program), program.caPmtAgeMs);
}

Verdict verdictOf(const ProgramFinding &program, const PidFinding &pid) {
  return verdictOf(pid.status, readingOf(program, pid.status, isSilent(pid)), program.caPmtAgeMs);
}

event::CaSystemState caSystemOf(const CamFinding &cam) {
  return {cam.casid, cam.programs > 0 && cam.clearPrograms == cam.programs};
}

event::Summary summaryOf(const CamFinding &cam) {
  return {cam.descrambling, mayStillBegin(cam.caPmtAgeMs)};
}

const FieldWords &caSystemWords(const event::CaSystemState &state) {
  return casidWords(state.casidStat, state.clearOnly);
}

const FieldWords &descramblingWords(const event::Summary &summary) {
  return summaryWords(summary.descStat, summary.mayBegin);
}

}  // namespace chassis
