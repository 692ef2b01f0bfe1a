#include "command/Expectations.h"

#include <algorithm>
#include <utility>

#include "alarms/AlarmText.h"
#include "base/ProgramText.h"
#include "base/Text.h"
#include "status/Verdict.h"
#include "status/Words.h"

namespace chassis {
namespace {

constexpr std::uint64_t lookEveryMs = 100;  // the module itself looks once a second

std::string quoted(const std::string &text) {
  return "\"" + text + "\"";
}

std::uint32_t slotOf(const Values &values) {
  return static_cast<std::uint32_t>(values[0].number);
}

int camOf(const Values &values) {
  return static_cast<int>(values[1].number);
}

std::string camName(const Values &values) {
  return "CAM " + std::to_string(values[1].number) + " of slot " + std::to_string(values[0].number);
}

const ProgramFinding *programIn(const CardFinding &card, std::uint64_t number) {
  const auto wanted = [number](const ProgramFinding &program) { return program.number == number; };
  const auto found = std::find_if(card.programs.begin(), card.programs.end(), wanted);
  return found == card.programs.end() ? nullptr : &*found;
}

std::string nameOf(const StatusWords &words) {
  return *words.cause == '\0' ? quoted(words.state)
                              : quoted(words.state) + ", " + quoted(words.cause);
}

// The faults of the alarms that stand for a CAM, the card's own among them.
std::vector<std::string> standingFor(const Snapshot &snapshot, const Values &values) {
  std::vector<std::string> faults;
  for (const AlarmService::Alarm &alarm : snapshot.alarms) {
    const bool ofCard = alarm.place.slot == static_cast<int>(slotOf(values));
    if (ofCard && (alarm.place.cam < 0 || alarm.place.cam == camOf(values))) {
      faults.push_back(alarmFault(alarm.record));
    }
  }
  return faults;
}

bool stands(const std::vector<std::string> &faults, const std::string &fault) {
  return std::find(faults.begin(), faults.end(), fault) != faults.end();
}

std::string standingText(const std::vector<std::string> &faults, const Values &values) {
  std::string text;
  for (const std::string &fault : faults) {
    text += (text.empty() ? "" : ", ") + quoted(fault);
  }
  return camName(values) + " has " + (text.empty() ? "no alarm" : "the alarms " + text);
}

// The time of an expectation is its last parameter, which may be left out.
std::uint64_t timeOf(const Function &function, const Values &values) {
  return values.size() == function.params.size() ? values.back().number : 0;
}

}  // namespace

std::vector<std::string> stateNames() {
  std::vector<std::string> names;
  for (const StatusWords &words : allStatusWords()) {
    for (const std::string name : {words.state, words.cause}) {
      if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
      }
    }
  }
  const std::vector<std::string> probed = probeStates();
  names.insert(names.end(), probed.begin(), probed.end());
  return names;
}

std::vector<std::string> alarmNames() {
  return alarmFaults();
}

std::optional<std::string> stateDiffers(const Snapshot &snapshot, const Values &values) {
  const auto &card = snapshot.cards[slotOf(values)];
  const ProgramFinding *program = card ? programIn(*card, values[1].number) : nullptr;
  const std::string name = programText(static_cast<std::uint16_t>(values[1].number),
                                       program == nullptr ? "" : program->service.name) +
                           " of slot " + std::to_string(values[0].number);
  if (program == nullptr) {
    return name + " is not in the stream";
  }
  if (!isMeasured(*program)) {
    const std::string state = verdictOf(*program).state;
    return values[2].text == state ? std::nullopt : std::optional(name + " is \"" + state + "\"");
  }
  const StatusWords &words = statusWords(program->status);
  const bool asExpected = values[2].text == words.state || values[2].text == words.cause;
  return asExpected ? std::nullopt : std::optional(name + " is " + nameOf(words));
}

std::optional<std::string> alarmDiffers(const Snapshot &snapshot, const Values &values) {
  const std::vector<std::string> faults = standingFor(snapshot, values);
  return stands(faults, values[2].text) ? std::nullopt
                                        : std::optional(standingText(faults, values));
}

std::optional<std::string> noAlarmDiffers(const Snapshot &snapshot, const Values &values) {
  const std::vector<std::string> faults = standingFor(snapshot, values);
  return stands(faults, values[2].text) ? std::optional(standingText(faults, values))
                                        : std::nullopt;
}

std::optional<std::string> resetDiffers(const Snapshot &snapshot, const Values &values) {
  const CiLibrary::History &history =
      snapshot.cams[slotOf(values)][static_cast<std::uint32_t>(camOf(values))].history;
  return history.resets == values[2].number
             ? std::nullopt
             : std::optional(camName(values) + " has had " +
                             countText(history.resets, "reset", "resets"));
}

Expectations::Pending Expectations::pendingOf(const Script &script, const Call &call,
                                              std::uint64_t untilMs) {
  return {atLine(script, call.line, ""), call.line, call.text, call.function, call.values, untilMs};
}

void Expectations::expect(const Script &script, const Call &call, std::uint64_t nowMs) {
  const std::uint64_t time = timeOf(*call.function, call.values);
  const Pending expectation = pendingOf(script, call, nowMs + time);
  if (time == 0) {
    holds(expectation, true, "");
  } else {
    pending_.push_back(expectation);
  }
}

void Expectations::miss(const Script &script, const Call &call) {
  fail(pendingOf(script, call, 0), "the run ends before this line");
}

bool Expectations::isOver(const Pending &expectation, std::uint64_t nowMs) {
  // What a check finds at the last moment is seen a tick later.
  const bool last = nowMs > expectation.untilMs;
  if (!last && nowMs % lookEveryMs != 0) {
    return false;
  }
  return holds(expectation, last, "") || last;
}

// One that comes true is told; one that has its last chance and does not has failed.
bool Expectations::holds(const Pending &expectation, bool last, const std::string &when) {
  const std::optional<std::string> differs =
      expectation.function->differs(*watch_.snapshot(), expectation.values);
  if (!differs) {
    chassis_.tell({placeOf(*expectation.function, expectation.values),
                   event::AsExpected{expectation.text, expectation.line}});
  } else if (last) {
    fail(expectation, *differs + when);
  }
  return !differs;
}

void Expectations::fail(const Pending &expectation, const std::string &differs) {
  chassis_.tell({placeOf(*expectation.function, expectation.values),
                 event::NotAsExpected{expectation.text, expectation.line, differs}});
  failed_.push_back(expectation.at + "expected " + expectation.text + ", but " + differs);
}

void Expectations::review(std::uint64_t nowMs) {
  const auto over = [this, nowMs](const Pending &pending) { return isOver(pending, nowMs); };
  pending_.erase(std::remove_if(pending_.begin(), pending_.end(), over), pending_.end());
  tellFailed();
}

void Expectations::close() {
  for (const Pending &expectation : std::exchange(pending_, {})) {
    holds(expectation, true, " when the run ends");
  }
  tellFailed();
}

void Expectations::tellFailed() {
  if (!failed_.empty()) {
    throw Unexpected(joined(std::exchange(failed_, {}), "\n"));
  }
}

}  // namespace chassis
