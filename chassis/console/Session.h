// One run: a script and what a person types, in the order in which they are due.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "console/Shell.h"
#include "script/Player.h"

namespace chassis {

class Session : public Agenda {
 public:
  // complain: gets what is wrong with a line of the script, which then goes on; null: that ends
  // the run with InputError.
  Session(Player &player, Shell &shell, std::function<void(const std::string &)> complain);

  void type(const std::string &line);  // runs after the lines before it
  // Ends a typed wait and drops the lines behind it; false: there was nothing of that.
  bool breakOff(std::uint64_t nowMs);
  bool idle() const { return typed_.empty(); }
  bool waits(std::uint64_t nowMs) const { return nowMs < shell_.blockedUntilMs(); }

  std::optional<std::uint64_t> nextMs() const override;
  void runDue(std::uint64_t nowMs) override;

 private:
  void runScript(std::uint64_t nowMs);

  Player &player_;
  Shell &shell_;
  const std::function<void(const std::string &)> complain_;
  std::deque<std::string> typed_;
};

}  // namespace chassis
