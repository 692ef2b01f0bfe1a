#include "supervision/Chassis.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "base/InputError.h"
#include "base/ProgramText.h"
#include "base/Raised.h"
#include "base/Text.h"
#include "card/FilePair.h"
#include "platform/CardDriver.h"
#include "platform/LibraryData.h"

namespace chassis {

namespace {

std::string caSystemList(const std::vector<std::uint16_t> &casids) {
  std::vector<std::string> names;
  names.reserve(casids.size());
  for (const std::uint16_t casid : casids) {
    names.push_back(hex(casid, 4));
  }
  return joined(names);
}

}  // namespace

Chassis::Chassis(Clock &clock, Events &events, Loop &loop)
    : clock_(clock),
      events_(events),
      ports_(loop, clock, files_),
      library_(events, libraryData()),
      alarms_(clock, events) {
  Binding::Parts parts{&clock, &library_, &alarms_, {}};
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    slots_[slot].card = std::make_unique<Card>(slot, events, files_);
    slots_[slot].card->onProgramsChanged(
        [this](std::uint32_t changed) { slots_[changed].programsChanged = true; });
    parts.cards[slot] = slots_[slot].card.get();
  }
  binding_.emplace(parts);
  ticking_ = clock_.onTick([this](std::uint64_t nowMs) { tick(nowMs); });
}

Chassis::~Chassis() = default;

void Chassis::tick(std::uint64_t nowMs) {
  if (nowMs >= loadMs) {
    binding_->allCardsLoaded();
  }
  for (Slot &slot : slots_) {
    slot.card->tick(nowMs);
  }
  for (Slot &slot : slots_) {
    for (std::unique_ptr<Cam> &cam : slot.cams) {
      if (cam != nullptr) {
        cam->tick(nowMs);
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

void Chassis::cardInsert(std::uint32_t slot, const std::string &stream, std::uint64_t bitrate) {
  const Url url = readUrl(stream, Url::Use::Input);
  if (isPlayed(url)) {
    card(slot).insert(url.path, bitrate, clock_.elapsedMs());
  } else if (bitrate != 0) {
    throw InputError("'" + stream + "' comes at a bitrate of its own; leave the bitrate out");
  } else {
    auto source = ports_.openInput(url, card(slot).teller());
    goLive(stream);
    card(slot).insertLive(std::move(source), url.text, clock_.elapsedMs());
  }
  registerCard(slot);
  slots_[slot].programsChanged = true;
}

void Chassis::goLive(const std::string &stream) {
  if (!clock_.live() && clock_.speed() != 1) {
    events_.tell({EventKind::WentLive,
                  {},
                  "chassis time goes at the machine's clock from now on",
                  "'" + stream + "' is live"});
  }
  clock_.goLive();
}

// A file is played, a stream that is live is opened.
Card::ProbeInputs Chassis::probeInputs(std::uint32_t slot, const Probe &probe) {
  const std::array<Url, 2> urls{readUrl(probe.before, Url::Use::Input),
                                readUrl(probe.behind, Url::Use::Input)};
  FilePair files([this](const Progress &progress) { return files_.goesOn(progress); });
  std::array<std::unique_ptr<PacketSource>, 2> sources;
  for (std::size_t i = 0; i < urls.size(); ++i) {
    if (isPlayed(urls[i])) {
      files.add(i, urls[i].path);
    } else {
      sources[i] = ports_.openInput(urls[i], card(slot).teller());
    }
  }
  for (std::size_t i = 0; i < urls.size(); ++i) {
    if (sources[i] == nullptr) {
      sources[i] = files.play(i, clock_.elapsedMs());
    } else {
      goLive(urls[i].text);
    }
  }
  Card::ProbeInputs inputs{std::move(sources[0]), std::move(sources[1]),
                           urls[0].text + " and " + urls[1].text, probe.numbers, probe.programs};
  if (files.unaligned()) {
    tell({EventKind::ProbeUnaligned,
          {static_cast<int>(slot), -1},
          "the two files have no time in common",
          "their PCRs do not overlap; both are played from their begin",
          {},
          Tone::Bad});
  }
  return inputs;
}

void Chassis::probeInsert(std::uint32_t slot, const Probe &probe) {
  Card::ProbeInputs inputs = probeInputs(slot, probe);
  cardRemove(slot);
  card(slot).insertProbe(std::move(inputs), clock_.elapsedMs());
  registerCard(slot);
  slots_[slot].probe = probe;
  slots_[slot].probedBy = 0;
  library_.observe(slot, 0, probe.caSystems, probe.onReset);
  slots_[slot].programsChanged = true;
}

// By which CA system a receiver's CAM is judged is known once its programs are. One that none of
// them carries any more gives way.
void Chassis::observe(std::uint32_t slot) {
  const std::vector<std::uint16_t> carried = card(slot).probedCaSystems();
  Slot &probed = slots_[slot];
  const auto carries = [&carried](std::uint16_t casid) {
    return std::find(carried.begin(), carried.end(), casid) != carried.end();
  };
  if (carried.empty() || carries(probed.probedBy)) {
    return;
  }
  const std::vector<std::uint16_t> &wanted = probed.probe.caSystems;
  const auto found = std::find_if(wanted.begin(), wanted.end(), carries);
  const std::uint16_t asked = found == wanted.end() ? 0 : *found;
  probed.probedBy = wanted.empty() ? carried.front() : asked;
  if (wanted.empty()) {
    library_.observe(slot, 0, {probed.probedBy}, probed.probe.onReset);
  }
  tellObserved(slot, carried);
}

void Chassis::tellObserved(std::uint32_t slot, const std::vector<std::uint16_t> &carried) {
  const std::uint16_t by = slots_[slot].probedBy;
  std::vector<std::uint16_t> others;
  std::copy_if(carried.begin(), carried.end(), std::back_inserter(others),
               [by](std::uint16_t casid) { return casid != by; });
  const std::string rest = others.empty() ? "the programs carry no other"
                                          : "the programs also carry " + caSystemList(others);
  const Place place{static_cast<int>(slot), 0};
  if (by != 0) {
    events_.tell({EventKind::ProbeBegun,
                  place,
                  "the receiver is judged by CA system " + hex(by, 4),
                  rest,
                  {{"ca_systems", carried}}});
  } else {
    events_.tell({EventKind::ProbeBegun,
                  place,
                  "no program carries CA system " + caSystemList(slots_[slot].probe.caSystems),
                  "they carry " + caSystemList(carried),
                  {{"ca_systems", carried}},
                  Tone::Bad});
  }
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
  std::unique_ptr<Cam> &cam = slots_[slot].cams[camSlot];
  cam = std::make_unique<Cam>(std::move(config), place, events_, clock_.elapsedMs());
  card(slot).setCam(camSlot, cam.get());
  library_.insert(slot, camSlot, cam.get(), names);
}

void Chassis::camRemove(std::uint32_t slot, std::uint32_t camSlot) {
  std::unique_ptr<Cam> &cam = slots_[slot].cams[camSlot];
  if (cam == nullptr) {
    return;
  }
  library_.remove(slot, camSlot);
  card(slot).setCam(camSlot, nullptr);
  cam.reset();
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

void Chassis::output(std::uint32_t slot, const std::string &stream) {
  const Url url = readUrl(stream, Url::Use::Output);
  card(slot).endOutput();
  card(slot).setOutput(ports_.openOutput(url, card(slot).outputName()));
  if (url.isNetwork()) {
    goLive(stream);
  }
}

bool Chassis::streamsEnded() const {
  return std::all_of(slots_.begin(), slots_.end(),
                     [](const Slot &slot) { return !slot.card->inserted() || slot.card->ended(); });
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
  binding_->allCardsLoaded();
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
    observe(slot);
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
