#include "command/ScriptRun.h"

#include "base/InputError.h"

namespace chassis {

ScriptRun::ScriptRun(Script script, Chassis &chassis, const StatusWatch &watch)
    : script_(std::move(script)), chassis_(chassis), expectations_(chassis, watch) {}

std::optional<std::uint64_t> ScriptRun::nextMs() const {
  if (next_ == script_.calls.size()) {
    return std::nullopt;
  }
  return dueMs_;
}

void ScriptRun::runDue(std::uint64_t nowMs) {
  while (next_ < script_.calls.size() && dueMs_ <= nowMs) {
    run(script_.calls[next_++]);
  }
  expectations_.review(nowMs);
}

void ScriptRun::close() {
  for (; next_ < script_.calls.size(); ++next_) {
    const Call &call = script_.calls[next_];
    if (call.function->differs != nullptr) {
      expectations_.miss(script_, call);
    }
  }
  expectations_.close();
}

void ScriptRun::run(const Call &call) {
  if (isWait(*call.function)) {
    dueMs_ += call.values[0].number;
    return;
  }
  if (call.function->differs != nullptr) {
    expectations_.expect(script_, call, dueMs_);
    return;
  }
  announce(call);
  try {
    call.function->run(chassis_, call.values);
  } catch (const InputError &error) {
    throw InputError(atLine(script_, call.line, error.what()));
  }
}

void ScriptRun::announce(const Call &call) {
  if (!speaksForItself(*call.function)) {
    chassis_.tell({placeOf(*call.function, call.values), event::ScriptLine{call.text, call.line}});
  }
}

bool ScriptRun::isOver(std::uint64_t nowMs) const {
  return nowMs >= endMs() && !nextMs() && !expectations_.pending();
}

std::uint64_t ScriptRun::endMs() const {
  std::uint64_t end = 0;
  for (const Call &call : script_.calls) {
    end += isWait(*call.function) ? call.values[0].number : 0;
  }
  return end;
}

}  // namespace chassis
