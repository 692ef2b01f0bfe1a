// The CAMs of a card, one behind the other, with the switch in front of them: what they pass comes
// out to the meter behind, and to an output.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CiIf.h"
#include "cam/Cam.h"
#include "card/Fpga.h"
#include "card/Path.h"
#include "io/PacketSink.h"

namespace chassis {

class CamChain : public Path {
 public:
  // slot: 0..MAX_BOARD_NUM - 1, decides when its turn to write is. onTrouble: the output has lost
  // something; told once of each output.
  CamChain(std::uint32_t slot, Card::Fpga &fpga, std::function<void(const PacketSink &)> onTrouble)
      : slot_(slot), fpga_(fpga), onTrouble_(std::move(onTrouble)) {}

  // The CAM in a slot, null for none.
  void setCam(std::uint32_t camSlot, Cam *cam);

  void setOutput(std::unique_ptr<PacketSink> output);  // null: none; the one before must have ended
  const PacketSink *output() const { return output_.get(); }
  // All comes out, and the output lets go of it, as PacketSink's.
  bool letGoOutput();
  // Ends the output and hands it back; null: there was none.
  std::unique_ptr<PacketSink> endOutput();

  void beginStep(std::size_t packets) override;
  void beginAnew() override { seams_.push_back(held_.size()); }
  void take(const TsPacket &packet, std::uint64_t cameNs) override;
  void endStep() override;
  // Everything behind the CAMs becomes what it is when each step ends with this. It is put off
  // until somebody looks, since few large batches cost the CAMs much less than many small ones.
  void settle() override;

 private:
  void passThroughCams();
  void passThrough(Cam &cam, const Cam *next);
  void deliver();
  bool outputWaits() const;
  std::uint64_t turn(std::uint64_t ns) const;
  void write();
  void tellTrouble();

  const std::uint32_t slot_;
  Card::Fpga &fpga_;
  const std::function<void(const PacketSink &)> onTrouble_;
  std::array<Cam *, MAX_CAM_NUM> cams_{};
  std::unique_ptr<PacketSink> output_;
  bool troubleTold_ = false;

  // Packets that the CAMs may still be descrambling: those of the steps since anybody looked behind
  // the CAMs. They never move.
  std::vector<TsPacket> held_;
  std::vector<std::uint64_t> cameNs_;        // of the held ones
  std::size_t stepBegin_ = 0;                // the first packet of this step
  std::vector<const TsPacket *> pesStarts_;  // held ones that the meter behind the CAMs is to read
  std::vector<TsPacket *> throughCams_;
  std::vector<std::size_t> seams_;  // of this step: the held packets with which it begins anew
};

}  // namespace chassis
