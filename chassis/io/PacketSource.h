// Where a card's packets come from: a file that is played, a pipe, datagrams from a network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "event/Event.h"
#include "ts/TsPacket.h"

namespace chassis {

// What a source has had, and what was lost on the way, each where it was lost; since it was made.
struct SourceCounters {
  std::uint64_t packets = 0;       // handed on
  std::uint64_t skippedBytes = 0;  // in no packet
  // Datagrams; nothing of a file.
  std::uint64_t datagrams = 0;    // received, whatever they held
  std::uint64_t foreign = 0;      // that hold no packets: noise, cut off, another payload
  std::uint64_t kernelLost = 0;   // the socket's buffer was full
  std::uint64_t networkLost = 0;  // RTP sequence numbers given up; `late` ones came after that
  std::uint64_t reordered = 0;    // put back into their place
  std::uint64_t duplicates = 0;   // dropped
  std::uint64_t late = 0;     // came when their place was given up, or far from all others; dropped
  std::uint64_t senders = 0;  // RTP: senders (SSRC) one after the other
  // Packets for which there was no room here.
  std::uint64_t dropped = 0;
};

// Tells what happened to a source; the receiver knows its place.
using Tell = std::function<void(const Event &)>;

// All in the chassis's thread; nothing waits.
class PacketSource {
 public:
  virtual ~PacketSource() = default;

  // How many packets are there to be taken by this chassis time, which never falls.
  virtual std::size_t due(std::uint64_t nowMs) = 0;

  // The next of them, and the chassis time in ns at which it came. False: there is none, or
  // nothing can be read any more.
  virtual bool next(TsPacket &packet, std::uint64_t &cameNs) = 0;

  // How often the packets handed on so far have begun anew with another sender. Only what tells
  // senders apart knows.
  virtual std::uint64_t beginnings() const { return 0; }

  // Nothing more will ever come: the file cannot be read, the pipe's writer has gone for good.
  virtual bool ended() const = 0;

  virtual const SourceCounters &counters() const = 0;
};

}  // namespace chassis
