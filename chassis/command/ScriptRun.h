// Runs a script against a chassis, as chassis time passes.
#pragma once

#include <cstdint>
#include <optional>

#include "command/Expectations.h"
#include "command/Script.h"
#include "supervision/Chassis.h"

namespace chassis {

class ScriptRun : public Agenda {
 public:
  // Chassis and watch outlive it.
  ScriptRun(Script script, Chassis &chassis, const StatusWatch &watch);

  const Script &script() const { return script_; }
  std::optional<std::uint64_t> nextMs() const;  // when the next line is due
  // Throws InputError or Unexpected with file and line.
  void runDue(std::uint64_t nowMs) override;

  // When the last line, or the wait at the end, is over.
  std::uint64_t endMs() const;
  // The script has ended, and all that it expects has come true.
  bool isOver(std::uint64_t nowMs) const;
  // The run is over: what is still expected is judged now; what a line that was not reached expects
  // has not come true. Throws Unexpected.
  void close();

 private:
  void run(const Call &call);
  void announce(const Call &call);

  const Script script_;
  Chassis &chassis_;
  Expectations expectations_;
  std::size_t next_ = 0;
  std::uint64_t dueMs_ = 0;
};

}  // namespace chassis
