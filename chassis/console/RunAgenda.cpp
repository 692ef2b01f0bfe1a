#include "console/RunAgenda.h"

#include "base/InputError.h"

namespace chassis {

RunAgenda::RunAgenda(ScriptRun &scriptRun, Shell &shell, Order order,
                     std::function<void(const std::string &)> complain)
    : scriptRun_(scriptRun), shell_(shell), order_(order), complain_(std::move(complain)) {}

void RunAgenda::type(const std::string &line) {
  typed_.push_back(line);
}

bool RunAgenda::breakOff(std::uint64_t nowMs) {
  const bool waited = shell_.breakOff(nowMs);
  const bool dropped = !typed_.empty();
  typed_.clear();
  return waited || dropped;
}

void RunAgenda::runDue(std::uint64_t nowMs) {
  runScript(nowMs);
  runTyped(nowMs);
  shell_.tellWaits();
}

void RunAgenda::serve() {
  shell_.serve();
}

bool RunAgenda::blocked(std::uint64_t nowMs) const {
  return waits(nowMs) || shell_.exited() || (order_ == Order::InTurn && shell_.asks());
}

void RunAgenda::runTyped(std::uint64_t nowMs) {
  while (!typed_.empty() && !blocked(nowMs)) {
    const std::string line = typed_.front();
    typed_.pop_front();
    shell_.run(line);
  }
}

// Called while the error is being handled.
void RunAgenda::complain(const std::exception &error) {
  if (!complain_) {
    throw;
  }
  complain_(error.what());
}

bool RunAgenda::succeeds(const std::function<void()> &act) {
  try {
    act();
    return true;
  } catch (const InputError &error) {
    complain(error);
  } catch (const Unexpected &error) {
    unexpected_ = true;
    complain(error);
  }
  return false;
}

void RunAgenda::runScript(std::uint64_t nowMs) {
  while (!succeeds([&] { scriptRun_.runDue(nowMs); })) {
  }
}

void RunAgenda::close() {
  succeeds([this] { scriptRun_.close(); });
}

}  // namespace chassis
