// Runs what a person types: calls of the module and of the chassis, variables, and the console's
// own commands.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "console/Journal.h"
#include "console/Layout.h"
#include "console/ModuleCalls.h"
#include "console/Statement.h"
#include "console/Variables.h"
#include "platform/Print.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

namespace chassis {

class Shell {
 public:
  // Answers in whole lines with their ends.
  using Show = std::function<void(const std::string &)>;

  static constexpr std::uint64_t patienceMs = 500;  // of chassis time

  // width: of the terminal; null: tables are as wide as they are.
  Shell(Chassis &chassis, const StatusWatch &watch, const Journal &journal, Show show, bool colour,
        Width width = nullptr);

  // Runs one line, on any tick, but for a call of the module: that waits for the supervision task.
  // Whatever the line is, a person gets an answer and the chassis goes on; what is wrong with it is
  // told in one line.
  void run(const std::string &line);
  // Runs the calls that wait, in the supervision task between two cycles.
  void serve();
  bool asks() const { return !asks_.empty(); }
  // Tells of each call, once, that it has waited for longer than patienceMs.
  void tellWaits();

  bool exited() const { return exited_; }                           // by the command
  std::uint64_t blockedUntilMs() const { return blockedUntilMs_; }  // a wait: not before this

  // Ends the wait that a typed line began and drops the calls that wait; false: there was none.
  bool breakOff(std::uint64_t nowMs);

  // What the module prints while a typed call runs is the call's answer: true when it was taken.
  bool takePrint(ConsolePort port, const std::string &line);

  // All that can be called or read, sorted.
  static std::vector<std::string> names();

  // One line for each of them, in groups.
  static std::string help();

 private:
  struct Command;
  // A call that waits for the supervision task.
  struct Ask {
    const ModuleCall *call;
    Statement statement;
    std::uint64_t askedMs;
    bool told;
  };
  static const std::vector<Command> &commands();

  void execute(const Statement &statement);
  bool tryVariable(const Statement &statement);
  bool tryCommand(const Line &line);
  bool tryModule(const Statement &statement);
  void answer(const Ask &ask);
  void tellExpectation(const Function &function, const Values &values);
  void runFunction(const Statement &statement);
  void announce(const Function &function, const Values &values, const Statement &statement);
  void tellTyped(Place place, const Statement &statement);
  void require(const Function &function, const Values &values);
  std::size_t width() const { return width_ ? width_() : anyWidth; }
  void showLine(const std::string &line) { show_(line + "\n"); }

  void runHelp(const Values &values);
  void runStatus(const Values &values);
  void runAlarms(const Values &values);
  void runEvents(const Values &values);
  void runExit(const Values &values);

  Chassis &chassis_;
  const StatusWatch &watch_;
  const Journal &journal_;
  const Show show_;
  const bool colour_;
  const Width width_;
  bool exited_ = false;
  bool calling_ = false;
  std::deque<Ask> asks_;
  std::uint64_t blockedUntilMs_ = 0;
};

}  // namespace chassis
