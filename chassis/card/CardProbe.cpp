// A card with a receiver elsewhere between its meters: which of its programs can be judged.
#include <algorithm>
#include <iterator>
#include <utility>

#include "base/Text.h"
#include "card/CardState.h"

namespace chassis {

namespace {

bool hasCa(const PsiProgram &program) {
  return !program.ca.empty() ||
         std::any_of(program.streams.begin(), program.streams.end(),
                     [](const PsiStream &stream) { return !stream.ca.empty(); });
}

}  // namespace

void Card::insertProbe(ProbeInputs inputs, std::uint64_t nowMs) {
  State &state = *state_;
  state.beginLive(std::move(inputs.before), inputs.name, nowMs);
  state.probed.programs = std::move(inputs.programs);
  state.probed.behindName = inputs.behindName;
  state.probed.unaligned = inputs.unaligned;
  state.probe = std::make_unique<ProbePath>(state.fpga, std::move(inputs.behind),
                                            std::move(inputs.numbers), teller(Side::Behind));
  state.fpga.observed = true;
  state.followProbe();
}

bool Card::probing() const {
  return state_->probe != nullptr;
}

const std::string &Card::behindName() const {
  return state_->probed.behindName;
}

const SourceCounters &Card::countersBehind() const {
  static const SourceCounters none;
  return probing() ? state_->probe->source().counters() : none;
}

std::size_t Card::unmatchedStreams() const {
  return probing() ? state_->probe->unmatched() : 0;
}

bool Card::unaligned() const {
  return state_->probed.unaligned;
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

bool Card::State::isProbed(const PsiProgram &program) const {
  const auto &wanted = probed.programs;
  return probe != nullptr && hasCa(program) &&
         (wanted.empty() ||
          std::find(wanted.begin(), wanted.end(), program.number) != wanted.end());
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
  return probed.silent.count(program.number) != 0 ? ProbeState::NothingBehind : ProbeState::Judged;
}

// Programs that are to be judged, but do not go in.
void Card::State::tellAbsent() {
  if (stillLearning() || !psi->patSeen()) {
    return;
  }
  std::vector<std::uint16_t> absent;
  std::copy_if(probed.programs.begin(), probed.programs.end(), std::back_inserter(absent),
               [this](std::uint16_t number) { return find(number) == nullptr; });
  if (absent != probed.absent && !absent.empty()) {
    event::NoEffect facts{event::NoEffectReason::NotJudged, {}, {}, programNumbers()};
    for (const std::uint16_t number : absent) {
      facts.programs.add(number, "");
    }
    tell(facts);
  }
  probed.absent = absent;
}

// Programs of which nothing comes out are none of the CAM's. True: others than before.
bool Card::State::followSilentPrograms() {
  std::set<std::uint16_t> silent;
  for (const PsiProgram &program : builtFrom.programs) {
    if (isProbed(program) && probe->nothingBehind(program)) {
      silent.insert(program.number);
    }
  }
  return std::exchange(probed.silent, silent) != silent;
}

// Without one of its inputs nothing can be said of a receiver: the card is busy until it is back.
void Card::State::followProbe() {
  if (probe == nullptr) {
    return;
  }
  fpga.inputLost = watch.silent() || probe->silent() || !probe->known();
  if (followSilentPrograms()) {
    rebuildTables();
    tellProgramsChanged();
  }
  if (probe->mustMatch() && probe->match(psi->psi(), psi->services())) {
    rebuildTables();
    tellProgramsChanged();
  }
  tellAbsent();
  for (std::size_t i = 0; i < programs.size(); ++i) {
    programs[i].probe = probeStateOf(builtFrom.programs[i]);
  }
}

}  // namespace chassis
