#include "status/Changes.h"

#include <algorithm>

#include "base/ProgramText.h"
#include "base/Text.h"
#include "status/FieldWords.h"
#include "status/Verdict.h"

namespace chassis {
namespace {

struct Field {
  const char *name;
  std::uint16_t (*value)(const CamFinding &);
  const FieldWords &(*words)(const CamFinding &);
};

const Field camFields[] = {
    {"camInsert", [](const CamFinding &c) -> std::uint16_t { return c.insert; },
     [](const CamFinding &c) -> const FieldWords & { return insertWords(c.insert); }},
    {"casidStat", [](const CamFinding &c) { return c.casid; }, caSystemWords},
    {"preCamPidStat", [](const CamFinding &c) -> std::uint16_t { return c.caPids; },
     [](const CamFinding &c) -> const FieldWords & { return caPidWords(c.caPids); }},
    {"descStat", [](const CamFinding &c) -> std::uint16_t { return c.descrambling; },
     descramblingWords},
};
const Field &summaryField = camFields[3];

// What is said of a value can change while the value stays.
bool changed(const Field &field, const CamFinding &before, const CamFinding &now) {
  return field.value(before) != field.value(now) ||
         field.words(before).text != field.words(now).text;
}

Fact factOf(const Field &field, const CamFinding &cam) {
  return {field.name, std::uint64_t{field.value(cam)}};
}

void addControllerChange(const CardFinding &before, const CardFinding &now,
                         std::vector<Event> &changes) {
  if (before.controller == now.controller) {
    return;
  }
  const FieldWords &words = controllerWords(now.controller);
  changes.push_back({EventKind::ControllerState,
                     {static_cast<int>(now.slot), -1},
                     words.text,
                     "cimaxStat " + hexText(now.controller),
                     {{"cimaxStat", std::uint64_t{now.controller}}},
                     words.tone});
}

// A summary that changed alone is told with the programs that changed it.
bool onlySummaryChanged(const CamFinding &before, const CamFinding &now) {
  return std::all_of(std::begin(camFields), std::end(camFields), [&](const Field &field) {
    return changed(field, before, now) == (&field == &summaryField);
  });
}

bool foldedIntoPrograms(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                        std::vector<Event> &programChanges) {
  const auto isOfCam = [camSlot](const Event &change) {
    return change.place.cam == static_cast<int>(camSlot);
  };
  const auto last = std::find_if(programChanges.rbegin(), programChanges.rend(), isOfCam);
  const CamFinding &cam = now.cams[camSlot];
  if (!onlySummaryChanged(before.cams[camSlot], cam) || last == programChanges.rend()) {
    return false;
  }
  const FieldWords &words = descramblingWords(cam);
  last->why += (last->why.empty() ? "" : "; ") + std::string(words.text) + " (descStat " +
               hexText(cam.descrambling) + ")";
  last->facts.push_back(factOf(summaryField, cam));
  return true;
}

// The CI library tells that a CAM starts up.
bool onlyStartsUp(const CamFinding &before, const CamFinding &now) {
  constexpr std::uint8_t startingUp = 2;
  return now.insert == startingUp && now.casid == before.casid && now.caPids == before.caPids &&
         now.descrambling == before.descrambling;
}

// Fields that are no longer checked share one word, since they fall away together.
void addCamChange(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                  std::vector<Event> &changes) {
  std::vector<std::string> what;
  std::vector<std::string> why;
  std::vector<Fact> facts;
  bool lapsed = false;
  Tone tone = Tone::Plain;
  for (const Field &field : camFields) {
    if (!changed(field, before.cams[camSlot], now.cams[camSlot])) {
      continue;
    }
    const std::uint16_t value = field.value(now.cams[camSlot]);
    why.push_back(field.name + (" " + hexText(value)));
    facts.push_back(factOf(field, now.cams[camSlot]));
    if (value == fieldNotChecked) {
      lapsed = true;
      continue;
    }
    const FieldWords &words = field.words(now.cams[camSlot]);
    what.push_back(words.text);
    tone = words.tone == Tone::Plain ? tone : words.tone;
  }
  if (lapsed) {
    what.push_back(what.empty() ? "not checked any more" : "the rest not checked");
  }
  if (!what.empty()) {
    changes.push_back({EventKind::CamState,
                       {static_cast<int>(now.slot), static_cast<int>(camSlot)},
                       joined(what, ", "),
                       joined(why, ", "),
                       facts,
                       tone});
  }
}

struct ProgramState {
  std::uint8_t status = DESC_STAT_UNKNOWN;
  std::vector<std::uint16_t> pids;  // empty: all of them
  std::string state;
  std::string cause;
  std::string note;
  std::string evidence;
  Tone tone = Tone::Plain;
  bool operator==(const ProgramState &other) const {
    return pids == other.pids && state == other.state && cause == other.cause;
  }
};

const PidFinding *worstPid(const ProgramFinding &program) {
  const auto isWorst = [&program](const PidFinding &pid) { return pid.status == program.status; };
  const auto found = std::find_if(program.pids.begin(), program.pids.end(), isWorst);
  return found == program.pids.end() ? nullptr : &*found;
}

std::string evidenceOf(const ProgramFinding &program, const Verdict &verdict, std::uint64_t nowMs) {
  const PidFinding *pid = worstPid(program);
  if (program.status == DESC_STAT_OK) {
    return verdict.note.empty() ? "clear behind the CAM" : "";
  }
  if (program.status == DESC_STAT_UNKNOWN || pid == nullptr) {
    return "";
  }
  return evidenceText(*pid, nowMs);
}

ProgramState stateOf(const ProgramFinding &program, std::uint64_t nowMs) {
  const Verdict verdict = verdictOf(program);
  ProgramState state;
  state.status = program.status;
  for (const PidFinding &pid : program.pids) {
    if (pid.status == program.status) {
      state.pids.push_back(pid.pid);
    }
  }
  if (state.pids.size() == program.pids.size()) {
    state.pids.clear();
  }
  state.state = verdict.state;
  state.cause = verdict.cause;
  state.note = verdict.note;
  state.evidence = evidenceOf(program, verdict, nowMs);
  state.tone = verdict.tone;
  return state;
}

const ProgramFinding *findProgram(const CardFinding &card, std::uint16_t number) {
  for (const ProgramFinding &program : card.programs) {
    if (program.number == number) {
      return &program;
    }
  }
  return nullptr;
}

struct ProgramGroup {
  std::uint8_t camMask;
  ProgramState state;
  std::vector<std::uint16_t> programs;
  std::vector<std::string> names;  // theirs
};

void addToGroup(const ProgramFinding &program, const ProgramState &state,
                std::vector<ProgramGroup> &groups) {
  const auto fits = [&](const ProgramGroup &group) {
    return group.camMask == program.camMask && group.state == state && state.pids.empty();
  };
  auto group = std::find_if(groups.begin(), groups.end(), fits);
  if (group == groups.end()) {
    group = groups.insert(group, {program.camMask, state, {}, {}});
  } else if (group->state.evidence != state.evidence) {
    group->state.evidence += "; " + state.evidence;
  }
  group->programs.push_back(program.number);
  group->names.push_back(program.service.name);
}

// Programs of a group share the note.
std::string reasonOf(const ProgramState &state) {
  const bool both = !state.note.empty() && !state.evidence.empty();
  return state.note + (both ? "; " : "") + state.evidence;
}

std::string wordsOf(const ProgramGroup &group) {
  std::string words = programsText(group.programs, group.names);
  for (const std::uint16_t pid : group.state.pids) {
    words += (pid == group.state.pids.front() ? " PID " : " ") + hexText(pid);
  }
  const std::string &cause = group.state.cause;
  return words + " " + group.state.state + (cause.empty() ? "" : ", cause: " + cause);
}

bool anyNamed(const ProgramGroup &group) {
  return std::any_of(group.names.begin(), group.names.end(),
                     [](const std::string &name) { return !name.empty(); });
}

std::vector<Fact> factsOf(const ProgramGroup &group) {
  std::vector<Fact> facts{{"programs", group.programs},
                          {"status", std::uint64_t{group.state.status}},
                          {"state", group.state.state}};
  if (anyNamed(group)) {
    facts.push_back({"names", group.names});
  }
  if (!group.state.cause.empty()) {
    facts.push_back({"cause", group.state.cause});
  }
  if (!group.state.pids.empty()) {
    facts.push_back({"pids", group.state.pids});
  }
  return facts;
}

Event groupChange(std::uint32_t slot, const ProgramGroup &group) {
  const int camSlot = group.camMask == 1 ? 0 : group.camMask == 2 ? 1 : -1;
  return {EventKind::ProgramState, {static_cast<int>(slot), camSlot},
          wordsOf(group),          reasonOf(group.state),
          factsOf(group),          group.state.tone};
}

// A CAM that is not checked any more says so for its programs too.
bool lapsedWithCams(const ProgramFinding &program, const CardFinding &card) {
  if (program.probe != ProbeState::None && program.probe != ProbeState::Judged) {
    return program.probe == ProbeState::Learning;
  }
  for (std::size_t camSlot = 0; camSlot < card.cams.size(); ++camSlot) {
    const bool own = (program.camMask >> camSlot & 1) != 0;
    if (own && card.cams[camSlot].descrambling != fieldNotChecked) {
      return false;
    }
  }
  return program.status == DESC_STAT_UNKNOWN;
}

void addProgramChanges(const CardFinding &before, const CardFinding &now,
                       std::vector<Event> &changes) {
  std::vector<ProgramGroup> groups;
  for (const ProgramFinding &program : now.programs) {
    const ProgramFinding *old = findProgram(before, program.number);
    const ProgramState state = stateOf(program, now.takenMs);
    const ProgramState oldState = stateOf(old == nullptr ? ProgramFinding{} : *old, before.takenMs);
    const bool told = !isSupervised(program) || lapsedWithCams(program, now);
    if (!(state == oldState) && !told) {
      addToGroup(program, state, groups);
    }
  }
  for (const ProgramGroup &group : groups) {
    changes.push_back(groupChange(now.slot, group));
  }
}

}  // namespace

std::vector<Event> changesBetween(const CardFinding &before, const CardFinding &now) {
  std::vector<Event> changes;
  addControllerChange(before, now, changes);
  std::vector<Event> programChanges;
  addProgramChanges(before, now, programChanges);
  for (std::size_t camSlot = 0; camSlot < now.cams.size(); ++camSlot) {
    const bool toldElsewhere = onlyStartsUp(before.cams[camSlot], now.cams[camSlot]) ||
                               foldedIntoPrograms(before, now, camSlot, programChanges);
    if (!toldElsewhere) {
      addCamChange(before, now, camSlot, changes);
    }
  }
  changes.insert(changes.end(), programChanges.begin(), programChanges.end());
  return changes;
}

}  // namespace chassis
