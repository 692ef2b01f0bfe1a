// Packets from what cannot be rewound: a FIFO, a character device, standard input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "io/PacketSource.h"
#include "ts/Resync.h"

namespace chassis {

// Reads when it is asked what is due, and never waits. A pipe loses nothing: what is not read yet
// waits in it, and holds its writer up when it is full. Packets of 188, 192 and 204 bytes are found
// as in a file (Resync); one comes at the time of the reading that makes it whole or, where packets
// begin, that shows that it is one.
//
// A FIFO may have one writer after the other, and none is no end: each that comes and goes is told,
// and begins a stream of its own. Anything else is at its end when its writer has gone.
class PipeSource : public PacketSource {
 public:
  // Bytes that one call of due reads at most: 800 Mbit/s at the pace of the chassis clock.
  static constexpr std::size_t readAtMost = 1 << 20;
  // Damage is told once until packets have come for so long without any.
  static constexpr std::uint64_t soundNs = 1000000000;

  using Now = std::function<std::uint64_t()>;  // chassis time in ns

  // A FIFO or a character device. Throws InputError that names the path: cannot be opened, is
  // anything else.
  PipeSource(const std::string &path, Now now, Tell tell);
  // An open pipe, FIFO, socket or character device that others may share, as standard input; it
  // stays open, and as it is. name: in an operator's words. Throws InputError that names it.
  PipeSource(int file, const std::string &name, Now now, Tell tell);
  ~PipeSource() override;
  PipeSource(const PipeSource &) = delete;
  PipeSource &operator=(const PipeSource &) = delete;

  // Reads on when all that was due has been taken.
  std::size_t due(std::uint64_t nowMs) override;
  bool next(TsPacket &packet, std::uint64_t &cameNs) override;
  std::uint64_t beginnings() const override { return handedWriters_; }
  bool ended() const override { return ended_ && taken_ == ready_.size(); }
  const SourceCounters &counters() const override { return counters_; }

 private:
  struct Timed {
    TsPacket packet;
    std::uint64_t cameNs;
    std::uint64_t writers;  // that have come, with its own
  };

  void widen();
  void readOn();
  bool readPart(std::size_t &room);
  std::ptrdiff_t readSome(std::size_t most);
  void takePackets(bool last);
  void judge(bool packets, std::uint64_t nowNs);
  void come();
  void go(const std::string &failure);

  const std::string path_;
  const Now now_;
  const Tell tell_;
  int file_ = -1;
  bool shared_ = false;   // not ours: neither closed nor changed
  bool reopens_ = false;  // another writer may come
  bool writer_ = true;
  bool ended_ = false;
  int capacity_ = 0;  // of a shared pipe before it was widened; 0: as it was
  std::vector<std::uint8_t> buffer_;
  std::size_t held_ = 0;  // bytes of it that are not decided yet
  Resync resync_;
  std::uint64_t skippedBefore_ = 0;  // of earlier writers
  bool damaged_ = false;
  std::uint64_t damagedNs_ = 0;
  std::vector<Timed> ready_;
  std::uint64_t writers_ = 0;
  std::uint64_t handedWriters_ = 0;
  std::size_t taken_ = 0;
  SourceCounters counters_;
};

}  // namespace chassis
