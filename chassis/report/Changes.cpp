#include "report/Changes.h"

#include <algorithm>
#include <iterator>

#include "Text.h"

namespace chassis {
namespace {

constexpr std::uint16_t notChecked = 0xFF;

struct FieldWords {
  std::uint16_t value;
  const char *text;
  Tone tone;
};

const FieldWords controllerWords[] = {
    {0, "CI controller in sync and carrying traffic", Tone::Plain},
    {1, "CI controller out of sync or rate too low", Tone::Bad},
    {notChecked, "CI controller not checked", Tone::Faint},
};
const FieldWords insertWords[] = {
    {0, "no CAM", Tone::Bad},
    {1, "CAM usable", Tone::Plain},
    {2, "CAM starting up", Tone::Plain},
};
const FieldWords casidWords[] = {
    {0, "supports no CA system of its programs", Tone::Bad},
    {1, "CA system supported", Tone::Plain},
};
const FieldWords caPidWords[] = {
    {0, "CA PIDs present", Tone::Plain},
    {1, "no CA PID before the CAM", Tone::Bad},
};
const FieldWords descramblingWords[] = {
    {DESC_SUM_OK, "all PIDs descrambled", Tone::Good},
    {DESC_SUM_PART, "some PIDs not descrambled, causes known", Tone::Bad},
    {DESC_SUM_PART | DESC_SUM_SCRAMBLED, "some PIDs not descrambled", Tone::Bad},
    {DESC_SUM_ALL, "no PID descrambled, causes known", Tone::Bad},
    {DESC_SUM_ALL | DESC_SUM_SCRAMBLED, "no PID descrambled", Tone::Bad},
};

struct Field {
  const char *name;
  std::uint16_t (*value)(const CamFinding &);
  const FieldWords *words;
  std::size_t count;
};

const Field camFields[] = {
    {"camInsert", [](const CamFinding &c) -> std::uint16_t { return c.insert; }, insertWords,
     std::size(insertWords)},
    {"casidStat", [](const CamFinding &c) { return c.casid; }, casidWords, std::size(casidWords)},
    {"preCamPidStat", [](const CamFinding &c) -> std::uint16_t { return c.caPids; }, caPidWords,
     std::size(caPidWords)},
    {"descStat", [](const CamFinding &c) -> std::uint16_t { return c.descrambling; },
     descramblingWords, std::size(descramblingWords)},
};

const FieldWords &wordsOf(const FieldWords *words, std::size_t count, std::uint16_t value) {
  static const FieldWords unknown{0, "in a state without a name", Tone::Bad};
  const auto hasValue = [value](const FieldWords &entry) { return entry.value == value; };
  const FieldWords *found = std::find_if(words, words + count, hasValue);
  return found == words + count ? unknown : *found;
}

void addControllerChange(const CardFinding &before, const CardFinding &now,
                         std::vector<Change> &changes) {
  if (before.controller == now.controller) {
    return;
  }
  const FieldWords &words = wordsOf(controllerWords, std::size(controllerWords), now.controller);
  changes.push_back({{static_cast<int>(now.slot), -1},
                     words.text,
                     "cimaxStat " + hexText(now.controller),
                     words.tone});
}

// Fields that are no longer checked share one word, since they fall away together.
// A summary that changed alone is told with the programs that changed it.
bool onlySummaryChanged(const CamFinding &before, const CamFinding &now) {
  return before.insert == now.insert && before.casid == now.casid && before.caPids == now.caPids &&
         before.descrambling != now.descrambling;
}

bool foldedIntoPrograms(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                        std::vector<Change> &programChanges) {
  const auto isOfCam = [camSlot](const Change &change) {
    return change.place.cam == static_cast<int>(camSlot);
  };
  const auto last = std::find_if(programChanges.rbegin(), programChanges.rend(), isOfCam);
  const CamFinding &cam = now.cams[camSlot];
  if (!onlySummaryChanged(before.cams[camSlot], cam) || last == programChanges.rend()) {
    return false;
  }
  const FieldWords &words =
      wordsOf(descramblingWords, std::size(descramblingWords), cam.descrambling);
  last->why += (last->why.empty() ? "" : "; ") + std::string(words.text) + " (descStat " +
               hexText(cam.descrambling) + ")";
  return true;
}

void addCamChange(const CardFinding &before, const CardFinding &now, std::size_t camSlot,
                  std::vector<Change> &changes) {
  std::vector<std::string> what;
  std::vector<std::string> why;
  bool lapsed = false;
  Tone tone = Tone::Plain;
  for (const Field &field : camFields) {
    const std::uint16_t value = field.value(now.cams[camSlot]);
    if (value == field.value(before.cams[camSlot])) {
      continue;
    }
    why.push_back(field.name + (" " + hexText(value)));
    if (value == notChecked) {
      lapsed = true;
      continue;
    }
    const FieldWords &words = wordsOf(field.words, field.count, value);
    what.push_back(words.text);
    tone = words.tone == Tone::Plain ? tone : words.tone;
  }
  if (lapsed) {
    what.push_back(what.empty() ? "not checked any more" : "the rest not checked");
  }
  if (!what.empty()) {
    changes.push_back({{static_cast<int>(now.slot), static_cast<int>(camSlot)},
                       joined(what, ", "),
                       joined(why, ", "),
                       tone});
  }
}

struct ProgramState {
  std::string pids;  // empty: all of them
  std::string state;
  std::string evidence;
  bool operator==(const ProgramState &other) const {
    return pids == other.pids && state == other.state;
  }
};

const PidFinding *worstPid(const ProgramFinding &program) {
  const auto isWorst = [&program](const PidFinding &pid) { return pid.status == program.status; };
  const auto found = std::find_if(program.pids.begin(), program.pids.end(), isWorst);
  return found == program.pids.end() ? nullptr : &*found;
}

std::string evidenceOf(const ProgramFinding &program, std::uint64_t nowMs) {
  const PidFinding *pid = worstPid(program);
  if (program.status == DESC_STAT_OK) {
    return "clear behind the CAM";
  }
  if (program.status == DESC_STAT_UNKNOWN || pid == nullptr) {
    return "";
  }
  return evidenceText(*pid, nowMs);
}

ProgramState stateOf(const ProgramFinding &program, std::uint64_t nowMs) {
  const StatusWords &words = statusWords(program.status);
  ProgramState state;
  std::vector<std::string> affected;
  for (const PidFinding &pid : program.pids) {
    if (pid.status == program.status) {
      affected.push_back(hexText(pid.pid));
    }
  }
  if (affected.size() < program.pids.size()) {
    state.pids = joined(affected, " ");
  }
  state.state = words.state;
  if (*words.cause != '\0') {
    state.state += std::string(", cause: ") + words.cause;
  }
  state.evidence = evidenceOf(program, nowMs);
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
  Tone tone;
  std::vector<std::string> programs;
};

void addToGroup(const ProgramFinding &program, const ProgramState &state,
                std::vector<ProgramGroup> &groups) {
  const auto fits = [&](const ProgramGroup &group) {
    return group.camMask == program.camMask && group.state == state &&
           group.state.evidence == state.evidence && state.pids.empty();
  };
  auto group = std::find_if(groups.begin(), groups.end(), fits);
  if (group == groups.end()) {
    group = groups.insert(group, {program.camMask, state, statusWords(program.status).tone, {}});
  }
  group->programs.push_back(std::to_string(program.number));
}

Change groupChange(std::uint32_t slot, const ProgramGroup &group) {
  const int camSlot = group.camMask == 1 ? 0 : group.camMask == 2 ? 1 : -1;
  std::string what = group.programs.size() == 1 ? "program " : "programs ";
  what += joined(group.programs, ", ");
  if (!group.state.pids.empty()) {
    what += " PID " + group.state.pids;
  }
  return {{static_cast<int>(slot), camSlot},
          what + " " + group.state.state,
          group.state.evidence,
          group.tone};
}

void addProgramChanges(const CardFinding &before, const CardFinding &now,
                       std::vector<Change> &changes) {
  std::vector<ProgramGroup> groups;
  for (const ProgramFinding &program : now.programs) {
    const ProgramFinding *old = findProgram(before, program.number);
    const ProgramState state = stateOf(program, now.takenMs);
    const ProgramState oldState = stateOf(old == nullptr ? ProgramFinding{} : *old, before.takenMs);
    if (!(state == oldState) && program.camMask != 0) {
      addToGroup(program, state, groups);
    }
  }
  for (const ProgramGroup &group : groups) {
    changes.push_back(groupChange(now.slot, group));
  }
}

}  // namespace

std::vector<Change> changesBetween(const CardFinding &before, const CardFinding &now) {
  std::vector<Change> changes;
  addControllerChange(before, now, changes);
  std::vector<Change> programChanges;
  addProgramChanges(before, now, programChanges);
  for (std::size_t camSlot = 0; camSlot < now.cams.size(); ++camSlot) {
    if (!foldedIntoPrograms(before, now, camSlot, programChanges)) {
      addCamChange(before, now, camSlot, changes);
    }
  }
  changes.insert(changes.end(), programChanges.begin(), programChanges.end());
  return changes;
}

}  // namespace chassis
