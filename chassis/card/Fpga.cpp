#include "card/Fpga.h"

#include <algorithm>

namespace chassis {

namespace {

constexpr std::uint64_t silenceMs = 5000;
constexpr std::uint32_t lowRateDivisor = 10;
constexpr std::uint32_t soundKbit = 1000;  // more than the least at which a controller works
constexpr std::uint32_t anyPidType = 0xFF;

enum DescState : std::uint32_t { Descrambled = 0, Scrambled = 1, NoPes = 2, NotRead = 0xFF };

}  // namespace

void Card::Fpga::start(std::uint64_t startMs) {
  before.restart(startMs);
  behind.restart(startMs);
  passing.set();
  selected_ = nullPid;
  pll_ = 0;
  insertedMs = nowMs = startMs;
  inserted = true;
}

void Card::Fpga::stop() {
  before.restart(nowMs);
  behind.restart(nowMs);
  setAvPids({});
  faults.reset();
  alarmMask.fill(false);
  inserted = observed = inputLost = false;
}

void Card::Fpga::setAvPids(const std::bitset<pidCount> &pids) {
  avPids = pids;
  before.watchPes(pids);
  behind.watchPes(pids);
}

std::uint32_t Card::Fpga::answer(CardFault fault, std::uint32_t good) const {
  return inserted && !has(fault) ? good : 0;
}

std::uint32_t Card::Fpga::rate(std::uint32_t kbit) const {
  return has(CardFault::RateLow) ? kbit / lowRateDivisor : kbit;
}

std::uint32_t Card::Fpga::systemRate(std::uint32_t kbit) const {
  return observed ? std::max(kbit, soundKbit) : rate(kbit);
}

std::int32_t Card::Fpga::writePll(std::uint32_t value) {
  pll_ = value;
  return static_cast<std::int32_t>(pll_);
}

void Card::Fpga::setPass(std::uint16_t pid, bool pass) {
  if (pid < pidCount) {
    passing.set(pid, pass);
  }
}

bool Card::Fpga::silent(const PidEvidence &evidence) const {
  return nowMs - std::max(evidence.lastSeenMs, insertedMs) >= silenceMs;
}

std::uint32_t Card::Fpga::descState(std::uint32_t pidType) const {
  const PidEvidence &evidence = behind.evidence(selected_);
  const bool avByPmt = selected_ < pidCount && avPids.test(selected_);
  const bool av = pidType == DESC_PID_TYPE_AV || (pidType == anyPidType && avByPmt);
  if (has(CardFault::FpgaError) || (av && silent(evidence))) {
    return NotRead;
  }
  if (evidence.lastScrambled) {
    return Scrambled;
  }
  return av && evidence.lastPesBad ? NoPes : Descrambled;
}

}  // namespace chassis
