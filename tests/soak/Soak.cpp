// Sixty days of six cards with two CAMs each, one cycle and one alarm check per card and step,
// through the wrap of the clock, with random faults. SOAK_SEED chooses the faults, SOAK_STEP ends
// the run at a step, SOAK_DAYS and SOAK_PERIOD_MS change its length.
#include <cstdio>
#include <cstdlib>
#include <random>

#include "Memory.h"
#include "World.h"

namespace {

constexpr uint32_t dayMs = 86400000;
constexpr uint32_t cycleMs = 1000;
constexpr uint32_t recoveryMs = 600000;

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
      changeCard(world.card[below(MAX_BOARD_NUM)]);
    }
    if (oneIn(10)) {
      const uint32_t slotNo = below(MAX_BOARD_NUM);
      changeCam(slotNo, below(MAX_CAM_NUM));
    }
    if (oneIn(50)) {
      world.addFails = oneIn(3);
      world.deleteFails = oneIn(3);
      world.sendFails = oneIn(3);
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

  void changeCam(uint32_t slotNo, uint32_t camSlot) {
    CamWorld &cam = world.card[slotNo].cam[camSlot];
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
        lean::wantCaPmt(slotNo, camSlot);
        break;
      default:
        cam.failing = oneIn(2) ? static_cast<uint8_t>(below(4)) : 0;
        break;
    }
  }

  std::mt19937_64 random_;
};

// How to come here again.
uint64_t seed;
uint32_t step;

[[noreturn]] void broken(const char *rule, uint32_t slotNo, uint32_t camSlot) {
  std::printf("BROKEN: %s, card %u, %u; SOAK_SEED=%llu SOAK_STEP=%u\n", rule, slotNo, camSlot,
              static_cast<unsigned long long>(seed), step);
  std::exit(1);
}

void ruleBroken(rules::Rule rule, uint32_t slotNo, uint32_t camSlot) {
  broken(rules::text(rule), slotNo, camSlot);
}

void require(bool holds, const char *rule) {
  if (!holds) {
    broken(rule, 0, 0);
  }
}

// The rules go by the limits that stand in the module; here they are as delivered.
void expectLimits() {
  require(TIME_CAPMT == 10000 && TIME_FIRST_RESET == 30000 && TIME_RESET == 300000 &&
              TIME_PART_RESET == 30000 && TIME_NO_RESET == 5000,
          "another limit than delivered");
}

// A run in which something never happens proves nothing of it.
void expectEverySort(const rules::Counts &counts) {
  for (const uint64_t count : {counts.caPmts, counts.queries, counts.resets, counts.partialResets,
                               counts.raised, counts.cleared}) {
    require(count != 0, "something never happened");
  }
}

// The module takes one record per card when it starts, and nothing after that: what is held on the
// heap stays the same to the byte. Pages may still be touched for the first time behind the first
// day, by a path that is rarely taken, but no more than this: a loss of a byte in 400 cycles of a
// card would show.
class MemoryWatch {
 public:
  MemoryWatch() : heap_(memoryNow().heap) {
    require(rules::counts.records == MAX_BOARD_NUM, "not one record per card");
  }

  void dayEnds() {
    last_ = memoryNow();
    firstDay_ = days_++ == 0 ? last_.anonymous : firstDay_;
    require(last_.heap == heap_, "the heap grows");
    require(last_.anonymous != 0, "pages cannot be counted");
    require(last_.anonymous <= firstDay_ + newPages, "memory grows");
  }

  void print() const {
    std::printf(
        "%u days, %u card records, %zu bytes on the heap since the start, "
        "%zu KiB of pages after a day, %zu KiB at the end\n",
        days_, static_cast<unsigned>(rules::counts.records), heap_, firstDay_ / 1024,
        last_.anonymous / 1024);
  }

 private:
  static constexpr size_t newPages = 65536;

  size_t heap_;
  size_t firstDay_ = 0;
  Memory last_ = {};
  uint32_t days_ = 0;
};

// A person looks at a program or one of its PIDs now and then.
void askStatus() {
  const uint32_t program = step / 7 % table.descProgCnt;
  const uint32_t stream = step / 21 % table.prog[program].eleNum;
  const uint32_t pid = step % 2 == 0 ? 0u : table.prog[program].ele[stream].pid;
  lean::askStatus(step % MAX_BOARD_NUM, program << 16 | pid);
}

void runStep(uint32_t periodMs) {
  const uint32_t begun = lean::now;
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    lean::supervise(slotNo, table);
  }
  askStatus();
  // CA PMTs wait; a step that waited longer than the period is followed at once.
  if (lean::now - begun < periodMs) {
    lean::now = begun + periodMs;
  }
}

// With all well again the module has to find it so, and to let its alarms go.
void expectRecovery(uint32_t periodMs) {
  world = World();
  const uint32_t begun = lean::now;
  while (lean::now - begun < recoveryMs) {
    runStep(periodMs);
  }
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    require(!rules::anyAlarm(slotNo), "an alarm outlives its fault");
    for (const uint8_t summary : pCiData[slotNo]->descStat) {
      require(summary == DESC_SUM_OK, "programs stay scrambled");
    }
  }
}

void printCounts(uint32_t wraps) {
  const rules::Counts &counts = rules::counts;
  const auto number = [](uint64_t count) { return static_cast<unsigned long long>(count); };
  std::printf(
      "%u steps, %u wraps, %llu CA PMTs, %llu queries, %llu resets, %llu partial, "
      "%llu alarms raised, %llu cleared, %llu PIDs read\n",
      step, wraps, number(counts.caPmts), number(counts.queries), number(counts.resets),
      number(counts.partialResets), number(counts.raised), number(counts.cleared),
      number(counts.pidsRead));
}

struct Run {
  uint64_t elapsed = 0;
  uint32_t wraps = 0;
};

Run play(uint64_t lengthMs, uint64_t lastStep, uint32_t periodMs, MemoryWatch &memory) {
  Faults faults(seed);
  Run run;
  for (uint64_t dayEnd = dayMs; run.elapsed < lengthMs && step < lastStep;) {
    ++step;
    faults.change();
    const uint32_t before = lean::now;
    runStep(periodMs);
    run.elapsed += lean::now - before;
    run.wraps += lean::now < before;
    if (run.elapsed >= dayEnd) {
      memory.dayEnds();
      dayEnd += dayMs;
    }
  }
  return run;
}

}  // namespace

int main() {
  seed = setting("SOAK_SEED", std::random_device()());
  const uint64_t lastStep = setting("SOAK_STEP", ~0ull);
  const uint64_t lengthMs = setting("SOAK_DAYS", 60) * dayMs;
  const uint32_t periodMs = static_cast<uint32_t>(setting("SOAK_PERIOD_MS", cycleMs));
  std::printf("SOAK_SEED=%llu\n", static_cast<unsigned long long>(seed));
  std::fflush(stdout);
  countSinglePages();
  lean::now = 0u - static_cast<uint32_t>(lengthMs / 2);  // wraps half-way
  startWorld(ruleBroken);
  expectLimits();
  MemoryWatch memory;
  const Run done = play(lengthMs, lastStep, periodMs, memory);
  if (done.elapsed >= dayMs) {
    expectEverySort(rules::counts);
  }
  expectRecovery(periodMs);
  printCounts(done.wraps);
  memory.print();
  return 0;
}
