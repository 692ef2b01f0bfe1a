// How streams are named on a command line and in a script: a path, or a URL.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace chassis {

struct Url {
  enum class Scheme { File, StandardStream, Udp, Rtp };
  enum class Use { Input, Output };

  std::string text;  // as it was written
  Scheme scheme = Scheme::File;
  std::string path;  // of a file, FIFO or device

  // A network's: numeric, without brackets.
  std::string address;
  std::uint16_t port = 0;
  bool v6 = false;
  bool multicast = false;
  std::string iface;                    // empty: the system's choice
  std::string source;                   // source-specific multicast; empty: any
  std::optional<std::uint32_t> rcvbuf;  // bytes
  std::optional<std::uint8_t> ttl;
  std::optional<std::uint8_t> dscp;  // 0..63
  std::uint32_t delayMs = 100;       // of outputs, constant

  bool isNetwork() const { return scheme == Scheme::Udp || scheme == Scheme::Rtp; }
};

// A path, "file:PATH", "-", "udp://" or "rtp://" with GROUP:PORT, [V6]:PORT, an optional @ before
// the group, and options: for inputs iface, source, rcvbuf; for outputs iface, ttl, dscp, delay.
// Nothing is opened or looked up but the interface. Throws InputError that names the text, what is
// wrong and what would be right.
Url readUrl(const std::string &text, Url::Use use);

}  // namespace chassis
