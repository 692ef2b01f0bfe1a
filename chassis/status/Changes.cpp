#include "status/Changes.h"

#include <algorithm>

#include "status/FieldWords.h"
#include "status/Verdict.h"

namespace chassis {
namespace {

struct Field {
  std::uint16_t (*value)(const CamFinding &);
  const FieldWords &(*words)(const CamFinding &);
  void (*tell)(const CamFinding &, event::CamState &);
};

const Field camFields[] = {
    {[](const CamFinding &c) -> std::uint16_t { return c.insert; },
     [](const CamFinding &c) -> const FieldWords & { return insertWords(c.insert); },
     [](const CamFinding &c, event::CamState &facts) { facts.camInsert = c.insert; }},
    {[](const CamFinding &c) { return c.casid; }, caSystemWords,
     [](const CamFinding &c, event::CamState &facts) { facts.caSystem = caSystemOf(c); }},
    {[](const CamFinding &c) -> std::uint16_t { return c.caPids; },
     [](const CamFinding &c) -> const FieldWords & { return caPidWords(c.caPids); },
     [](const CamFinding &c, event::CamState &facts) { facts.preCamPidStat = c.caPids; }},
    {[](const CamFinding &c) -> std::uint16_t { return c.descrambling; }, descramblingWords,
     [](const CamFinding &c, event::CamState &facts) { facts.summary = summaryOf(c); }},
};
const Field &summaryField = camFields[3];

// What is said of a value can change while the value stays.
bool changed(const Field &field, const CamFinding &before, const CamFinding &now) {
  return field.value(before) != field.value(now) ||
         field.words(before).text != field.words(now).text;
}

void addControllerChange(const CardFinding &before, const CardFinding &now,
                         std::vector<Event> &changes) {
  if (before.controller != now.controller) {
    changes.push_back({{static_cast<int>(now.slot), -1}, event::ControllerState{now.controller}});
  }
}

// Programs of the same CAMs.
struct ProgramGroup {
  std::uint8_t camMask;
  event::ProgramState state;
};

int camOf(const ProgramGroup &group) {
  return group.camMask == 1 ? 0 : group.camMask == 2 ? 1 : -1;
}

// A summary that changed alone is told with the programs that changed it.
bool onlySummaryChanged(const CamFinding &before, const CamFinding &now) {
  return std::all_of(std::begin(camFields), std::end(camFields), [&](const Field &field) {
    return changed(field, before, now) == (&field == &summaryField);
  });
}

bool foldedIntoPrograms(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                        std::vector<ProgramGroup> &groups) {
  const auto isOfCam = [camSlot](const ProgramGroup &group) {
    return camOf(group) == static_cast<int>(camSlot);
  };
  const auto last = std::find_if(groups.rbegin(), groups.rend(), isOfCam);
  const CamFinding &cam = now.cams[camSlot];
  if (!onlySummaryChanged(before.cams[camSlot], cam) || last == groups.rend()) {
    return false;
  }
  last->state.summary = summaryOf(cam);
  return true;
}

// The CI library tells that a CAM starts up.
bool onlyStartsUp(const CamFinding &before, const CamFinding &now) {
  constexpr std::uint8_t startingUp = 2;
  return now.insert == startingUp && now.casid == before.casid && now.caPids == before.caPids &&
         now.descrambling == before.descrambling;
}

void addCamChange(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                  std::vector<Event> &changes) {
  event::CamState facts;
  for (const Field &field : camFields) {
    if (changed(field, before.cams[camSlot], now.cams[camSlot])) {
      field.tell(now.cams[camSlot], facts);
    }
  }
  if (facts.any()) {
    changes.push_back({{static_cast<int>(now.slot), static_cast<int>(camSlot)}, facts});
  }
}

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

// Those of its PIDs that have its status; none where all have.
std::vector<std::uint16_t> decidingPids(const ProgramFinding &program) {
  std::vector<std::uint16_t> pids;
  for (const PidFinding &pid : program.pids) {
    if (pid.status == program.status) {
      pids.push_back(pid.pid);
    }
  }
  return pids.size() == program.pids.size() ? std::vector<std::uint16_t>() : pids;
}

event::ProgramState stateOf(const ProgramFinding &program, std::uint64_t nowMs) {
  const Verdict verdict = verdictOf(program);
  event::ProgramState state;
  state.status = program.status;
  state.reading = readingOf(program);
  state.state = verdict.state;
  state.cause = verdict.cause;
  state.pids = decidingPids(program);
  if (state.reading == event::Reading::NotYet) {
    state.caPmtAgeMs = program.caPmtAgeMs;
  }
  state.evidence = evidenceOf(program, verdict, nowMs);
  return state;
}

bool same(const event::ProgramState &a, const event::ProgramState &b) {
  return a.pids == b.pids && a.state == b.state && a.cause == b.cause;
}

const ProgramFinding *findProgram(const CardFinding &card, std::uint16_t number) {
  for (const ProgramFinding &program : card.programs) {
    if (program.number == number) {
      return &program;
    }
  }
  return nullptr;
}

// Those of a group share how their status is to be read.
void addToGroup(const ProgramFinding &program, const event::ProgramState &state,
                std::vector<ProgramGroup> &groups) {
  const auto fits = [&](const ProgramGroup &group) {
    return group.camMask == program.camMask && same(group.state, state) && state.pids.empty();
  };
  auto group = std::find_if(groups.begin(), groups.end(), fits);
  if (group == groups.end()) {
    group = groups.insert(group, {program.camMask, state});
  } else if (group->state.evidence != state.evidence) {
    group->state.evidence += "; " + state.evidence;
  }
  group->state.programs.add(program.number, program.service.name);
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

std::vector<ProgramGroup> changedGroups(const CardFinding &before, const CardFinding &now) {
  std::vector<ProgramGroup> groups;
  for (const ProgramFinding &program : now.programs) {
    const ProgramFinding *old = findProgram(before, program.number);
    const event::ProgramState state = stateOf(program, now.takenMs);
    const event::ProgramState oldState =
        stateOf(old == nullptr ? ProgramFinding{} : *old, before.takenMs);
    const bool told = !isSupervised(program) || lapsedWithCams(program, now);
    if (!same(state, oldState) && !told) {
      addToGroup(program, state, groups);
    }
  }
  return groups;
}

}  // namespace

std::vector<Event> changesBetween(const CardFinding &before, const CardFinding &now) {
  std::vector<Event> changes;
  addControllerChange(before, now, changes);
  std::vector<ProgramGroup> groups = changedGroups(before, now);
  for (std::size_t camSlot = 0; camSlot < now.cams.size(); ++camSlot) {
    const bool toldElsewhere = onlyStartsUp(before.cams[camSlot], now.cams[camSlot]) ||
                               foldedIntoPrograms(before, now, camSlot, groups);
    if (!toldElsewhere) {
      addCamChange(before, now, camSlot, changes);
    }
  }
  for (const ProgramGroup &group : groups) {
    changes.push_back({{static_cast<int>(now.slot), camOf(group)}, group.state});
  }
  return changes;
}

}  // namespace chassis
