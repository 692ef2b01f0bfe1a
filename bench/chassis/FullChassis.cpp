#include "FullChassis.h"

namespace {

constexpr std::uint64_t warmUpMs = 20000;  // the module sends the CAMs' CA PMTs one by one

}  // namespace

FullChassis::FullChassis() {
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    chassis_.rack().cardInsert(slot, streamPath, cardBitrate);
    const std::vector<chassis::ProgramInfo> programs = chassis_.card(slot).programs();
    for (std::size_t i = 0; i < programs.size(); ++i) {
      chassis_.rack().progAssign(slot, programs[i].number, i < programs.size() / 2 ? 1 : 2);
    }
    chassis_.rack().camInsert(slot, 0, {0x0500});
    chassis_.rack().camInsert(slot, 1, {0x0500});
  }
  run(warmUpMs);
}

// Like the program, in short steps. What was put off belongs to the time.
void FullChassis::run(std::uint64_t ms) {
  for (const std::uint64_t end = clock_.elapsedMs() + ms; clock_.elapsedMs() < end;) {
    chassis_.run(clock_.elapsedMs() + chassis::Clock::msPerTick, *this);
  }
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    chassis_.card(slot).behind(0);
  }
}

Traffic FullChassis::traffic() {
  Traffic sum;
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    sum = sum + trafficOf(chassis_.card(slot));
  }
  return sum;
}
