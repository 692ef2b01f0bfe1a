// One run: a script and what a person types, each when it is due.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "command/ScriptRun.h"
#include "console/Shell.h"

namespace chassis {

class RunAgenda : public Agenda {
 public:
  // Whether a line waits for the answer of the one before it, or overtakes a call that waits for
  // the supervision task.
  enum class Order { InTurn, Overtaking };

  // complain: gets what is wrong with a line of the script, or what was not as it expected, and the
  // script goes on; null: that ends the run with InputError or Unexpected.
  RunAgenda(ScriptRun &scriptRun, Shell &shell, Order order,
            std::function<void(const std::string &)> complain);

  void type(const std::string &line);              // runs after the lines before it
  bool unexpected() const { return unexpected_; }  // something was not as the script expected
  // Ends a typed wait and drops the lines behind it; false: there was nothing of that.
  bool breakOff(std::uint64_t nowMs);
  bool idle() const { return typed_.empty() && !shell_.asks(); }
  bool waits(std::uint64_t nowMs) const { return nowMs < shell_.blockedUntilMs(); }

  void runDue(std::uint64_t nowMs) override;
  void serve() override;
  // The run is over: what the script still expects is judged now.
  void close();

 private:
  void complain(const std::exception &error);
  void runScript(std::uint64_t nowMs);
  bool succeeds(const std::function<void()> &act);
  void runTyped(std::uint64_t nowMs);
  bool blocked(std::uint64_t nowMs) const;

  ScriptRun &scriptRun_;
  Shell &shell_;
  const Order order_;
  const std::function<void(const std::string &)> complain_;
  std::deque<std::string> typed_;
  bool unexpected_ = false;
};

}  // namespace chassis
