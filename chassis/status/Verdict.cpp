#include "status/Verdict.h"

#include <algorithm>

#include "base/Text.h"

namespace chassis {
namespace {

bool isSilent(const PidFinding &pid) {
  return pid.behind.packets == 0;
}

Verdict verdictOf(const ProgramFinding &program, std::uint8_t status, bool silent) {
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
