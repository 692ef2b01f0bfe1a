// What a script says must be so: checked against what the module has found, at once or until it
// comes true in time.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "command/Script.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

namespace chassis {

// An expectation that did not come true. The text names the line, what was expected and what is.
class Unexpected : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Texts that expectState and the alarm expectations take.
std::vector<std::string> stateNames();
std::vector<std::string> alarmNames();

// What is, by a snapshot, instead of what the call expects, such as `program 102 is "descrambled"`;
// nothing when it is so. For Function::differs.
std::optional<std::string> stateDiffers(const Snapshot &snapshot, const Values &values);
std::optional<std::string> alarmDiffers(const Snapshot &snapshot, const Values &values);
std::optional<std::string> noAlarmDiffers(const Snapshot &snapshot, const Values &values);
std::optional<std::string> resetDiffers(const Snapshot &snapshot, const Values &values);

class Expectations {
 public:
  // Chassis and watch outlive it.
  Expectations(Chassis &chassis, const StatusWatch &watch) : chassis_(chassis), watch_(watch) {}

  // All are judged by what is known at that time: a program by what the last check of its card
  // found, alarms and resets as they are. Nobody looks at the card for it.
  // Without a time it is judged at once, before the script goes on; with one from now on until the
  // time is over, and what a check finds at that very moment counts. script: of the call, to name
  // it.
  void expect(const Script &script, const Call &call, std::uint64_t nowMs);

  // Looks at all that have not come true, a few times a second and when the time of one is over.
  // One that comes true is told in the timeline; throws Unexpected for those that did not in time.
  void review(std::uint64_t nowMs);

  // The run is over before this call, so what it expects has not come true.
  void miss(const Script &script, const Call &call);

  // The run is over: looks at all that are left, whatever time they still had. Throws Unexpected.
  void close();

  bool pending() const { return !pending_.empty(); }

 private:
  struct Pending {
    std::string at;  // FILE:LINE
    std::size_t line;
    std::string text;
    const Function *function;
    Values values;
    std::uint64_t untilMs;
  };
  bool isOver(const Pending &expectation, std::uint64_t nowMs);
  bool holds(const Pending &expectation, bool last, const std::string &when);
  void fail(const Pending &expectation, const std::string &differs);
  static Pending pendingOf(const Script &script, const Call &call, std::uint64_t untilMs);
  void tellFailed();

  Chassis &chassis_;
  const StatusWatch &watch_;
  std::vector<Pending> pending_;
  std::vector<std::string> failed_;  // in this review
};

}  // namespace chassis
