#include <benchmark/benchmark.h>

#include <string>

#include "Cases.h"

namespace {

void time(benchmark::State &state, const Load &load, void (*call)()) {
  loadCard(0, load);
  camStatusCheck(0);
  for (auto _ : state) {
    call();
  }
}

// Growth: programs, streams, cards.
void cycles(benchmark::State &state, const Load &load, std::uint32_t cards) {
  for (std::uint32_t slotNo = 0; slotNo < cards; ++slotNo) {
    loadCard(slotNo, load);
  }
  for (auto _ : state) {
    for (std::uint32_t slotNo = 0; slotNo < cards; ++slotNo) {
      camStatusCheck(static_cast<std::uint8_t>(slotNo));
    }
  }
}

void addGrowth(const std::string &axis, std::uint32_t value, const Load &load,
               std::uint32_t cards) {
  benchmark::RegisterBenchmark(("growth/" + axis + "/" + std::to_string(value)).c_str(),
                               [load, cards](benchmark::State &s) { cycles(s, load, cards); });
}

}  // namespace

int main(int argc, char **argv) {
  for (const Case &each : cases) {
    const std::string name = each.name;
    benchmark::RegisterBenchmark((name + "/module").c_str(),
                                 [&each](benchmark::State &s) { time(s, each.load, each.module); });
    benchmark::RegisterBenchmark((name + "/floor").c_str(),
                                 [&each](benchmark::State &s) { time(s, each.load, each.floor); });
  }
  for (std::uint32_t n = 4; n <= listMax; n += 4) {
    addGrowth("programs", n, {n, 32, 32, true, true}, 1);
    addGrowth("streams", n, {32, n, 32, true, true}, 1);
  }
  for (std::uint32_t n = 1; n <= MAX_BOARD_NUM; ++n) {
    addGrowth("cards", n, {32, 32, 32, true, true}, n);
  }
  benchmark::Initialize(&argc, argv);
  return benchmark::RunSpecifiedBenchmarks() == 0;
}
