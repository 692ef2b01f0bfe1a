#include "card/ProbePath.h"

#include <bitstream/mpeg/ts.h>

#include <algorithm>
#include <utility>

#include "ts/PacketView.h"

namespace chassis {

namespace {

constexpr std::uint64_t absentMs = 5000;
constexpr std::uint64_t presentMs = 1000;

}  // namespace

ProbePath::ProbePath(Card::Fpga &fpga, std::unique_ptr<PacketSource> behind, ProgramNumbers numbers,
                     Tell tell)
    : fpga_(fpga),
      source_(std::move(behind)),
      numbers_(std::move(numbers)),
      tell_(std::move(tell)) {
  watch_.start(fpga.nowMs);
  losses_.start(fpga.nowMs);
}

void ProbePath::endStep() {
  std::size_t left = source_->due(fpga_.nowMs);
  TsPacket packet;
  std::uint64_t cameNs = 0;
  bool came = false;
  seams_.beginStep(watch_.silent());
  for (; left > 0 && source_->next(packet, cameNs); --left) {
    came = true;
    if (seams_.at(source_->beginnings())) {
      fpga_.behind.forgetContinuity();
    }
    takeOne(packet);
  }
  if (came && !std::exchange(begun_, true)) {
    begunMs_ = fpga_.nowMs;
  }
  learn();
  for (const auto &event :
       {watch_.step(fpga_.nowMs, came), losses_.step(fpga_.nowMs, source_->counters())}) {
    if (event) {
      tell_(*event);
    }
  }
}

// What is nothing of the programs before counts as null packets: its rate alone matters.
void ProbePath::takeOne(TsPacket &packet) {
  const PacketView view(packet);
  if (view.transportError()) {
    ++transportErrors_;
    return;
  }
  psi_.push(packet);
  ts_set_pid(packet.data(), match_.before[view.pid()]);
  fpga_.behind.count(packet, fpga_.nowMs);
}

void ProbePath::learn() {
  known_ = known_ || psi_.complete() ||
           (begun_ && psi_.patSeen() && fpga_.nowMs - begunMs_ >= learningMs);
}

bool ProbePath::match(const Psi &before, const ServiceNames &names) {
  if (!known_) {
    return false;
  }
  psiChanges_ = psi_.changes();
  matched_ = true;
  matchedMs_ = fpga_.nowMs;
  const PidMatch old = std::exchange(match_, matchPids(before, psi_.psi(), numbers_));
  forgetMoved(old);
  tellUnmatched(old, names);
  return match_.missing != old.missing || !(match_.unmatched == old.unmatched);
}

bool ProbePath::nothingBehind(const PsiProgram &program) const {
  const auto seen = [&program](const PidMeter &meter, std::uint64_t sinceMs) {
    return std::any_of(program.streams.begin(), program.streams.end(),
                       [&](const PsiStream &stream) {
                         const PidEvidence &evidence = meter.evidence(stream.pid);
                         return evidence.packets > 0 && evidence.lastSeenMs >= sinceMs;
                       });
  };
  const std::uint64_t nowMs = fpga_.nowMs;
  return matched_ && nowMs - matchedMs_ >= absentMs && seen(fpga_.before, nowMs - presentMs) &&
         !seen(fpga_.behind, nowMs - absentMs);
}

// A PID that is another one now begins anew: its counters do not go on.
void ProbePath::forgetMoved(const PidMatch &before) {
  for (std::uint16_t pid = 0; pid < pidCount; ++pid) {
    if (match_.before[pid] != before.before[pid] && match_.before[pid] != nullPid) {
      fpga_.behind.forgetContinuity(match_.before[pid]);
    }
  }
}

void ProbePath::tellUnmatched(const PidMatch &before, const ServiceNames &names) {
  event::StreamsUnmatched facts;
  for (const UnmatchedStream &stream : match_.unmatched) {
    facts.add(stream.program, names.of(stream.program).name, stream.pid, stream.type);
  }
  if (!facts.pids.empty() && !(match_.unmatched == before.unmatched)) {
    tell_({{}, facts});
  }
}

}  // namespace chassis
