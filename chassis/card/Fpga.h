// The FPGA and the CI controller of a card: its figures, its switch and its faults.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>

#include "card/Card.h"
#include "card/PidMeter.h"
#include "ts/TsPacket.h"

namespace chassis {

struct Card::Fpga {
  PidMeter before;                // the stream as it comes in
  PidMeter behind;                // and as it goes out, behind both CAMs
  std::bitset<pidCount> passing;  // through the CAMs; the others go around them
  std::bitset<pidCount> avPids;   // audio and video, as the stream's PMTs tell
  std::bitset<8> faults;          // by CardFault, but Masked
  std::array<bool, MAX_CAM_NUM> alarmMask{};
  bool inserted = false;
  bool observed = false;   // a receiver elsewhere is judged, not CAMs of the card
  bool inputLost = false;  // what goes into it, or comes out
  std::uint64_t insertedMs = 0;
  std::uint64_t nowMs = 0;

  // What a card is like when it was put in: all PIDs pass, nothing counted.
  void start(std::uint64_t startMs);
  void stop();
  void setAvPids(const std::bitset<pidCount> &pids);
  bool has(CardFault fault) const { return faults.test(static_cast<std::size_t>(fault)); }

  // What the driver's functions of these names answer, but 0 while no card is in.
  std::uint32_t online() const { return answer(CardFault::Offline, 1); }
  std::uint32_t busy() const { return inserted && (has(CardFault::Busy) || inputLost) ? 1 : 0; }
  std::uint32_t ready() const { return answer(CardFault::NotReady, 1); }
  std::uint32_t syncOk() const { return answer(CardFault::NoSync, 1); }
  std::uint32_t pllLock() const { return answer(CardFault::PllLost, 1); }
  std::uint32_t rate(std::uint32_t kbit) const;  // of a meter, as the controller tells it
  // The same of all PIDs: a receiver elsewhere has no controller whose rate could be too low.
  std::uint32_t systemRate(std::uint32_t kbit) const;
  std::int32_t writePll(std::uint32_t value);  // the register as it then stands
  void setPass(std::uint16_t pid, bool pass);  // a PID above 0x1FFF: nothing
  void select(std::uint16_t pid) { selected_ = pid; }

  // Of the selected PID behind the CAMs: 0 descrambled, 1 scrambled, 2 an audio or video PID whose
  // PES headers do not read, 0xFF nothing to read. pidType is a DESC_PID_TYPE_, else the stream's
  // PMTs tell the class.
  std::uint32_t descState(std::uint32_t pidType) const;

 private:
  std::uint32_t answer(CardFault fault, std::uint32_t good) const;
  bool silent(const PidEvidence &evidence) const;

  std::uint16_t selected_ = nullPid;
  std::uint32_t pll_ = 0;
};

}  // namespace chassis
