#include "supervision/Chassis.h"

#include <algorithm>
#include <utility>

#include "base/Raised.h"
#include "platform/CardDriver.h"
#include "platform/LibraryData.h"

namespace chassis {

namespace {

Binding::Parts partsOf(Clock &clock, CiLibrary &library, AlarmService &alarms, Rack &rack) {
  Binding::Parts parts{&clock, &library, &alarms, {}};
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    parts.cards[slot] = &rack.card(slot);
  }
  return parts;
}

}  // namespace

Chassis::Chassis(Clock &clock, Events &events, Loop &loop)
    : clock_(clock),
      events_(events),
      library_(events, libraryData()),
      alarms_(clock, events),
      rack_(clock, events, loop, library_),
      binding_(partsOf(clock, library_, alarms_, rack_)),
      ticking_(clock_.onTick([this](std::uint64_t nowMs) { tick(nowMs); })) {
  rack_.onCardInserted([this](std::uint32_t slot) {
    registerCard(slot);
    slots_[slot].programsChanged = true;
  });
  rack_.onProgramsChanged([this](std::uint32_t slot) { slots_[slot].programsChanged = true; });
}

Chassis::~Chassis() = default;

void Chassis::tick(std::uint64_t nowMs) {
  if (nowMs >= loadMs) {
    binding_.allCardsLoaded();
  }
  rack_.tick(nowMs);
  library_.tick(nowMs);
  letHappen();
}

// Nothing may be thrown through the module, which may be what lets the time pass.
void Chassis::letHappen() {
  if (agenda_ == nullptr || failure_ != nullptr) {
    return;
  }
  try {
    agenda_->runDue(clock_.elapsedMs());
  } catch (...) {
    failure_ = std::current_exception();
    stop();
  }
}

void Chassis::alarmFail(bool on) {
  alarms_.setFailing(on);
}

void Chassis::onChecked(std::function<void(std::uint32_t slot)> listener) {
  checkedListeners_.push_back(std::move(listener));
}

// The start-up task waits for the cards as long as it takes, which may be for ever now.
void Chassis::stop() {
  clock_.stop();
  binding_.allCardsLoaded();
}

void Chassis::boot() {
  letHappen();
  const Raised raised(supervising_);
  ciTskInit();
  booted_ = true;
  nextCycleMs_ = clock_.elapsedMs();
}

void Chassis::run(std::uint64_t untilMs, Agenda &agenda) {
  agenda_ = &agenda;
  if (!booted_) {
    boot();
  }
  letHappen();
  serve();
  while (clock_.elapsedMs() < untilMs && !clock_.stopped()) {
    if (clock_.elapsedMs() >= nextCycleMs_) {
      cycle();
    } else {
      advanceTo(std::min(untilMs, nextCycleMs_));
    }
    serve();
  }
  agenda_ = nullptr;
  if (failure_ != nullptr) {
    std::rethrow_exception(std::exchange(failure_, nullptr));
  }
}

void Chassis::serve() {
  if (!clock_.stopped()) {
    agenda_->serve();
  }
}

void Chassis::advanceTo(std::uint64_t ms) {
  const std::uint64_t left = ms - std::min(ms, clock_.elapsedMs());
  clock_.advance(static_cast<std::uint32_t>((left + Clock::msPerTick - 1) / Clock::msPerTick));
}

void Chassis::cycle() {
  const Raised raised(supervising_);
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    if (pCiData[slot] != nullptr) {
      check(slot);
    }
  }
  // Cycles keep their beat. Those that a long one has missed are left out: without a pause, the
  // card's presence flags would be read as soon as they were cleared.
  while (nextCycleMs_ <= clock_.elapsedMs()) {
    nextCycleMs_ += cycleMs;
  }
}

void Chassis::check(std::uint32_t slot) {
  takeOverPrograms(slot);
  filterAgainOnceReady(slot);
  camStatusCheck(static_cast<std::uint8_t>(slot));
  if (clock_.stopped()) {
    return;
  }
  camAlarm(slot);
  for (const auto &listener : checkedListeners_) {
    listener(slot);
  }
}

void Chassis::takeOverPrograms(std::uint32_t slot) {
  if (!slots_[slot].programsChanged || !card(slot).inserted()) {
    return;
  }
  slots_[slot].programsChanged = false;
  if (card(slot).probing()) {
    rack_.observe(slot);
  }
  card(slot).publishTables();
  getSlotDescPidInfo(slot);
  filter(slot);
  library_.programsChanged(slot);
}

// The port counts in messages only; a card has one.
void Chassis::filter(std::uint32_t slot) {
  slots_[slot].keepsAllFromCams = pCiData[slot]->GetCardReady(slot) == 0;
  PreCAMFilte(slot, 0);
}

// A card whose programs were set while it was not ready keeps every PID from its CAMs.
void Chassis::filterAgainOnceReady(std::uint32_t slot) {
  const bool due = slots_[slot].keepsAllFromCams && card(slot).inserted();
  if (due && pCiData[slot]->GetCardReady(slot) != 0) {
    filter(slot);
  }
}

}  // namespace chassis
