#include "card/Card.h"

#include <utility>

#include "card/CardState.h"
#include "card/StreamScan.h"
#include "io/FileSource.h"

namespace chassis {

namespace {

Card::OutputFigures figuresOf(const PacketSink &output) {
  const Lateness *lateness = output.lateness();
  return {output.name(), output.writtenPackets(), output.lostPackets(),
          lateness != nullptr ? std::optional(*lateness) : std::nullopt};
}

}  // namespace

Card::State::State(std::uint32_t slotNo, Events &receiver, Files &filesOfAll)
    : slot(slotNo),
      events(receiver),
      files(filesOfAll),
      streamName("the stream of slot " + std::to_string(slotNo)),
      outputName("the output of slot " + std::to_string(slotNo)),
      chain(slotNo, fpga, [this](const PacketSink &output) { tellTrouble(output); }) {}

void Card::State::tell(Facts facts) {
  events.tell({{static_cast<int>(slot), -1}, std::move(facts)});
}

void Card::State::remove() {
  chain.settle();
  source.reset();
  psi.reset();
  masks.clear();
  othersMask = 0;
  probe.reset();
  probed = {};
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
    state.tell(event::StreamDamaged{path, scan.skippedBytes});
  }
}

void Card::State::beginLive(std::unique_ptr<PacketSource> packets, const std::string &name,
                            std::uint64_t nowMs) {
  begin(std::move(packets), name, nowMs);
  psi = std::make_unique<PsiReader>();
  live = true;
  liveSinceMs = nowMs;
  watch.start(nowMs);
  losses.start(nowMs);
  seams = {};
  rebuildTables();
}

void Card::insertLive(std::unique_ptr<PacketSource> source, const std::string &name,
                      std::uint64_t nowMs) {
  state_->beginLive(std::move(source), name, nowMs);
}

bool Card::ended() const {
  return inserted() && (state_->source->ended() || (probing() && state_->probe->ended()));
}

Tell Card::teller(Side side) {
  return [this, side](const Event &event) { state_->tellAtCard(event, side); };
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

bool Card::letGoOutput() {
  return state_->chain.letGoOutput();
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
