// What is told of a program or a PID: the module's status in words, and what the chassis knows
// beside it. The status is always the module's; only words and tone depend on the rest.
#pragma once

#include <string>
#include <vector>

#include "event/CheckFacts.h"
#include "status/FieldWords.h"
#include "status/Findings.h"
#include "status/Words.h"

namespace chassis {

struct Verdict {
  std::string state;
  std::string cause;  // empty where there is none
  std::string note;   // what the state must be read with; empty where there is nothing
  Tone tone = Tone::Plain;
};

// The states of programs beside the module's: those of a receiver that is judged.
std::vector<std::string> probeStates();

// Nothing keeps the module from measuring it: what it says is the module's.
bool isMeasured(const ProgramFinding &program);

// A CAM has the program, or a receiver that is judged.
bool isSupervised(const ProgramFinding &program);

// How the status of a program is to be read, or of a PID of it (silent: no packets behind).
event::Reading readingOf(const ProgramFinding &program, std::uint8_t status, bool silent);
event::Reading readingOf(const ProgramFinding &program);

// caPmtAge: of the CAMs that have the program.
Verdict verdictOf(std::uint8_t status, event::Reading reading, CaPmtAgeMs caPmtAge);
Verdict verdictOf(const ProgramFinding &program);
Verdict verdictOf(const ProgramFinding &program, const PidFinding &pid);

// Of a CAM: the CA systems of its programs, what it descrambles.
event::CaSystemState caSystemOf(const CamFinding &cam);
event::Summary summaryOf(const CamFinding &cam);
const FieldWords &caSystemWords(const event::CaSystemState &state);
const FieldWords &descramblingWords(const event::Summary &summary);
inline const FieldWords &caSystemWords(const CamFinding &cam) {
  return caSystemWords(caSystemOf(cam));
}
inline const FieldWords &descramblingWords(const CamFinding &cam) {
  return descramblingWords(summaryOf(cam));
}

}  // namespace chassis
