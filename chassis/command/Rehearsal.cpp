#include "command/Rehearsal.h"

#include "base/InputError.h"
#include "base/Text.h"
#include "command/Missing.h"
#include "io/Ports.h"

namespace chassis {
void Rehearsal::play(const Function &function, const Values &values) {
  if (function.need != Need::Nothing) {
    Slot &slot = slots_[values[0].number];
    require(function, values, slot);
    requireProgram(function, values, slot);
  }
  if (function.effect != Effect::None) {
    follow(function, values);
  }
}

void Rehearsal::require(const Function &function, const Values &values, Slot &slot) const {
  if (slot.card == Filled::No) {
    slot.card = Filled::Maybe;
    slot.cams.fill(Filled::Maybe);
    throw noCardIn(values[0].number);
  }
  if (function.need == Need::Card || slot.cams[values[1].number] != Filled::No) {
    return;
  }
  slot.cams[values[1].number] = Filled::Maybe;
  throw noCamIn(values[0].number, values[1].number);
}

void Rehearsal::requireProgram(const Function &function, const Values &values, const Slot &slot) {
  const std::optional<std::uint16_t> program = programOf(function, values);
  if (!program || slot.stream.empty() || streams_->carries(slot.stream, *program)) {
    return;
  }
  throw InputError("program " + std::to_string(*program) + " is not in '" + slot.stream +
                   "', which carries " + listOf(streams_->first(slot.stream)));
}

void Rehearsal::follow(const Function &function, const Values &values) {
  Slot &slot = slots_[values[0].number];
  switch (function.effect) {
    case Effect::CardIn:
      insertCard(function, values, slot);
      break;
    case Effect::CardOut:
      slot = Slot{};
      break;
    case Effect::CamIn:
      slot.cams[values[1].number] = Filled::Yes;
      break;
    case Effect::CamOut:
      slot.cams[values[1].number] = Filled::No;
      break;
    case Effect::None:
      break;
  }
}

// What a live stream carries is seen when it comes.
void Rehearsal::insertCard(const Function &function, const Values &values, Slot &slot) {
  slot.card = Filled::Yes;
  slot.stream.clear();
  Values named = values;
  const std::vector<std::string *> streams = streamsOf(function, named);
  for (const std::string *stream : streams) {
    const Url url = readUrl(*stream, Url::Use::Input);
    if (streams_ != nullptr && isPlayed(url)) {
      streams_->require(url.path);
      slot.stream = streams.size() == 1 ? url.path : "";
      requireBitrate(function, values, url.path);
    }
  }
}

void Rehearsal::requireBitrate(const Function &function, const Values &values,
                               const std::string &path) const {
  if (!givesBitrate(function, values)) {
    streams_->requireBitrate(path);
  }
}

void Rehearsal::loseTrack() {
  for (Slot &slot : slots_) {
    slot.card = slot.card == Filled::No ? Filled::Maybe : slot.card;
    slot.stream.clear();
    for (Filled &cam : slot.cams) {
      cam = cam == Filled::No ? Filled::Maybe : cam;
    }
  }
}

}  // namespace chassis
