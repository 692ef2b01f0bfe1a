#include "script/Player.h"

#include "InputError.h"

namespace chassis {
namespace {

// The place that a call names: its first parameters are a slot and a CAM where it has them.
Place placeOf(const Call &call) {
  Place place;
  const std::vector<const Param *> &params = call.function->params;
  if (params[0]->place) {
    place.slot = static_cast<int>(call.values[0].number);
  }
  if (params.size() > 1 && params[1]->place) {
    place.cam = static_cast<int>(call.values[1].number);
  }
  return place;
}

bool isWait(const Call &call) {
  return call.function->run == nullptr;
}

}  // namespace

Player::Player(Script script, Chassis &chassis) : script_(std::move(script)), chassis_(chassis) {}

std::optional<std::uint64_t> Player::nextMs() const {
  if (next_ == script_.calls.size()) {
    return std::nullopt;
  }
  return dueMs_;
}

void Player::runDue(std::uint64_t nowMs) {
  while (next_ < script_.calls.size() && dueMs_ <= nowMs) {
    run(script_.calls[next_++]);
  }
}

void Player::run(const Call &call) {
  if (isWait(call)) {
    dueMs_ += call.values[0].number;
    return;
  }
  announce(call);
  try {
    call.function->run(chassis_, call.values);
  } catch (const InputError &error) {
    throw InputError(atLine(script_, call.line, error.what()));
  }
}

void Player::announce(const Call &call) {
  const bool speaksForItself =
      call.function->need == Need::Nothing && call.function->effect == Effect::None;
  if (!speaksForItself) {
    chassis_.note(placeOf(call), call.text, "script line " + std::to_string(call.line));
  }
}

std::uint64_t Player::endMs() const {
  std::uint64_t end = 0;
  for (const Call &call : script_.calls) {
    end += isWait(call) ? call.values[0].number : 0;
  }
  return end;
}

}  // namespace chassis
