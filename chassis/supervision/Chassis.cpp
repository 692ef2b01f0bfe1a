#include "supervision/Chassis.h"

#include <algorithm>
#include <utility>

#include "CiPlatform.h"
#include "base/InputError.h"
#include "base/ProgramText.h"
#include "base/Raised.h"
#include "base/Text.h"
#include "platform/CardDriver.h"

namespace {

chassis::Chassis *current = nullptr;

chassis::Card *currentCard(std::uint32_t slot) {
  return current == nullptr || slot >= MAX_BOARD_NUM ? nullptr : &current->card(slot);
}

}  // namespace

extern "C" {

volatile std::uint32_t is_all_card_loaded = 0;

// A card has one input port.
InPortForm *GetInPortFormList(std::uint32_t slotNo, std::uint32_t) {
  chassis::Card *card = currentCard(slotNo);
  return card == nullptr ? nullptr : card->inPortForm();
}

MuxCardForm *GetMuxCardFormList(std::uint32_t slotNo) {
  chassis::Card *card = currentCard(slotNo);
  return card == nullptr ? nullptr : card->muxForm();
}

}  // extern "C"

namespace chassis {

Chassis::Chassis(Clock &clock, Events &events)
    : clock_(clock), events_(events), library_(events), alarms_(clock, events) {
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    slots_[slot].card = std::make_unique<Card>(slot, events, files_);
    slots_[slot].card->onProgramsChanged(
        [this](std::uint32_t changed) { slots_[changed].programsChanged = true; });
    bindCard(slot, slots_[slot].card.get());
  }
  ticking_ = clock_.onTick([this](std::uint64_t nowMs) { tick(nowMs); });
  bindClock(&clock_);
  is_all_card_loaded = 0;
  current = this;
}

Chassis::~Chassis() {
  current = nullptr;
  bindClock(nullptr);
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    bindCard(slot, nullptr);
  }
}

void Chassis::tick(std::uint64_t nowMs) {
  if (nowMs >= loadMs) {
    is_all_card_loaded = 1;
  }
  for (Slot &slot : slots_) {
    slot.card->tick(nowMs);
  }
  for (Slot &slot : slots_) {
    for (std::unique_ptr<Cam> &module : slot.cams) {
      if (module != nullptr) {
        module->tick(nowMs);
      }
    }
  }
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

void Chassis::cardInsert(std::uint32_t slot, const std::string &path, std::uint64_t bitrate) {
  card(slot).insert(path, bitrate, clock_.elapsedMs());
  registerCard(slot);
  slots_[slot].programsChanged = true;
}

void Chassis::cardRemove(std::uint32_t slot) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    camRemove(slot, camSlot);
  }
  if (card(slot).inserted()) {
    events_.tell({EventKind::CardRemoved,
                  {static_cast<int>(slot), -1},
                  "card pulled out",
                  "the module still looks for its program table: ci_assert"});
  }
  card(slot).remove();
}

void Chassis::camInsert(std::uint32_t slot, std::uint32_t camSlot,
                        const std::vector<std::uint16_t> &casids) {
  camRemove(slot, camSlot);
  Cam::Config config;
  config.caSystems = casids;
  config.programNames = [&on = card(slot)](std::uint16_t program) {
    return on.programName(program);
  };
  const ProgramNames names = config.programNames;
  const Place place{static_cast<int>(slot), static_cast<int>(camSlot)};
  std::unique_ptr<Cam> &module = slots_[slot].cams[camSlot];
  module = std::make_unique<Cam>(std::move(config), place, events_, clock_.elapsedMs());
  card(slot).setCam(camSlot, module.get());
  library_.insert(slot, camSlot, module.get(), names);
}

void Chassis::camRemove(std::uint32_t slot, std::uint32_t camSlot) {
  std::unique_ptr<Cam> &module = slots_[slot].cams[camSlot];
  if (module == nullptr) {
    return;
  }
  library_.remove(slot, camSlot);
  card(slot).setCam(camSlot, nullptr);
  module.reset();
}

Cam &Chassis::cam(std::uint32_t slot, std::uint32_t camSlot) {
  if (slots_[slot].cams[camSlot] == nullptr) {
    throw InputError("no CAM is in " + std::to_string(slot) + ", " + std::to_string(camSlot));
  }
  return *slots_[slot].cams[camSlot];
}

// A CAM keeps what it is told of a program that it does not have.
void Chassis::tellUnassigned(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program) {
  const ProgramInfo *info = card(slot).program(program);
  if (info == nullptr || (info->camMask >> camSlot & 1) == 0) {
    events_.tell({EventKind::NoEffect,
                  {static_cast<int>(slot), static_cast<int>(camSlot)},
                  "nothing changes yet: " + programText(program, card(slot).programName(program)) +
                      " is not assigned to this CAM",
                  "kept for when it is",
                  {{"programs", std::vector{program}}}});
  }
}

void Chassis::progAssign(std::uint32_t slot, std::uint16_t program, std::uint8_t camMask) {
  if (!card(slot).assign(program, camMask)) {
    events_.tell(
        {EventKind::NoEffect,
         {static_cast<int>(slot), -1},
         "nothing changes yet: program " + std::to_string(program) + " is not in the stream",
         "kept for when it is",
         {{"programs", std::vector{program}}}});
  }
}

void Chassis::progAssignAll(std::uint32_t slot, std::uint8_t camMask) {
  card(slot).assignAll(camMask);
}

void Chassis::camEntitle(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program,
                         bool on) {
  card(slot).program(program);
  cam(slot, camSlot).entitle(program, on);
  tellUnassigned(slot, camSlot, program);
}

void Chassis::camRefuse(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program, bool on) {
  card(slot).program(program);
  cam(slot, camSlot).refuse(program, on);
  tellUnassigned(slot, camSlot, program);
}

void Chassis::camFault(std::uint32_t slot, std::uint32_t camSlot, CamFault fault, bool on) {
  cam(slot, camSlot).setFault(fault, on);
}

void Chassis::cardFault(std::uint32_t slot, CardFault fault, bool on) {
  card(slot).setFault(fault, on);
}

void Chassis::pidFault(std::uint32_t slot, PidFault fault, std::uint16_t pid, bool on) {
  card(slot).setPidFault(fault, pid, on);
  if (!card(slot).carries(pid)) {
    events_.tell({EventKind::NoEffect,
                  {static_cast<int>(slot), -1},
                  "nothing changes: PID " + hex(pid, 4) + " is not in the stream",
                  "",
                  {{"pids", std::vector{pid}}}});
  }
}

void Chassis::alarmMask(std::uint32_t slot, std::uint32_t camSlot, bool on) {
  card(slot).setAlarmMask(camSlot, on);
}

void Chassis::alarmFail(bool on) {
  alarms_.setFailing(on);
}

void Chassis::output(std::uint32_t slot, const std::string &path) {
  card(slot).setOutput(path);
}

std::vector<std::string> Chassis::endOutputs() {
  std::vector<std::string> losses;
  for (Slot &slot : slots_) {
    losses.push_back(slot.card->endOutput());
  }
  losses.erase(std::remove(losses.begin(), losses.end(), ""), losses.end());
  return losses;
}

void Chassis::onChecked(std::function<void(std::uint32_t slot)> listener) {
  checkedListeners_.push_back(std::move(listener));
}

// The start-up task waits for the cards as long as it takes, which may be for ever now.
void Chassis::stop() {
  clock_.stop();
  is_all_card_loaded = 1;
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
