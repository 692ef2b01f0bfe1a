// What is told of a program or a PID: the module's status in words, and what the chassis knows
// beside it. The status is always the module's; only words and tone depend on the rest.
#pragma once

#include <string>
#include <vector>

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

Verdict verdictOf(const ProgramFinding &program);
Verdict verdictOf(const ProgramFinding &program, const PidFinding &pid);

// Of a CAM: the CA systems of its programs, what it descrambles.
const FieldWords &caSystemWords(const CamFinding &cam);
const FieldWords &descramblingWords(const CamFinding &cam);

}  // namespace chassis
