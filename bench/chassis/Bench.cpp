// What the packets of the chassis cost, in items per second of CPU time, beside what they must
// cost: reading them, and libdvbcsa at its best.
#include <benchmark/benchmark.h>
#include <dvbcsa/dvbcsa.h>

#include <fstream>
#include <stdexcept>
#include <vector>

#include "CardRig.h"
#include "FullChassis.h"
#include "ts/TsFile.h"

namespace {

using chassis::tsPacketSize;

constexpr std::uint64_t secondMs = 1000;
constexpr std::size_t readAtOnce = 1024 * tsPacketSize;

void setPackets(benchmark::State &state, std::uint64_t packets) {
  state.SetItemsProcessed(static_cast<std::int64_t>(packets));
}

void readPlainly(benchmark::State &state) {
  std::vector<char> buffer(readAtOnce);
  std::uint64_t bytes = 0;
  for (auto _ : state) {
    std::ifstream file(streamPath, std::ios::binary);
    while (file.read(buffer.data(), readAtOnce) || file.gcount() > 0) {
      bytes += static_cast<std::uint64_t>(file.gcount());
      benchmark::DoNotOptimize(buffer.data());
    }
  }
  setPackets(state, bytes / tsPacketSize);
}

void readPackets(benchmark::State &state) {
  std::uint64_t packets = 0;
  for (auto _ : state) {
    chassis::TsFile file(streamPath);
    chassis::TsPacket packet;
    while (file.next(packet)) {
      benchmark::DoNotOptimize(packet);
    }
    packets += file.packets();
  }
  setPackets(state, packets);
}

// Full batches of the longest payloads: as good as a user of the library gets.
void decryptFullBatches(benchmark::State &state) {
  constexpr unsigned payloadSize = 184;
  const unsigned count = dvbcsa_bs_batch_size();
  std::vector<std::uint8_t> payloads(count * payloadSize, 0x5A);
  std::vector<dvbcsa_bs_batch_s> batch;
  for (unsigned i = 0; i < count; ++i) {
    batch.push_back({&payloads[i * payloadSize], payloadSize});
  }
  batch.push_back({nullptr, 0});
  dvbcsa_bs_key_t *key = dvbcsa_bs_key_alloc();
  constexpr dvbcsa_cw_t word = {1, 2, 3, 6, 4, 5, 6, 15};
  dvbcsa_bs_key_set(word, key);
  for (auto _ : state) {
    dvbcsa_bs_decrypt(key, batch.data(), payloadSize);
  }
  dvbcsa_bs_key_free(key);
  setPackets(state, state.iterations() * count);
  state.counters["batch"] = count;
}

// A rate is of no use when the CAMs did not do what it is the rate of.
void check(const Traffic &traffic, bool descrambled) {
  const std::uint64_t expected = descrambled ? 0 : traffic.scrambled;
  if (traffic.scrambled == 0 || traffic.left != expected || traffic.noise != 0) {
    throw std::runtime_error(std::to_string(traffic.left) + " of " +
                             std::to_string(traffic.scrambled) +
                             " scrambled packets left the CAMs as they were, " +
                             std::to_string(traffic.noise) + " PIDs carry noise");
  }
}

template <typename Rig>
void flow(benchmark::State &state, Rig &rig, bool descrambled) {
  const Traffic before = rig.traffic();
  for (auto _ : state) {
    rig.run(secondMs);
  }
  const Traffic traffic = since(before, rig.traffic());
  check(traffic, descrambled);
  setPackets(state, traffic.packets);
  state.counters["scrambled"] =
      static_cast<double>(traffic.scrambled) / static_cast<double>(traffic.packets);
}

void flowClear(benchmark::State &state) {
  CardRig rig(false);
  flow(state, rig, false);
}

void flowDescrambled(benchmark::State &state) {
  CardRig rig(true);
  const chassis::DescramblerWork before = rig.work();
  flow(state, rig, true);
  const chassis::DescramblerWork work = rig.work() - before;
  const auto payloads = static_cast<double>(work.inBatches + work.singly);
  state.counters["fill"] = static_cast<double>(work.inBatches) / static_cast<double>(work.batches);
  state.counters["singly"] = static_cast<double>(work.singly) / payloads;
}

// One chassis for all repetitions: the module takes long to bring twelve CAMs up.
void flowAll(benchmark::State &state) {
  static FullChassis chassis;
  flow(state, chassis, true);
}

}  // namespace

BENCHMARK(readPlainly)->Name("read/plain");
BENCHMARK(readPackets)->Name("read/TsFile");
BENCHMARK(decryptFullBatches)->Name("csa/full");
BENCHMARK(flowClear)->Name("card/clear");
BENCHMARK(flowDescrambled)->Name("card/descrambled");
BENCHMARK(flowAll)->Name("chassis/second")->Iterations(2);

BENCHMARK_MAIN();
