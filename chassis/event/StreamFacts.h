// What is known of each event of a card, its stream and the datagrams that it takes (as
// LineFacts.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "event/EventKind.h"
#include "event/Programs.h"

namespace chassis::event {

struct Nothing {
  template <typename To>
  void each(To /*to*/) const {}
};

// Of an input or output, as a person wrote it; "-" is standard input.
struct Path {
  std::string path;
  template <typename To>
  void each(To to) const {
    to("path", path);
  }
};

struct CardRemoved : Nothing {
  static constexpr EventKind kind = EventKind::CardRemoved;
};

struct StreamDamaged {
  static constexpr EventKind kind = EventKind::StreamDamaged;
  std::string path;
  std::uint64_t bytes = 0;  // in no packet
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("bytes", bytes);
  }
};

struct StreamEnded : Nothing {
  static constexpr EventKind kind = EventKind::StreamEnded;
};

struct WriterCame : Path {
  static constexpr EventKind kind = EventKind::WriterCame;
};

enum class WriterGoneReason : std::uint8_t {
  Waits,  // for the next writer
  AtEnd,
  Unreadable  // the trouble tells why
};
const char *nameOf(WriterGoneReason reason);

struct WriterGone {
  static constexpr EventKind kind = EventKind::WriterGone;
  std::string path;
  WriterGoneReason reason = WriterGoneReason::Waits;
  std::string trouble;
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("reason", nameOf(reason));
    if (reason == WriterGoneReason::Unreadable) {
      to("trouble", trouble);
    }
  }
};

struct StreamChanged {
  static constexpr EventKind kind = EventKind::StreamChanged;
  std::vector<std::uint16_t> programs;  // all
  Programs changed;                     // those that are new, or have another PMT
  std::vector<std::uint16_t> versions;  // of their PMTs, in the same order
  template <typename To>
  void each(To to) const {
    to("programs", programs);
    changed.each(to, "changed", "changed_names");
    to("versions", versions);
  }
  void add(std::uint16_t program, const std::string &name, std::uint8_t version) {
    changed.add(program, name);
    versions.push_back(version);
  }
};

// ms: for so long no packets came.
struct Silence {
  std::uint64_t ms = 0;
  template <typename To>
  void each(To to) const {
    to("silent_ms", ms);
  }
};

struct StreamBegun : Silence {
  static constexpr EventKind kind = EventKind::StreamBegun;
};

struct StreamSilent {
  static constexpr EventKind kind = EventKind::StreamSilent;
  bool begun = false;  // false: nothing has come yet
  std::uint64_t ms = 0;
  template <typename To>
  void each(To to) const {
    to("begun", begun);
    to("silent_ms", ms);
  }
};

struct StreamBack : Silence {
  static constexpr EventKind kind = EventKind::StreamBack;
};

// Since it was last told, by where they were lost. Told are those that were.
struct InputLost {
  static constexpr EventKind kind = EventKind::InputLost;
  std::uint64_t network = 0;  // datagrams
  std::uint64_t kernel = 0;   // datagrams
  std::uint64_t dropped = 0;  // packets, here
  bool any() const { return network + kernel + dropped > 0; }
  template <typename To>
  void each(To to) const {
    tell(to, "network", network);
    tell(to, "kernel", kernel);
    tell(to, "dropped", dropped);
  }

 private:
  template <typename To>
  static void tell(To to, const char *name, std::uint64_t lost) {
    if (lost > 0) {
      to(name, lost);
    }
  }
};

// Each stream with its program.
struct StreamsUnmatched {
  static constexpr EventKind kind = EventKind::StreamsUnmatched;
  Programs programs;
  std::vector<std::uint16_t> pids;
  std::vector<std::uint16_t> types;  // stream_type
  template <typename To>
  void each(To to) const {
    programs.each(to);
    to("pids", pids);
    to("stream_types", types);
  }
  void add(std::uint16_t program, const std::string &name, std::uint16_t pid, std::uint16_t type) {
    programs.add(program, name);
    pids.push_back(pid);
    types.push_back(type);
  }
};

struct ProbeUnaligned : Nothing {
  static constexpr EventKind kind = EventKind::ProbeUnaligned;
};

struct ProbeBegun {
  static constexpr EventKind kind = EventKind::ProbeBegun;
  std::vector<std::uint16_t> carried;  // CA_system_ids of the programs
  std::uint16_t by = 0;                // the one that counts; 0: none of those that were asked for
  std::vector<std::uint16_t> asked;
  template <typename To>
  void each(To to) const {
    to("ca_systems", carried);
    if (by != 0) {
      to("ca_system", by);
    } else {
      to("asked", asked);
    }
  }
};

struct WentLive : Path {
  static constexpr EventKind kind = EventKind::WentLive;
};

struct TransportErrors : Nothing {
  static constexpr EventKind kind = EventKind::TransportErrors;
};

struct TablesCut {
  static constexpr EventKind kind = EventKind::TablesCut;
  std::string leftOut;  // a clause: how many of what, and for how many there is room
  template <typename To>
  void each(To to) const {
    to("left_out", std::vector{leftOut});
  }
};

// Of a card's output, or, where the place has no card, of the file of events.
struct OutputLost {
  static constexpr EventKind kind = EventKind::OutputLost;
  std::string path;
  std::string trouble;  // what the first loss is due to
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("trouble", trouble);
  }
};

struct SenderChanged {
  static constexpr EventKind kind = EventKind::SenderChanged;
  std::string path;
  std::uint64_t senders = 0;  // so far, one after the other
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("senders", senders);
  }
};

enum class ForeignReason : std::uint8_t {
  Noise,        // neither packets nor RTP
  Cut,          // longer than there is room for
  PayloadType,  // RTP of another one
  Payload       // RTP whose payload is no whole packets
};
const char *nameOf(ForeignReason reason);

// A datagram that holds no packets.
struct ForeignDatagram {
  ForeignReason reason = ForeignReason::Noise;
  std::uint64_t bytes = 0;  // of the datagram; Cut: of the room
  unsigned number = 0;      // Noise: its first byte; PayloadType: that one
};

struct InputForeign {
  static constexpr EventKind kind = EventKind::InputForeign;
  std::string path;
  ForeignDatagram datagram;  // the last one
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("reason", nameOf(datagram.reason));
    to("bytes", datagram.bytes);
    if (datagram.reason == ForeignReason::Noise && datagram.bytes > 0) {
      to("first_byte", datagram.number);
    }
    if (datagram.reason == ForeignReason::PayloadType) {
      to("payload_type", datagram.number);
    }
  }
};

struct BufferSmall {
  static constexpr EventKind kind = EventKind::BufferSmall;
  std::string path;
  std::uint64_t bytes = 0;
  std::uint64_t asked = 0;
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("bytes", bytes);
    to("asked_bytes", asked);
  }
};

struct Interface {
  std::string path;
  std::string interface;  // its name
  template <typename To>
  void each(To to) const {
    to("path", path);
    to("interface", interface);
  }
};

struct InterfaceGone : Interface {
  static constexpr EventKind kind = EventKind::InterfaceGone;
};
struct InterfaceBack : Interface {
  static constexpr EventKind kind = EventKind::InterfaceBack;
};

}  // namespace chassis::event
