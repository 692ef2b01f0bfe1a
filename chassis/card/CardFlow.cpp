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
        tell(EventKind::StreamEnded, "the stream ended", "its file can no longer be read");
      }
      return;
    }
    if (PacketView(packet).transportError()) {
      takeBroken(packet);
    } else if (pidFaults.apply(packet)) {
      psi->push(packet);
      fpga.before.count(packet, fpga.nowMs);
      held.push_back(packet);
    }
  }
}

// Whose packet it is cannot be known: it goes through in its place, and nobody reads it.
void Card::State::takeBroken(const TsPacket &packet) {
  if (transportErrors++ == 0) {
    tell(EventKind::TransportErrors, "packets with transport_error_indicator",
         "they pass through, unread and not counted");
  }
  held.push_back(packet);
}

// The CAMs work on the packets in their places, so those that go around them rejoin in order.
void Card::State::passThroughCams() {
  throughCams.clear();
  for (std::size_t i = stepBegin; i < held.size(); ++i) {
    const PacketView view(held[i]);
    if (!view.transportError() && fpga.passing.test(view.pid())) {
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
  cam.process(throughCams.data(), throughCams.size(), fpga.nowMs);
  if (next != nullptr && cam.mustFinishBefore(*next)) {
    cam.finish();
  }
}

void Card::State::deliver() {
  for (std::size_t i = stepBegin; i < held.size(); ++i) {
    const bool read = !PacketView(held[i]).transportError();
    if (read && fpga.behind.countHeader(held[i], fpga.nowMs)) {
      pesStarts.push_back(&held[i]);
    }
  }
  if (output != nullptr) {
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
  if (output != nullptr) {
    output->write(held.front().data(), held.size() * tsPacketSize, tsPacketSize);
    tellTrouble();
  }
}

void Card::State::tellTrouble() {
  if (!output->trouble().empty() && !std::exchange(troubleTold, true)) {
    tell(EventKind::OutputLost, "the output is not whole",
         "'" + output->path() + "': " + output->trouble(),
         {{"path", output->path()}, {"trouble", output->trouble()}});
  }
}

std::string Card::State::endOutput() {
  if (output == nullptr) {
    return "";
  }
  output->end();
  tellTrouble();
  const auto ended = std::exchange(output, nullptr);
  troubleTold = false;
  files.forget(outputName);
  return ended->lossText(outputName,
                         std::to_string(ended->lostBytes() / tsPacketSize) + " packets");
}

void Card::State::followPsi() {
  if (psi->changes() == psiChanges) {
    return;
  }
  const Psi before = builtFrom;
  rebuildTables();
  tell(EventKind::StreamChanged, "the stream's programs changed", changedPrograms(before),
       {{"programs", programNumbers()}});
  tellProgramsChanged();
}

}  // namespace chassis
