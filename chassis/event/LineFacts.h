// What is known of each event of the first group: what a person or a script does, and says, and
// what the module prints. A kind has a type of its own, whose members are its facts; each() calls
// with the name that a fact has for programs (docs/events.schema.json) and its value, for those
// that there are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "event/EventKind.h"
#include "event/Programs.h"

namespace chassis::event {

// A line that was run, as it was written.
struct ScriptLine {
  static constexpr EventKind kind = EventKind::ScriptLine;
  std::string text;
  std::uint64_t line = 0;  // of the script, from 1
  template <typename To>
  void each(To to) const {
    to("text", text);
    to("line", line);
  }
};

struct Text {
  std::string text;
  template <typename To>
  void each(To to) const {
    to("text", text);
  }
};

struct ConsoleLine : Text {
  static constexpr EventKind kind = EventKind::ConsoleLine;
};
struct Remark : Text {
  static constexpr EventKind kind = EventKind::Remark;
};
struct ModulePrint : Text {
  static constexpr EventKind kind = EventKind::ModulePrint;
};
struct ModuleDebug : Text {
  static constexpr EventKind kind = EventKind::ModuleDebug;
};

struct AsExpected {
  static constexpr EventKind kind = EventKind::AsExpected;
  std::string text;        // what was expected, as the script has it
  std::uint64_t line = 0;  // of the script, from 1
  template <typename To>
  void each(To to) const {
    to("text", text);
    to("line", line);
  }
};

struct NotAsExpected {
  static constexpr EventKind kind = EventKind::NotAsExpected;
  std::string text;
  std::uint64_t line = 0;
  std::string found;  // what is instead
  template <typename To>
  void each(To to) const {
    to("text", text);
    to("line", line);
    to("found", found);
  }
};

enum class NoEffectReason : std::uint8_t {
  ProgramNotInStream,  // yet
  NotAssigned,         // the program, to this CAM
  PidNotInStream,
  NotJudged  // the programs do not go into the receiver that is judged
};
const char *nameOf(NoEffectReason reason);

struct NoEffect {
  static constexpr EventKind kind = EventKind::NoEffect;
  NoEffectReason reason = NoEffectReason::ProgramNotInStream;
  Programs programs;
  std::vector<std::uint16_t> pids;     // PidNotInStream: instead of programs
  std::vector<std::uint16_t> carried;  // NotJudged: the programs that go in
  template <typename To>
  void each(To to) const {
    to("reason", nameOf(reason));
    if (reason == NoEffectReason::PidNotInStream) {
      to("pids", pids);
      return;
    }
    programs.each(to);
    if (reason == NoEffectReason::NotJudged) {
      to("carried", carried);
    }
  }
};

}  // namespace chassis::event
