#include "rack/Rack.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/InputError.h"
#include "base/ProgramText.h"
#include "base/Units.h"
#include "card/FilePair.h"

namespace chassis {

Rack::Rack(Clock &clock, Events &events, Loop &loop, CiLibrary &library)
    : clock_(clock), events_(events), loop_(loop), library_(library), ports_(loop, clock, files_) {
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    slots_[slot].card = std::make_unique<Card>(slot, events, files_);
  }
}

void Rack::onCardInserted(std::function<void(std::uint32_t slot)> listener) {
  cardInserted_ = std::move(listener);
}

void Rack::onProgramsChanged(const std::function<void(std::uint32_t slot)> &listener) {
  for (Slot &slot : slots_) {
    slot.card->onProgramsChanged(listener);
  }
}

void Rack::tick(std::uint64_t nowMs) {
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
}

void Rack::cardInsert(std::uint32_t slot, const std::string &stream, std::uint64_t bitrate) {
  const Url url = readUrl(stream, Url::Use::Input);
  const bool probed = card(slot).probing();
  if (isPlayed(url)) {
    card(slot).insert(url.path, bitrate, clock_.elapsedMs());
  } else if (bitrate != 0) {
    throw InputError("'" + stream + "' comes at a bitrate of its own; leave the bitrate out");
  } else {
    auto source = ports_.openInput(url, card(slot).teller());
    goLive(stream);
    card(slot).insertLive(std::move(source), url.text, clock_.elapsedMs());
  }
  if (probed) {
    library_.remove(slot, 0);  // the CAM that was observed goes with its receiver
  }
  cardInserted_(slot);
}

void Rack::goLive(const std::string &stream) {
  if (!clock_.live() && clock_.speed() != 1) {
    events_.tell({{}, event::WentLive{{stream}}});
  }
  clock_.goLive();
}

// A file is played, a stream that is live is opened.
Card::ProbeInputs Rack::probeInputs(std::uint32_t slot, const Probe &probe) {
  constexpr Side sides[] = {Side::Before, Side::Behind};
  const std::array<Url, 2> urls{readUrl(probe.before, Url::Use::Input),
                                readUrl(probe.behind, Url::Use::Input)};
  if (urls[0].text == urls[1].text && !isPlayed(urls[0])) {
    throw InputError("'" + urls[0].text +
                     "' is given twice; what goes in and what comes out are two streams");
  }
  FilePair files([this](const Progress &progress) { return files_.goesOn(progress); },
                 probe.numbers);
  std::array<std::unique_ptr<PacketSource>, 2> sources;
  for (std::size_t i = 0; i < urls.size(); ++i) {
    if (isPlayed(urls[i])) {
      files.add(i, urls[i].path);
    } else {
      sources[i] = ports_.openInput(urls[i], card(slot).teller(sides[i]));
    }
  }
  for (std::size_t i = 0; i < urls.size(); ++i) {
    if (sources[i] == nullptr) {
      sources[i] = files.play(i, clock_.elapsedMs());
    } else {
      goLive(urls[i].text);
    }
  }
  Card::ProbeInputs inputs{std::move(sources[0]), std::move(sources[1]), urls[0].text,
                           urls[1].text,          probe.numbers,         probe.programs,
                           files.unaligned()};
  if (inputs.unaligned) {
    events_.tell({{static_cast<int>(slot), -1}, event::ProbeUnaligned{}});
  }
  return inputs;
}

void Rack::probeInsert(std::uint32_t slot, const Probe &probe) {
  Card::ProbeInputs inputs = probeInputs(slot, probe);
  cardRemove(slot);
  card(slot).insertProbe(std::move(inputs), clock_.elapsedMs());
  cardInserted_(slot);
  slots_[slot].probe = probe;
  slots_[slot].probedBy = 0;
  library_.observe(slot, 0, probe.caSystems, probe.onReset);
}

// By which CA system a receiver's CAM is judged is known once its programs are. One that none of
// them carries any more gives way.
void Rack::observe(std::uint32_t slot) {
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
  events_.tell({{static_cast<int>(slot), 0}, event::ProbeBegun{carried, probed.probedBy, wanted}});
}

void Rack::cardRemove(std::uint32_t slot) {
  if (card(slot).probing()) {
    library_.remove(slot, 0);
  }
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    camRemove(slot, camSlot);
  }
  if (card(slot).inserted()) {
    events_.tell({{static_cast<int>(slot), -1}, event::CardRemoved{}});
  }
  card(slot).remove();
}

void Rack::camInsert(std::uint32_t slot, std::uint32_t camSlot,
                     const std::vector<std::uint16_t> &casids) {
  if (card(slot).probing()) {
    throw InputError("slot " + std::to_string(slot) +
                     " judges a receiver elsewhere, which has its own CAM; put in a card first: "
                     "cardInsert " +
                     std::to_string(slot) + ", \"file\"");
  }
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

void Rack::camRemove(std::uint32_t slot, std::uint32_t camSlot) {
  std::unique_ptr<Cam> &cam = slots_[slot].cams[camSlot];
  if (cam == nullptr) {
    return;
  }
  library_.remove(slot, camSlot);
  card(slot).setCam(camSlot, nullptr);
  cam.reset();
}

Cam &Rack::cam(std::uint32_t slot, std::uint32_t camSlot) {
  if (slots_[slot].cams[camSlot] == nullptr) {
    throw InputError("no CAM is in " + std::to_string(slot) + ", " + std::to_string(camSlot));
  }
  return *slots_[slot].cams[camSlot];
}

// A CAM keeps what it is told of a program that it does not have.
void Rack::tellUnassigned(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program) {
  const ProgramInfo *info = card(slot).program(program);
  if (info == nullptr || (info->camMask >> camSlot & 1) == 0) {
    const event::Programs named{program, card(slot).programName(program)};
    events_.tell({{static_cast<int>(slot), static_cast<int>(camSlot)},
                  event::NoEffect{event::NoEffectReason::NotAssigned, named, {}, {}}});
  }
}

void Rack::progAssign(std::uint32_t slot, std::uint16_t program, std::uint8_t camMask) {
  if (!card(slot).assign(program, camMask)) {
    const event::Programs unnamed{program, ""};
    events_.tell({{static_cast<int>(slot), -1},
                  event::NoEffect{event::NoEffectReason::ProgramNotInStream, unnamed, {}, {}}});
  }
}

void Rack::progAssignAll(std::uint32_t slot, std::uint8_t camMask) {
  card(slot).assignAll(camMask);
}

void Rack::camEntitle(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program, bool on) {
  card(slot).program(program);
  cam(slot, camSlot).entitle(program, on);
  tellUnassigned(slot, camSlot, program);
}

void Rack::camRefuse(std::uint32_t slot, std::uint32_t camSlot, std::uint16_t program, bool on) {
  card(slot).program(program);
  cam(slot, camSlot).refuse(program, on);
  tellUnassigned(slot, camSlot, program);
}

void Rack::camFault(std::uint32_t slot, std::uint32_t camSlot, CamFault fault, bool on) {
  cam(slot, camSlot).setFault(fault, on);
}

void Rack::cardFault(std::uint32_t slot, CardFault fault, bool on) {
  card(slot).setFault(fault, on);
}

void Rack::pidFault(std::uint32_t slot, PidFault fault, std::uint16_t pid, bool on) {
  card(slot).setPidFault(fault, pid, on);
  if (!card(slot).carries(pid)) {
    events_.tell({{static_cast<int>(slot), -1},
                  event::NoEffect{event::NoEffectReason::PidNotInStream, {}, {pid}, {}}});
  }
}

void Rack::alarmMask(std::uint32_t slot, std::uint32_t camSlot, bool on) {
  card(slot).setAlarmMask(camSlot, on);
}

void Rack::output(std::uint32_t slot, const std::string &stream) {
  const Url url = readUrl(stream, Url::Use::Output);
  card(slot).endOutput();
  card(slot).setOutput(ports_.openOutput(url, card(slot).outputName()));
  if (url.isNetwork()) {
    goLive(stream);
  }
}

bool Rack::streamsEnded() const {
  return std::all_of(slots_.begin(), slots_.end(),
                     [](const Slot &slot) { return !slot.card->inserted() || slot.card->ended(); });
}

// All are asked, whatever the others say.
bool Rack::outputsLetGo() {
  bool all = true;
  for (Slot &slot : slots_) {
    all = slot.card->letGoOutput() && all;
  }
  return all;
}

std::vector<std::string> Rack::endOutputs() {
  constexpr std::uint64_t sliceNs = 10 * nsPerMs;
  while (!outputsLetGo()) {
    loop_.waitTimed(Loop::nowNs() + sliceNs);
  }
  std::vector<std::string> losses;
  for (Slot &slot : slots_) {
    losses.push_back(slot.card->endOutput());
  }
  losses.erase(std::remove(losses.begin(), losses.end(), ""), losses.end());
  return losses;
}

}  // namespace chassis
