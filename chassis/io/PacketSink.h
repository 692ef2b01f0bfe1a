// Where a card's packets go: a file, a pipe, a network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ts/TsPacket.h"

namespace chassis {

// How far behind their time the datagrams have left.
struct Lateness {
  std::uint64_t datagrams = 0;
  std::uint64_t late = 0;     // by more than 10 ms
  std::uint64_t worstNs = 0;  // 0: none left behind its time
};

// All in the chassis's thread. A reader that is slow or gone never holds the chassis up: what it
// missed is counted.
class PacketSink {
 public:
  virtual ~PacketSink() = default;

  // Packets in stream order, with the chassis times in ns at which they came in.
  virtual void write(const TsPacket *packets, const std::uint64_t *cameNs, std::size_t count) = 0;

  // Nothing more will be written: lets go of what is held back. True: nothing is left to wait for.
  // Never waits; who ends several outputs asks them all again and again before.
  virtual bool letGo() { return true; }

  // Lets go of what is held back, as far as it can, and closes.
  virtual void end() = 0;

  // So long packets may be held before they are written, in ms; 0: not beyond the tick.
  virtual std::uint64_t patienceMs() const = 0;

  virtual const std::string &name() const = 0;  // as it was asked for
  virtual std::uint64_t writtenPackets() const = 0;
  virtual std::uint64_t lostPackets() const = 0;
  // Of what leaves at times of its own; null: it leaves as soon as it can.
  virtual const Lateness *lateness() const { return nullptr; }
  // What the first loss is due to; empty while nothing is lost.
  virtual const std::string &trouble() const = 0;
};

}  // namespace chassis
