#include "card/Card.h"

#include <algorithm>

#include "base/InputError.h"
#include "base/ProgramText.h"
#include "base/Text.h"
#include "card/CardState.h"
#include "card/StreamScan.h"
#include "card/StreamType.h"
#include "io/FileSource.h"

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

Card::OutputFigures figuresOf(const PacketSink &output) {
  const Lateness *lateness = output.lateness();
  return {output.name(), output.writtenPackets(), output.lostPackets(),
          lateness != nullptr ? std::optional(*lateness) : std::nullopt};
}

bool hasCa(const PsiProgram &program) {
  return !program.ca.empty() ||
         std::any_of(program.streams.begin(), program.streams.end(),
                     [](const PsiStream &stream) { return !stream.ca.empty(); });
}

}  // namespace

Card::State::State(std::uint32_t slotNo, Events &receiver, Files &filesOfAll)
    : slot(slotNo),
      events(receiver),
      files(filesOfAll),
      streamName("the stream of slot " + std::to_string(slotNo)),
      outputName("the output of slot " + std::to_string(slotNo)),
      chain(slotNo, fpga, [this](const PacketSink &output) { tellTrouble(output); }) {}

void Card::State::tell(EventKind kind, const std::string &what, const std::string &why,
                       std::vector<Fact> facts) {
  events.tell({kind, {static_cast<int>(slot), -1}, what, why, std::move(facts)});
}

void Card::State::remove() {
  chain.settle();
  source.reset();
  psi.reset();
  masks.clear();
  othersMask = 0;
  probe.reset();
  probedPrograms.clear();
  absentPrograms.clear();
  silentPrograms.clear();
  live = false;
  sourceName.clear();
  programs.clear();
  files.forget(streamName);
  streamPids.reset();
  pidFaults.clear();
  fpga.stop();
  bitrate = 0;
}

Path &Card::State::path() {
  return probe != nullptr ? static_cast<Path &>(*probe) : chain;
}

bool Card::State::isProbed(const PsiProgram &program) const {
  const auto &wanted = probedPrograms;
  return probe != nullptr && hasCa(program) &&
         (wanted.empty() ||
          std::find(wanted.begin(), wanted.end(), program.number) != wanted.end());
}

std::uint8_t Card::State::defaultMask(const PsiProgram &program) const {
  return isProbed(program) ? 1 : othersMask;
}

ProbeState Card::State::probeStateOf(const PsiProgram &program) const {
  if (!isProbed(program)) {
    return ProbeState::None;
  }
  if (watch.silent() || probe->silent()) {
    return !watch.silent()    ? ProbeState::SilentBehind
           : !probe->silent() ? ProbeState::SilentBefore
                              : ProbeState::SilentBoth;
  }
  if (!probe->known()) {
    return ProbeState::Learning;
  }
  if (probe->missing(program.number)) {
    return ProbeState::MissingBehind;
  }
  return silentPrograms.count(program.number) != 0 ? ProbeState::NothingBehind : ProbeState::Judged;
}

// The programs of the stream that CAMs have.
CamMasks Card::State::masksOf(const Psi &stream) const {
  CamMasks known;
  for (const PsiProgram &program : stream.programs) {
    const auto mask = masks.find(program.number);
    const bool missing = probe != nullptr && (probe->missing(program.number) ||
                                              silentPrograms.count(program.number) != 0);
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
      tell(EventKind::TablesCut, "left out of the card's tables", item);
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

std::string Card::State::changedPrograms(const Psi &before) const {
  std::vector<std::string> changed;
  for (const PsiProgram &program : builtFrom.programs) {
    const auto same = std::find(before.programs.begin(), before.programs.end(), program);
    if (same == before.programs.end()) {
      changed.push_back("PMT of " + programText(program.number, nameOf(program.number)) +
                        " version " + std::to_string(program.version));
    }
  }
  const std::string count = std::to_string(builtFrom.programs.size()) + " programs";
  return changed.empty() ? count : count + ", new: " + joined(changed);
}

void Card::State::tellProgramsChanged() {
  if (listener) {
    listener(slot);
  }
}

Card::Card(std::uint32_t slot, Events &events, Files &files)
    : state_(std::make_unique<State>(slot, events, files)) {}

Card::~Card() {
  state_->files.forget(state_->streamName);
  state_->files.forget(state_->outputName);
}

void Card::State::begin(std::unique_ptr<PacketSource> packets, const std::string &name,
                        std::uint64_t nowMs) {
  if (source != nullptr) {
    remove();
  }
  ++insertions;
  source = std::move(packets);
  sourceName = name;
  unreadable = false;
  transportErrors = 0;
  fpga.start(nowMs);
}

void Card::insert(const std::string &path, std::uint64_t bitrate, std::uint64_t nowMs) {
  State &state = *state_;
  state.files.checkReading(state.streamName, path);
  const GoOn goOn = [&state](const Progress &progress) { return state.files.goesOn(progress); };
  StreamScan scan = scanStream(path, bitrate, goOn);
  auto source = std::make_unique<FileSource>(
      path, FileSource::Pace{scan.bitrate, scan.ccStep, nowMs, FileSource::Repeat::InALoop}, goOn);
  state.begin(std::move(source), path, nowMs);
  state.psi = std::move(scan.psi);
  state.files.read(state.streamName, path);
  state.streamPids = scan.pids;
  state.bitrate = scan.bitrate;
  state.rebuildTables();
  if (scan.skippedBytes > 0) {
    state.tell(EventKind::StreamDamaged, "the stream is damaged",
               std::to_string(scan.skippedBytes) + " bytes of '" + path + "' are in no packet",
               {{"path", path}, {"bytes", scan.skippedBytes}});
  }
}

void Card::insertLive(std::unique_ptr<PacketSource> source, const std::string &name,
                      std::uint64_t nowMs) {
  State &state = *state_;
  state.begin(std::move(source), name, nowMs);
  state.psi = std::make_unique<PsiReader>();
  state.live = true;
  state.liveSinceMs = nowMs;
  state.watch.start(nowMs);
  state.losses = LossWatch();
  state.losses.start(nowMs);
  state.rebuildTables();
}

void Card::insertProbe(ProbeInputs inputs, std::uint64_t nowMs) {
  State &state = *state_;
  insertLive(std::move(inputs.before), inputs.name, nowMs);
  state.watch = StreamWatch("what goes into the receiver");
  state.watch.start(nowMs);
  state.losses = LossWatch("what goes into the receiver");
  state.losses.start(nowMs);
  state.behindName = inputs.behindName;
  state.probe = std::make_unique<ProbePath>(state.fpga, std::move(inputs.behind),
                                            std::move(inputs.numbers), teller());
  state.probedPrograms = std::move(inputs.programs);
  state.fpga.observed = true;
  state.followProbe();
}

std::vector<std::uint16_t> Card::probedCaSystems() const {
  std::vector<std::uint16_t> casids;
  const auto add = [&casids](const std::vector<PsiCa> &descriptors) {
    for (const PsiCa &ca : descriptors) {
      if (std::find(casids.begin(), casids.end(), ca.casid) == casids.end()) {
        casids.push_back(ca.casid);
      }
    }
  };
  for (const PsiProgram &program : state_->builtFrom.programs) {
    if (state_->isProbed(program)) {
      add(program.ca);
      std::for_each(program.streams.begin(), program.streams.end(),
                    [&add](const PsiStream &stream) { add(stream.ca); });
    }
  }
  return casids;
}

bool Card::probing() const {
  return state_->probe != nullptr;
}

const std::string &Card::behindName() const {
  return state_->behindName;
}

const SourceCounters &Card::countersBehind() const {
  static const SourceCounters none;
  return probing() ? state_->probe->source().counters() : none;
}

std::size_t Card::unmatchedStreams() const {
  return probing() ? state_->probe->unmatched() : 0;
}

bool Card::ended() const {
  return inserted() && (state_->source->ended() || (probing() && state_->probe->ended()));
}

Tell Card::teller(const std::string &whose) {
  return [this, whose](Event event) {
    event.what += whose;
    state_->tellAtCard(event);
  };
}

void Card::remove() {
  state_->remove();
}

bool Card::inserted() const {
  return state_->source != nullptr;
}

std::uint32_t Card::insertions() const {
  return state_->insertions;
}

namespace {

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

bool Card::assign(std::uint16_t program, std::uint8_t camMask) {
  State &state = *state_;
  const std::string name = "program " + std::to_string(program);
  requireCard(*this, name, state.slot);
  const ProgramInfo *known = this->program(program);
  requireMask(name, camMask);
  if (known != nullptr && known->camMask == camMask) {
    state.masks[program] = camMask;
    return true;
  }
  state.masks[program] = camMask;
  if (known != nullptr) {
    state.rebuildTables();
    state.tellProgramsChanged();
  }
  return known != nullptr;
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

void Card::setFault(CardFault fault, bool on) {
  if (fault == CardFault::Masked) {
    state_->fpga.alarmMask.fill(on);
  } else {
    state_->fpga.faults.set(static_cast<std::size_t>(fault), on);
  }
}

void Card::setAlarmMask(std::uint32_t camSlot, bool on) {
  if (camSlot < MAX_CAM_NUM) {
    state_->fpga.alarmMask[camSlot] = on;
  }
}

void Card::setPidFault(PidFault fault, std::uint16_t pid, bool on) {
  state_->pidFaults.set(fault, pid, on);
}

void Card::setCam(std::uint32_t camSlot, Cam *cam) {
  if (camSlot < MAX_CAM_NUM) {
    state_->chain.setCam(camSlot, cam);
  }
}

void Card::setOutput(std::unique_ptr<PacketSink> output) {
  state_->chain.setOutput(std::move(output));
}

const std::string &Card::outputName() const {
  return state_->outputName;
}

std::string Card::endOutput() {
  State &state = *state_;
  const auto ended = state.chain.endOutput();
  if (ended == nullptr) {
    return "";
  }
  state.files.forget(state.outputName);
  state.endedOutput = figuresOf(*ended);
  return lossText(ended->name(), state.outputName,
                  std::to_string(ended->lostPackets()) + " packets", ended->trouble());
}

void Card::onProgramsChanged(std::function<void(std::uint32_t)> listener) {
  state_->listener = std::move(listener);
}

void Card::publishTables() {
  state_->tables = state_->nextTables;
}

const std::vector<ProgramInfo> &Card::programs() const {
  return state_->programs;
}

std::uint64_t Card::bitrate() const {
  return state_->live ? std::uint64_t{state_->fpga.before.rateOfAll()} * 1000 : state_->bitrate;
}

bool Card::live() const {
  return state_->live;
}

bool Card::silent() const {
  return state_->live && state_->watch.silent();
}

const std::string &Card::streamName() const {
  return state_->sourceName;
}

const SourceCounters &Card::counters() const {
  static const SourceCounters none;
  return inserted() ? state_->source->counters() : none;
}

Card::OutputFigures Card::output() const {
  const PacketSink *output = state_->chain.output();
  return output != nullptr ? figuresOf(*output) : state_->endedOutput;
}

bool Card::carries(std::uint16_t pid) const {
  return state_->live ? state_->fpga.before.evidence(pid).packets > 0
                      : state_->streamPids.test(pid);
}

std::uint64_t Card::transportErrors() const {
  return state_->transportErrors;
}

const PidEvidence &Card::before(std::uint16_t pid) const {
  return state_->fpga.before.evidence(pid);
}

const PidEvidence &Card::behind(std::uint16_t pid) const {
  state_->chain.settle();
  return state_->fpga.behind.evidence(pid);
}

CiDesc *Card::descTable() {
  return inserted() ? &state_->tables.desc : nullptr;
}

InPortForm *Card::inPortForm() {
  return inserted() ? &state_->tables.inPort : nullptr;
}

MuxCardForm *Card::muxForm() {
  return inserted() ? &state_->tables.mux : nullptr;
}

Card::Fpga &Card::fpga() {
  state_->chain.settle();
  return state_->fpga;
}

}  // namespace chassis
