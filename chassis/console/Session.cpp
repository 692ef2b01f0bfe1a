#include "console/Session.h"

#include "base/InputError.h"

namespace chassis {

Session::Session(Player &player, Shell &shell, Order order,
                 std::function<void(const std::string &)> complain)
    : player_(player), shell_(shell), order_(order), complain_(std::move(complain)) {}

void Session::type(const std::string &line) {
  typed_.push_back(line);
}

bool Session::breakOff(std::uint64_t nowMs) {
  const bool waited = shell_.breakOff(nowMs);
  const bool dropped = !typed_.empty();
  typed_.clear();
  return waited || dropped;
}

void Session::runDue(std::uint64_t nowMs) {
  runScript(nowMs);
  runTyped(nowMs);
  shell_.tellWaits();
}

void Session::serve() {
  shell_.serve();
}

bool Session::blocked(std::uint64_t nowMs) const {
  return waits(nowMs) || shell_.exited() || (order_ == Order::InTurn && shell_.asks());
}

void Session::runTyped(std::uint64_t nowMs) {
  while (!typed_.empty() && !blocked(nowMs)) {
    const std::string line = typed_.front();
    typed_.pop_front();
    shell_.run(line);
  }
}

// Called while the error is being handled.
void Session::complain(const std::exception &error) {
  if (!complain_) {
    throw;
  }
  complain_(error.what());
}

bool Session::succeeds(const std::function<void()> &act) {
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

void Session::runScript(std::uint64_t nowMs) {
  while (!succeeds([&] { player_.runDue(nowMs); })) {
  }
}

void Session::close() {
  succeeds([this] { player_.close(); });
}

}  // namespace chassis
