#include "console/Session.h"

#include <algorithm>

#include "InputError.h"

namespace chassis {

Session::Session(Player &player, Shell &shell, std::function<void(const std::string &)> complain)
    : player_(player), shell_(shell), complain_(std::move(complain)) {}

void Session::type(const std::string &line) {
  typed_.push_back(line);
}

bool Session::breakOff(std::uint64_t nowMs) {
  const bool waited = shell_.breakOff(nowMs);
  const bool dropped = !typed_.empty();
  typed_.clear();
  return waited || dropped;
}

std::optional<std::uint64_t> Session::nextMs() const {
  const std::optional<std::uint64_t> script = player_.nextMs();
  if (typed_.empty() || shell_.exited()) {
    return script;
  }
  const std::uint64_t typed = shell_.blockedUntilMs();
  return script ? std::min(*script, typed) : typed;
}

void Session::runDue(std::uint64_t nowMs) {
  runScript(nowMs);
  while (!typed_.empty() && !waits(nowMs) && !shell_.exited()) {
    const std::string line = typed_.front();
    typed_.pop_front();
    shell_.run(line);
  }
}

void Session::runScript(std::uint64_t nowMs) {
  for (bool failed = true; failed;) {
    failed = false;
    try {
      player_.runDue(nowMs);
    } catch (const InputError &error) {
      if (!complain_) {
        throw;
      }
      complain_(error.what());
      failed = true;
    }
  }
}

}  // namespace chassis
