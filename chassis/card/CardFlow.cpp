#include <algorithm>
#include <iterator>
#include <utility>

#include "base/Text.h"
#include "card/CardState.h"
#include "kernel/Clock.h"
#include "ts/PacketView.h"

namespace chassis {

// What came to a live stream while the chassis stood still is there now, not bit by bit.
void Card::tick(std::uint64_t nowMs) {
  State &state = *state_;
  while (state.source && state.fpga.nowMs < nowMs) {
    const std::uint64_t next = state.fpga.nowMs + Clock::msPerTick;
    state.step(state.live ? nowMs : std::min(next, nowMs));
  }
}

void Card::State::step(std::uint64_t nowMs) {
  fpga.nowMs = nowMs;
  const std::size_t came = takeDuePackets();
  path().endStep();
  fpga.before.tick(nowMs);
  fpga.behind.tick(nowMs);
  watchLive(came);
  followPsi();
  followProbe();
}

std::size_t Card::State::takeDuePackets() {
  const std::size_t due = source->due(fpga.nowMs);
  path().beginStep(due);
  seams.beginStep(live && watch.silent());
  std::size_t taken = 0;
  while (taken < due && takeOne()) {
    ++taken;
  }
  if (!live && source->ended() && !std::exchange(unreadable, true)) {
    tell(event::StreamEnded{});
  }
  return taken;
}

void Card::State::watchLive(std::size_t came) {
  if (live) {
    const Side side = probe != nullptr ? Side::Before : Side::None;
    tellAtCard(watch.step(fpga.nowMs, came > 0), side);
    tellAtCard(losses.step(fpga.nowMs, source->counters()), side);
  }
}

void Card::State::tellAtCard(std::optional<Event> event, Side side) {
  if (event) {
    event->place = {static_cast<int>(slot), -1, side};
    events.tell(*event);
  }
}

// The PMTs of a live stream come one after the other.
bool Card::State::stillLearning() const {
  constexpr std::uint64_t learningMs = 2000;
  return live && !psi->complete() && fpga.nowMs - liveSinceMs < learningMs;
}

// Whose packet a broken one is cannot be known: it goes through in its place, and nobody reads it.
bool Card::State::takeOne() {
  TsPacket packet;
  std::uint64_t cameNs = 0;
  if (!source->next(packet, cameNs)) {
    return false;
  }
  if (live && seams.at(source->beginnings())) {
    fpga.before.forgetContinuity();
    path().beginAnew();
  }
  if (PacketView(packet).transportError()) {
    tellBroken();
    path().take(packet, cameNs);
  } else if (pidFaults.apply(packet)) {
    psi->push(packet);
    fpga.before.count(packet, fpga.nowMs);
    path().take(packet, cameNs);
  }
  return true;
}

void Card::State::tellBroken() {
  if (transportErrors++ == 0) {
    tell(event::TransportErrors{});
  }
}

void Card::State::tellTrouble(const PacketSink &output) {
  tell(event::OutputLost{output.name(), output.trouble()});
}

void Card::State::followPsi() {
  if (psi->services().changes() != nameChanges) {
    takeNames();
  }
  if (psi->changes() == psiChanges || stillLearning()) {
    return;
  }
  const Psi before = builtFrom;
  if (probe != nullptr) {
    probe->match(psi->psi(), psi->services());
  }
  rebuildTables();
  if (!(before.programs == builtFrom.programs)) {
    tellChanged(before);
  }
  tellProgramsChanged();
}

}  // namespace chassis
