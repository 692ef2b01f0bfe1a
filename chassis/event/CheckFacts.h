// What is known of each event of a check of the module: states that have changed, and alarms (as
// LineFacts.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "event/EventKind.h"
#include "event/Programs.h"

namespace chassis::event {

struct ControllerState {
  static constexpr EventKind kind = EventKind::ControllerState;
  std::uint16_t cimaxStat = 0;
  template <typename To>
  void each(To to) const {
    to("cimaxStat", cimaxStat);
  }
};

// descStat of a CAM; mayBegin: what is not descrambled may only not be so yet.
struct Summary {
  std::uint16_t descStat = 0;
  bool mayBegin = false;
  template <typename To>
  void each(To to) const {
    to("descStat", descStat);
    to("may_begin", mayBegin);
  }
};

// casidStat of a CAM; clearOnly: none of its programs has a CA descriptor.
struct CaSystemState {
  std::uint16_t casidStat = 0;
  bool clearOnly = false;
  template <typename To>
  void each(To to) const {
    to("casidStat", casidStat);
    to("clear_only", clearOnly);
  }
};

// Those fields of a CAM that have changed.
struct CamState {
  static constexpr EventKind kind = EventKind::CamState;
  std::optional<std::uint16_t> camInsert = std::nullopt;
  std::optional<CaSystemState> caSystem = std::nullopt;
  std::optional<std::uint16_t> preCamPidStat = std::nullopt;
  std::optional<Summary> summary = std::nullopt;
  bool any() const { return camInsert || caSystem || preCamPidStat || summary; }
  template <typename To>
  void each(To to) const {
    if (camInsert) {
      to("camInsert", *camInsert);
    }
    if (caSystem) {
      caSystem->each(to);
    }
    if (preCamPidStat) {
      to("preCamPidStat", *preCamPidStat);
    }
    if (summary) {
      summary->each(to);
    }
  }
};

// How a program's status is to be read.
enum class Reading : std::uint8_t {
  Measured,        // as it is
  Clear,           // nothing to measure: the program has no CA descriptors
  WithoutPackets,  // descrambled counts what does not flow
  NotYet,          // not descrambled, but the last CA PMT is young
  // Of a receiver that is judged: nothing is measured.
  Learning,  // what comes out
  MissingBehind,
  NothingBehind,
  SilentBefore,
  SilentBehind,
  SilentBoth
};
constexpr std::size_t readings = static_cast<std::size_t>(Reading::SilentBoth) + 1;
const char *nameOf(Reading reading);

// Programs that share a state that is new to them.
struct ProgramState {
  static constexpr EventKind kind = EventKind::ProgramState;
  Programs programs;
  std::uint8_t status = 0;  // DESC_STAT_
  Reading reading = Reading::Measured;
  std::string state;
  std::string cause;                                       // empty where there is none
  std::vector<std::uint16_t> pids;                         // that are in that state; empty: all
  std::optional<std::uint64_t> caPmtAgeMs = std::nullopt;  // NotYet
  std::string evidence;                                    // clauses; empty: none
  std::optional<Summary> summary = std::nullopt;  // of their CAM, which only they have changed
  template <typename To>
  void each(To to) const {
    programs.each(to);
    to("status", status);
    to("reading", nameOf(reading));
    to("state", state);
    tell(to, "cause", cause);
    tell(to, "pids", pids);
    if (caPmtAgeMs) {
      to("ca_pmt_age_ms", *caPmtAgeMs);
    }
    tell(to, "evidence", evidence);
    if (summary) {
      summary->each(to);
    }
  }

 private:
  template <typename To, typename Value>
  static void tell(To to, const char *name, const Value &value) {
    if (!value.empty()) {
      to(name, value);
    }
  }
};

// What the alarm's record says, in words.
struct Alarm {
  std::string object;
  std::string fault;
  std::string identifiers;  // with their instances
  template <typename To>
  void each(To to) const {
    to("object", object);
    to("fault", fault);
    to("identifiers", identifiers);
  }
};

struct AlarmRaised {
  static constexpr EventKind kind = EventKind::AlarmRaised;
  Alarm alarm;
  std::int32_t index = 0;
  template <typename To>
  void each(To to) const {
    alarm.each(to);
    to("alarm", index);
  }
};

struct AlarmCleared {
  static constexpr EventKind kind = EventKind::AlarmCleared;
  Alarm alarm;
  std::int32_t index = 0;
  std::uint64_t stoodMs = 0;
  template <typename To>
  void each(To to) const {
    alarm.each(to);
    to("alarm", index);
    to("stood_ms", stoodMs);
  }
};

struct AlarmNotRaised : Alarm {
  static constexpr EventKind kind = EventKind::AlarmNotRaised;
};
struct AlarmNotCleared : Alarm {
  static constexpr EventKind kind = EventKind::AlarmNotCleared;
};

}  // namespace chassis::event
