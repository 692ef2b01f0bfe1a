#include "status/LineWords.h"

#include "base/ProgramText.h"
#include "base/Text.h"

namespace chassis::words {
namespace {

std::string scriptLine(std::uint64_t line) {
  return "script line " + std::to_string(line);
}

std::string whatIsNot(const event::NoEffect &facts) {
  const std::string programs = programsText(facts.programs.numbers(), facts.programs.names());
  switch (facts.reason) {
    case event::NoEffectReason::NotAssigned:
      return "nothing changes yet: " + programs + " is not assigned to this CAM";
    case event::NoEffectReason::PidNotInStream:
      return "nothing changes: PID " + hexListOf(facts.pids) + " is not in the stream";
    case event::NoEffectReason::NotJudged:
      return programs + " cannot be judged: not in what goes into the receiver";
    case event::NoEffectReason::ProgramNotInStream:
      break;
  }
  return "nothing changes yet: " + programs + " is not in the stream";
}

std::string whyNot(const event::NoEffect &facts) {
  switch (facts.reason) {
    case event::NoEffectReason::PidNotInStream:
      return "";
    case event::NoEffectReason::NotJudged:
      return "there are " + listOf(facts.carried);
    default:
      return "kept for when it is";
  }
}

}  // namespace

EventWords of(const event::ScriptLine &facts, const Place & /*place*/) {
  return {facts.text, scriptLine(facts.line)};
}

EventWords of(const event::ConsoleLine &facts, const Place & /*place*/) {
  return {facts.text, "console"};
}

EventWords of(const event::Remark &facts, const Place & /*place*/) {
  return {facts.text, ""};
}

EventWords of(const event::AsExpected &facts, const Place & /*place*/) {
  return {"as expected: " + facts.text, scriptLine(facts.line)};
}

EventWords of(const event::NotAsExpected &facts, const Place & /*place*/) {
  return {"NOT as expected: " + facts.text, facts.found, Tone::Bad};
}

EventWords of(const event::NoEffect &facts, const Place & /*place*/) {
  return {whatIsNot(facts), whyNot(facts)};
}

EventWords of(const event::ModulePrint &facts, const Place & /*place*/) {
  return {facts.text, "", Tone::Faint};
}

EventWords of(const event::ModuleDebug &facts, const Place & /*place*/) {
  return {facts.text, "", Tone::Faint};
}

}  // namespace chassis::words
