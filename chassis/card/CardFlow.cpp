#include <algorithm>
#include <utility>

#include "card/CardState.h"
#include "kernel/Clock.h"
#include "ts/PacketView.h"

namespace chassis {

void Card::tick(std::uint64_t nowMs) {
  State &state = *state_;
  while (state.player && state.fpga.nowMs < nowMs) {
    state.step(std::min<std::uint64_t>(state.fpga.nowMs + Clock::msPerTick, nowMs));
  }
}

void Card::State::step(std::uint64_t nowMs) {
  fpga.nowMs = nowMs;
  takeDuePackets();
  passThroughCams();
  deliver();
  fpga.before.tick(nowMs);
  fpga.behind.tick(nowMs);
  followPsi();
}

void Card::State::takeDuePackets() {
  batch.clear();
  TsPacket packet;
  for (std::uint64_t due = player->due(fpga.nowMs); due > 0; --due) {
    if (!player->next(packet)) {
      if (!std::exchange(unreadable, true)) {
        report("the stream ended", "its file can no longer be read");
      }
      return;
    }
    if (pidFaults.apply(packet)) {
      psi->push(packet);
      fpga.before.count(packet, fpga.nowMs);
      batch.push_back(packet);
    }
  }
}

// The CAMs work on the packets in their places, so those that go around them rejoin in order.
void Card::State::passThroughCams() {
  throughCams.clear();
  for (TsPacket &packet : batch) {
    if (fpga.passing.test(PacketView(packet).pid())) {
      throughCams.push_back(&packet);
    }
  }
  for (Cam *cam : cams) {
    if (cam != nullptr) {
      cam->process(throughCams.data(), throughCams.size());
    }
  }
}

void Card::State::deliver() {
  for (const TsPacket &packet : batch) {
    fpga.behind.count(packet, fpga.nowMs);
  }
  if (!output.is_open() || batch.empty()) {
    return;
  }
  output.write(reinterpret_cast<const char *>(batch.data()),
               static_cast<std::streamsize>(batch.size() * tsPacketSize));
  if (!output) {
    endOutput();
  }
}

void Card::State::endOutput() {
  if (output.is_open()) {
    output.close();
    if (!output) {
      report("the output is not whole", "cannot write to '" + outputPath + "'");
    }
  }
  output.clear();
}

void Card::State::followPsi() {
  if (psi->changes() == psiChanges) {
    return;
  }
  const Psi before = builtFrom;
  rebuildTables();
  report("the stream's programs changed", changedPrograms(before));
  tellProgramsChanged();
}

}  // namespace chassis
