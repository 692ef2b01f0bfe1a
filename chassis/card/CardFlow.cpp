#include <algorithm>
#include <utility>

#include "card/CardState.h"
#include "kernel/Clock.h"
#include "ts/PacketView.h"

namespace chassis {

namespace {

// So many packets fill most of the batches; more hardly help, but leave a processor's cache.
constexpr std::size_t heldMax = 8192;

}  // namespace

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

void Card::State::makeRoom(std::size_t packets) {
  if (held.size() + packets > held.capacity()) {
    settle();
    held.reserve(std::max(packets, heldMax));
  }
}

void Card::State::takeDuePackets() {
  TsPacket packet;
  std::uint64_t due = player->due(fpga.nowMs);
  makeRoom(due);
  stepBegin = held.size();
  for (; due > 0; --due) {
    if (!player->next(packet)) {
      if (!std::exchange(unreadable, true)) {
        report("the stream ended", "its file can no longer be read");
      }
      return;
    }
    if (pidFaults.apply(packet)) {
      psi->push(packet);
      fpga.before.count(packet, fpga.nowMs);
      held.push_back(packet);
    }
  }
}

// The CAMs work on the packets in their places, so those that go around them rejoin in order.
void Card::State::passThroughCams() {
  throughCams.clear();
  for (std::size_t i = stepBegin; i < held.size(); ++i) {
    if (fpga.passing.test(PacketView(held[i]).pid())) {
      throughCams.push_back(&held[i]);
    }
  }
  for (std::size_t i = 0; i < cams.size(); ++i) {
    if (cams[i] != nullptr) {
      passThrough(*cams[i], i + 1 < cams.size() ? cams[i + 1] : nullptr);
    }
  }
}

void Card::State::passThrough(Cam &cam, const Cam *next) {
  cam.process(throughCams.data(), throughCams.size());
  if (next != nullptr && cam.mustFinishBefore(*next)) {
    cam.finish();
  }
}

void Card::State::deliver() {
  for (std::size_t i = stepBegin; i < held.size(); ++i) {
    if (fpga.behind.countHeader(held[i], fpga.nowMs)) {
      pesStarts.push_back(&held[i]);
    }
  }
  if (output.is_open()) {
    settle();
  }
}

// Makes everything behind the CAMs what it is when each step ends with this. It is put off until
// somebody looks, since few large batches cost the CAMs much less than many small ones.
void Card::State::settle() {
  if (held.empty()) {
    return;
  }
  for (Cam *cam : cams) {
    if (cam != nullptr) {
      cam->finish();
    }
  }
  for (const TsPacket *packet : pesStarts) {
    fpga.behind.readPesStart(*packet);
  }
  write();
  pesStarts.clear();
  held.clear();
}

void Card::State::write() {
  if (!output.is_open()) {
    return;
  }
  output.write(reinterpret_cast<const char *>(held.data()),
               static_cast<std::streamsize>(held.size() * tsPacketSize));
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
