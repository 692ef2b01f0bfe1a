#include "status/CheckWords.h"

#include "base/ProgramText.h"
#include "base/Text.h"
#include "status/FieldWords.h"
#include "status/Verdict.h"

namespace chassis::words {
namespace {

struct ChangedField {
  const char *name;
  std::uint16_t value;
  const FieldWords &words;
};

std::vector<ChangedField> fieldsOf(const event::CamState &facts) {
  std::vector<ChangedField> fields;
  if (facts.camInsert) {
    fields.push_back({"camInsert", *facts.camInsert, insertWords(*facts.camInsert)});
  }
  if (facts.caSystem) {
    fields.push_back({"casidStat", facts.caSystem->casidStat, caSystemWords(*facts.caSystem)});
  }
  if (facts.preCamPidStat) {
    fields.push_back({"preCamPidStat", *facts.preCamPidStat, caPidWords(*facts.preCamPidStat)});
  }
  if (facts.summary) {
    fields.push_back({"descStat", facts.summary->descStat, descramblingWords(*facts.summary)});
  }
  return fields;
}

std::string clausesOf(const event::ProgramState &facts, const Verdict &verdict) {
  std::vector<std::string> clauses;
  for (const std::string &clause : {verdict.note, facts.evidence}) {
    if (!clause.empty()) {
      clauses.push_back(clause);
    }
  }
  if (facts.summary) {
    clauses.push_back(descramblingWords(*facts.summary).text +
                      (" (descStat " + hexText(facts.summary->descStat) + ")"));
  }
  return joined(clauses, "; ");
}

std::string pidsText(const std::vector<std::uint16_t> &pids) {
  std::string text;
  for (const std::uint16_t pid : pids) {
    text += (text.empty() ? " PID " : " ") + hexText(pid);
  }
  return text;
}

}  // namespace

EventWords of(const event::ControllerState &facts, const Place & /*place*/) {
  const FieldWords &words = controllerWords(facts.cimaxStat);
  return {words.text, "cimaxStat " + hexText(facts.cimaxStat), words.tone};
}

// Fields that are no longer checked share one word, since they fall away together.
EventWords of(const event::CamState &facts, const Place & /*place*/) {
  std::vector<std::string> what;
  std::vector<std::string> why;
  bool lapsed = false;
  Tone tone = Tone::Plain;
  for (const ChangedField &field : fieldsOf(facts)) {
    why.push_back(field.name + (" " + hexText(field.value)));
    if (field.value == fieldNotChecked) {
      lapsed = true;
      continue;
    }
    what.push_back(field.words.text);
    tone = field.words.tone == Tone::Plain ? tone : field.words.tone;
  }
  if (lapsed) {
    what.push_back(what.empty() ? "not checked any more" : "the rest not checked");
  }
  return {joined(what), joined(why), tone};
}

EventWords of(const event::ProgramState &facts, const Place & /*place*/) {
  const Verdict verdict = verdictOf(facts.status, facts.reading, facts.caPmtAgeMs);
  return {programsText(facts.programs.numbers(), facts.programs.names()) + pidsText(facts.pids) +
              " " + facts.state + (facts.cause.empty() ? "" : ", cause: " + facts.cause),
          clausesOf(facts, verdict), verdict.tone};
}

EventWords of(const event::AlarmRaised &facts, const Place & /*place*/) {
  return {"ALARM raised: " + facts.alarm.fault,
          "alarm " + std::to_string(facts.index) + ", identifiers " + facts.alarm.identifiers,
          Tone::Alarm};
}

EventWords of(const event::AlarmCleared &facts, const Place & /*place*/) {
  return {"ALARM cleared: " + facts.alarm.fault,
          "alarm " + std::to_string(facts.index) + ", stood for " + secondsText(facts.stoodMs)};
}

EventWords of(const event::AlarmNotRaised &facts, const Place & /*place*/) {
  return {"ALARM not raised: " + facts.fault, "the alarm service fails", Tone::Alarm};
}

EventWords of(const event::AlarmNotCleared &facts, const Place & /*place*/) {
  return {"ALARM not cleared: " + facts.fault, "the alarm service fails", Tone::Alarm};
}

}  // namespace chassis::words
