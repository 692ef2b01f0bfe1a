// Sixty days of six cards with two CAMs each, one cycle and one alarm check per card and step,
// through the wrap of the clock, with random faults. SOAK_SEED chooses the faults, SOAK_STEP ends
// the run at a step, SOAK_DAYS and SOAK_PERIOD_MS change its length.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "LeanPlatform.h"
#include "Rules.h"

namespace {

constexpr uint32_t DAY_MS = 86400000;
constexpr uint32_t CYCLE_MS = 1000;

uint64_t setting(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

class Faults {
 public:
  explicit Faults(uint64_t seed) : random_(seed) {}

  // A few of the conditions change; each is good most of the time.
  void change() {
    if (oneIn(40)) {
      changeCard(chassis.card[below(MAX_BOARD_NUM)]);
    }
    if (oneIn(10)) {
      changeCam(chassis.card[below(MAX_BOARD_NUM)].cam[below(MAX_CAM_NUM)]);
    }
    if (oneIn(50)) {
      chassis.addFails = oneIn(3);
      chassis.delFails = oneIn(3);
      chassis.sendFails = oneIn(3);
    }
  }

 private:
  uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }
  bool oneIn(uint32_t chances) { return below(chances) == 0; }

  void changeCard(CardWorld &card) {
    bool *const conditions[] = {&card.online, &card.ready, &card.table, &card.form,
                                &card.sync,   &card.fast,  &card.locked};
    *conditions[below(7)] = !oneIn(12);
    card.busy = oneIn(20);
  }

  void changeCam(World &cam) {
    switch (below(9)) {
      case 0:
        cam.inserted = oneIn(8) ? static_cast<uint8_t>(below(3)) : 1;
        break;
      case 1:
        cam.declares = !oneIn(10);
        break;
      case 2:
        cam.masked = oneIn(4);
        break;
      case 3:
        cam.ecmPresent = !oneIn(6);
        cam.ecmErrors = oneIn(6);
        break;
      case 4:
        cam.refuses = oneIn(6);
        break;
      case 5:
        cam.unreadable = oneIn(6) ? static_cast<uint8_t>(below(4)) : 0;
        break;
      case 6:
        cam.flag = true;
        break;
      default:
        cam.failing = oneIn(2) ? static_cast<uint8_t>(below(4)) : 0;
        break;
    }
  }

  std::mt19937_64 random_;
};

size_t heapInUse() {
  return mallinfo2().uordblks;
}

// A run in which something never happens proves nothing of it.
void expectEverySort(const rules::Counts &counts) {
  for (const uint64_t count : {counts.caPmts, counts.queries, counts.resets, counts.partialResets,
                               counts.raised, counts.cleared}) {
    if (count == 0) {
      rules::broken("something never happened", 0, 0);
    }
  }
}

void runStep(uint32_t periodMs) {
  const uint32_t begun = chassis.now;
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    camStatusCheck(static_cast<uint8_t>(slotNo));
    rules::cycleEnded(slotNo);
    camAlarm(slotNo);
  }
  // CA PMTs wait; a step that waited longer than the period is followed at once.
  if (chassis.now - begun < periodMs) {
    chassis.now = begun + periodMs;
  }
}

}  // namespace

int main() {
  rules::seed = setting("SOAK_SEED", std::random_device()());
  const uint64_t lastStep = setting("SOAK_STEP", ~0ull);
  const uint64_t days = setting("SOAK_DAYS", 60);
  const uint32_t periodMs = static_cast<uint32_t>(setting("SOAK_PERIOD_MS", CYCLE_MS));
  std::printf("SOAK_SEED=%llu\n", static_cast<unsigned long long>(rules::seed));
  std::fflush(stdout);
  chassis.now = 0u - static_cast<uint32_t>(days * DAY_MS / 2);  // wraps half-way
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerLeanCard(slotNo);
  }
  ciTskInit();
  Faults faults(rules::seed);
  const uint32_t allocations = chassis.allocations;
  const size_t heap = heapInUse();
  uint32_t wraps = 0;
  uint64_t elapsed = 0;
  while (elapsed < days * DAY_MS && rules::step < lastStep) {
    ++rules::step;
    faults.change();
    const uint32_t before = chassis.now;
    runStep(periodMs);
    elapsed += chassis.now - before;
    wraps += chassis.now < before;
  }
  if (chassis.allocations != allocations || heapInUse() != heap) {
    rules::broken("memory grows", 0, 0);
  }
  if (elapsed >= DAY_MS) {
    expectEverySort(rules::counts);
  }
  std::printf(
      "%u steps, %u wraps, %llu CA PMTs, %llu queries, %llu resets, %llu partial, "
      "%llu alarms raised, %llu cleared, %llu PIDs read\n",
      rules::step, wraps, static_cast<unsigned long long>(rules::counts.caPmts),
      static_cast<unsigned long long>(rules::counts.queries),
      static_cast<unsigned long long>(rules::counts.resets),
      static_cast<unsigned long long>(rules::counts.partialResets),
      static_cast<unsigned long long>(rules::counts.raised),
      static_cast<unsigned long long>(rules::counts.cleared),
      static_cast<unsigned long long>(chassis.calls));
  return 0;
}
