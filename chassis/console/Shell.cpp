#include "console/Shell.h"

#include <algorithm>

#include "base/InputError.h"
#include "base/Raised.h"
#include "command/Missing.h"
#include "command/Nearest.h"
#include "console/Guards.h"
#include "console/Overview.h"

namespace chassis {
namespace {

using Form = Param::Form;

constexpr std::size_t eventsShown = 20;
constexpr std::size_t helpWidth = 44;

const Param eventCount{"count", Form::Number, 1, Journal::capacity, false};
const Param name{"name", Form::Text, 0, 0, false};

std::string helpLine(const std::string &call, const std::string &help) {
  const std::size_t padding = call.size() < helpWidth ? helpWidth - call.size() : 0;
  return "  " + call + std::string(padding + 2, ' ') + help + "\n";
}

std::string moduleHelp() {
  std::string text;
  const CallGroup *group = nullptr;
  for (const ModuleCall &call : moduleCalls()) {
    if (group == nullptr || *group != call.group) {
      group = &call.group;
      text += std::string(groupTitle(call.group)) + "\n";
    }
    text += helpLine(signature(call.function), call.function.help);
  }
  return text;
}

std::string variableHelp() {
  std::string text = "The module: variables, set with name = value\n";
  for (const Variable &variable : variables()) {
    text += helpLine(variableText(variable), variable.help);
  }
  return text;
}

const Function *findScriptFunction(const std::string &called) {
  for (const Function &function : functions()) {
    if (called == function.name) {
      return &function;
    }
  }
  return nullptr;
}

}  // namespace

struct Shell::Command {
  Function function;  // its run is null
  void (Shell::*run)(const Values &);
};

const std::vector<Shell::Command> &Shell::commands() {
  const auto command = [](const char *called, std::vector<const Param *> params, const char *help,
                          void (Shell::*run)(const Values &)) {
    return Command{
        {called, std::move(params), 0, false, Need::Nothing, Effect::None, help, nullptr}, run};
  };
  static const std::vector<Command> table = {
      command("help", {&name}, "this list, or one line of it", &Shell::runHelp),
      command("status", {&aSlot}, "all cards at a glance, or one with every program and PID",
              &Shell::runStatus),
      command("alarms", {}, "the alarms that stand, then those that stood", &Shell::runAlarms),
      command("events", {&eventCount}, "the last lines of the timeline, 20 or as many as you say",
              &Shell::runEvents),
      command("exit", {}, "ends the chassis; so do Ctrl-D, and Ctrl-C twice at an empty line",
              &Shell::runExit),
      command("quit", {}, "the same as exit", &Shell::runExit),
  };
  return table;
}

Shell::Shell(Chassis &chassis, const StatusWatch &watch, const Journal &journal, Show show,
             bool colour, Width width)
    : chassis_(chassis),
      watch_(watch),
      journal_(journal),
      show_(std::move(show)),
      colour_(colour),
      width_(std::move(width)) {}

void Shell::run(const std::string &line) {
  try {
    checkLength(line);
    checkCharacters(line);
    const Statement statement = parseStatement(line);
    if (!statement.line.name.empty()) {
      execute(statement);
    }
  } catch (const std::exception &error) {
    showLine(std::string("error: ") + error.what());
  }
}

bool Shell::breakOff(std::uint64_t nowMs) {
  const bool waited = nowMs < blockedUntilMs_ || asks();
  asks_.clear();
  blockedUntilMs_ = std::min(blockedUntilMs_, nowMs);
  return waited;
}

void Shell::execute(const Statement &statement) {
  if (tryVariable(statement) || tryCommand(statement.line) || tryModule(statement)) {
    return;
  }
  runFunction(statement);
}

bool Shell::tryVariable(const Statement &statement) {
  const Variable *variable = findVariable(statement.line.name);
  if (variable == nullptr) {
    if (statement.isVariable) {
      std::vector<std::string> known;
      for (const Variable &each : variables()) {
        known.emplace_back(each.name);
      }
      throw InputError("there is no variable " + statement.line.name + "; did you mean " +
                       nearest(statement.line.name, known) + "?");
    }
    return false;
  }
  if (!statement.line.args.empty()) {
    throw InputError(statement.line.name + " is a variable; write " + variableText(*variable) +
                     ", or name = value");
  }
  const std::vector<std::string> lines =
      statement.value ? setVariable(*variable, statement.indexes, *statement.value)
                      : readVariable(*variable, statement.indexes);
  if (statement.value) {
    tellTyped({}, statement);
  }
  std::for_each(lines.begin(), lines.end(), [this](const std::string &line) { showLine(line); });
  return true;
}

bool Shell::tryCommand(const Line &line) {
  for (const Command &command : commands()) {
    if (line.name != command.function.name) {
      continue;
    }
    std::vector<Word> args = line.args;
    for (std::size_t i = 0; i < std::min(args.size(), command.function.params.size()); ++i) {
      args[i].quoted = command.function.params[i]->form == Form::Text;
    }
    (this->*command.run)(checkArgs(command.function, args));
    return true;
  }
  return false;
}

bool Shell::tryModule(const Statement &statement) {
  const ModuleCall *call = findModuleCall(statement.line.name);
  if (call == nullptr) {
    return false;
  }
  checkForm(*call, statement.line.args);
  asks_.push_back({call, statement, chassis_.clock().elapsedMs(), false});
  return true;
}

// What the call needs may have gone while it waited.
void Shell::answer(const Ask &ask) {
  const Values values = checkCall(*ask.call, ask.statement.line.args);
  announce(ask.call->function, values, ask.statement);
  const Raised raised(calling_);
  if (const std::optional<std::int64_t> result = callModule(*ask.call, values)) {
    showLine(valueText(*result));
  }
}

void Shell::serve() {
  while (!asks_.empty()) {
    const Ask ask = asks_.front();
    asks_.pop_front();
    try {
      answer(ask);
    } catch (const std::exception &error) {
      showLine(std::string("error: ") + error.what());
    }
  }
}

void Shell::tellWaits() {
  const std::uint64_t nowMs = chassis_.clock().elapsedMs();
  for (Ask &ask : asks_) {
    if (!ask.told && nowMs - ask.askedMs > patienceMs) {
      ask.told = true;
      showLine("the supervision task is in a pause; it runs " + statementText(ask.statement) +
               " behind it");
    }
  }
}

void Shell::runFunction(const Statement &statement) {
  const Function *function = findScriptFunction(statement.line.name);
  if (function == nullptr) {
    throw InputError("there is no function or variable " + statement.line.name + "; did you mean " +
                     nearest(statement.line.name, names()) + "?");
  }
  const Values values = checkArgs(*function, statement.line.args);
  require(*function, values);
  if (function->differs != nullptr) {
    tellExpectation(*function, values);
    return;
  }
  if (isWait(*function)) {
    blockedUntilMs_ = chassis_.clock().elapsedMs() + values[0].number;
    return;
  }
  announce(*function, values, statement);
  function->run(chassis_, values);
}

void Shell::tellExpectation(const Function &function, const Values &values) {
  if (values.size() == function.params.size()) {
    throw InputError("only a script waits for what it expects; leave out the time");
  }
  const std::optional<std::string> differs = function.differs(*watch_.snapshot(), values);
  showLine(differs ? "not as expected: " + *differs : "as expected");
}

void Shell::require(const Function &function, const Values &values) {
  if (function.need == Need::Nothing) {
    return;
  }
  const auto slotNo = static_cast<std::uint32_t>(values[0].number);
  if (!chassis_.card(slotNo).inserted()) {
    throw noCardIn(slotNo);
  }
  if (function.need == Need::Cam) {
    requireCam(values);
  }
}

void Shell::tellTyped(Place place, const Statement &statement) {
  chassis_.tell({place, event::ConsoleLine{{statementText(statement)}}});
}

void Shell::announce(const Function &function, const Values &values, const Statement &statement) {
  if (!speaksForItself(function)) {
    tellTyped(placeOf(function, values), statement);
  }
}

bool Shell::takePrint(ConsolePort port, const std::string &line) {
  if (!calling_ || port != ConsolePort::Print) {
    return false;
  }
  showLine(line);
  return true;
}

void Shell::runHelp(const Values &values) {
  if (values.empty()) {
    show_(help());
    return;
  }
  const std::string all = help();
  const std::string start = "\n  " + values[0].text;
  for (std::size_t at = all.find(start); at != std::string::npos; at = all.find(start, at + 1)) {
    const char behind = all[at + start.size()];
    if (behind == ' ' || behind == '[') {
      show_(all.substr(at + 1, all.find('\n', at + 1) - at));
      return;
    }
  }
  throw InputError("there is no help on " + values[0].text + "; did you mean " +
                   nearest(values[0].text, names()) + "?");
}

void Shell::runStatus(const Values &values) {
  const auto snapshot = watch_.snapshot();
  show_(values.empty() ? overview(*snapshot, colour_, width())
                       : cardDetail(*snapshot, static_cast<std::uint32_t>(values[0].number),
                                    colour_, width()));
}

void Shell::runAlarms(const Values &) {
  show_(alarmLists(*watch_.snapshot(), chassis_.alarms().history(), colour_, width()));
}

void Shell::runEvents(const Values &values) {
  const std::size_t wanted = values.empty() ? eventsShown : values[0].number;
  const auto &lines = journal_.lines();
  std::string text;
  for (std::size_t i = lines.size() - std::min(wanted, lines.size()); i < lines.size(); ++i) {
    text += lines[i] + "\n";
  }
  show_(text.empty() ? "no event yet\n" : text);
}

void Shell::runExit(const Values &) {
  exited_ = true;
}

std::vector<std::string> Shell::names() {
  std::vector<std::string> all;
  for (const Command &command : commands()) {
    all.emplace_back(command.function.name);
  }
  for (const ModuleCall &call : moduleCalls()) {
    all.emplace_back(call.function.name);
  }
  for (const Variable &variable : variables()) {
    all.emplace_back(variable.name);
  }
  for (const Function &function : functions()) {
    all.emplace_back(function.name);
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::string Shell::help() {
  std::string text = "Calls are written name arg, arg or name(arg, arg), numbers 10 or 0x0A.\n";
  text += "The console\n";
  for (const Command &command : commands()) {
    text += helpLine(signature(command.function), command.function.help);
  }
  text += moduleHelp() + variableHelp() + "The chassis\n";
  for (const Function &function : functions()) {
    text += helpLine(signature(function), function.help);
  }
  return text;
}

}  // namespace chassis
