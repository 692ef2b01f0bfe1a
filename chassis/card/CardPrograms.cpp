// What a card knows of its stream's programs, and who gets them.
#include <algorithm>

#include "base/InputError.h"
#include "base/Text.h"
#include "card/CardState.h"
#include "card/StreamType.h"

namespace chassis {

namespace {

ProgramInfo infoOf(const PsiProgram &program, const CamMasks &masks) {
  ProgramInfo info;
  info.number = program.number;
  info.pmtPid = program.pmtPid;
  info.pcrPid = program.pcrPid;
  for (const PsiStream &stream : program.streams) {
    info.streams.push_back({stream.type, stream.pid});
  }
  const auto mask = masks.find(program.number);
  info.camMask = mask == masks.end() ? 0 : mask->second;
  return info;
}

std::bitset<pidCount> avPidsOf(const Psi &psi) {
  std::bitset<pidCount> pids;
  for (const PsiProgram &program : psi.programs) {
    for (const PsiStream &stream : program.streams) {
      pids.set(stream.pid, pids.test(stream.pid) || isAudioVideo(stream.type));
    }
  }
  return pids;
}

void requireMask(const std::string &name, std::uint8_t camMask) {
  constexpr std::uint8_t allCams = (1U << MAX_CAM_NUM) - 1;
  if (camMask > allCams) {
    throw InputError(name + ": CAM mask " + std::to_string(camMask) + " is not 0 to " +
                     std::to_string(allCams));
  }
}

void requireCard(const Card &card, const std::string &name, std::uint32_t slot) {
  if (!card.inserted()) {
    throw InputError(name + ": no card is in slot " + std::to_string(slot));
  }
}

}  // namespace

std::uint8_t Card::State::defaultMask(const PsiProgram &program) const {
  return isProbed(program) ? 1 : othersMask;
}

// The programs of the stream that CAMs have.
CamMasks Card::State::masksOf(const Psi &stream) const {
  CamMasks known;
  for (const PsiProgram &program : stream.programs) {
    const auto mask = masks.find(program.number);
    const bool missing = probe != nullptr && (probe->missing(program.number) ||
                                              probed.silent.count(program.number) != 0);
    const std::uint8_t given = mask == masks.end() ? defaultMask(program) : mask->second;
    known[program.number] = missing ? 0 : given;
  }
  return known;
}

void Card::State::rebuildTables() {
  const Psi stream = probe != nullptr ? probe->judgeable(psi->psi()) : psi->psi();
  psiChanges = psi->changes();
  builtFrom = psi->psi();
  programs.clear();
  const CamMasks assigned = masksOf(stream);
  for (const PsiProgram &program : stream.programs) {
    programs.push_back(infoOf(program, assigned));
  }
  takeNames();
  fpga.setAvPids(avPidsOf(stream));
  const ProgramNames names = [this](std::uint16_t number) { return nameOf(number); };
  for (const LeftOut &leftOut : {buildDescTable(stream, assigned, nextTables.desc, names),
                                 buildInPortForm(stream, nextTables.inPort),
                                 buildMuxForm(stream, assigned, nextTables.mux, names)}) {
    for (const std::string &item : leftOut) {
      tell(event::TablesCut{item});
    }
  }
}

// Names stand beside the programs, and nothing depends on them.
void Card::State::takeNames() {
  nameChanges = psi->services().changes();
  for (ProgramInfo &program : programs) {
    program.service = psi->services().of(program.number);
  }
}

const ProgramInfo *Card::State::find(std::uint16_t number) const {
  const auto known =
      std::find_if(programs.begin(), programs.end(),
                   [number](const ProgramInfo &info) { return info.number == number; });
  return known == programs.end() ? nullptr : &*known;
}

std::string Card::State::nameOf(std::uint16_t number) const {
  const ProgramInfo *known = find(number);
  return known == nullptr ? "" : known->service.name;
}

std::vector<std::uint16_t> Card::State::programNumbers() const {
  std::vector<std::uint16_t> numbers;
  for (const ProgramInfo &program : programs) {
    numbers.push_back(program.number);
  }
  return numbers;
}

std::string Card::State::programList() const {
  std::vector<std::string> list;
  for (const ProgramInfo &program : programs) {
    list.push_back(namedNumber(program.number, program.service.name));
  }
  return joined(list);
}

void Card::State::tellChanged(const Psi &before) {
  event::StreamChanged facts{programNumbers(), {}, {}};
  for (const PsiProgram &program : builtFrom.programs) {
    const auto same = std::find(before.programs.begin(), before.programs.end(), program);
    if (same == before.programs.end()) {
      facts.add(program.number, nameOf(program.number), program.version);
    }
  }
  tell(facts);
}

void Card::State::tellProgramsChanged() {
  if (listener) {
    listener(slot);
  }
}

bool Card::assign(std::uint16_t program, std::uint8_t camMask) {
  State &state = *state_;
  const std::string name = "program " + std::to_string(program);
  requireCard(*this, name, state.slot);
  const ProgramInfo *known = this->program(program);
  requireMask(name, camMask);
  const bool carried = known != nullptr;
  const bool changes = carried && known->camMask != camMask;
  state.masks[program] = camMask;
  if (changes) {
    state.rebuildTables();
    state.tellProgramsChanged();
  }
  return carried;
}

void Card::assignAll(std::uint8_t camMask) {
  State &state = *state_;
  requireCard(*this, "program *", state.slot);
  requireMask("program *", camMask);
  state.masks.clear();
  state.othersMask = camMask;
  state.rebuildTables();
  state.tellProgramsChanged();
}

const ProgramInfo *Card::program(std::uint16_t number) const {
  const ProgramInfo *known = state_->find(number);
  if (known != nullptr || state_->live) {
    return known;
  }
  throw InputError("program " + std::to_string(number) + " is not in the stream of slot " +
                   std::to_string(state_->slot) + ", which carries " + state_->programList());
}

std::string Card::programName(std::uint16_t number) const {
  return state_->nameOf(number);
}

void Card::publishTables() {
  state_->tables = state_->nextTables;
}

const std::vector<ProgramInfo> &Card::programs() const {
  return state_->programs;
}

}  // namespace chassis
