// Reads the packets of a transport stream file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/LongWork.h"
#include "ts/TsPacket.h"

namespace chassis {

// Reads packets one by one, of 188 bytes, of 192 (a time stamp before each) or of 204 (check bytes
// behind each), and hands on the 188. Where a sync byte is missing it looks for the next place from
// which several packets in a row have one, of whatever size (Resync), and goes on there. Bytes
// before the first packet, between packets and after the last whole one are skipped and counted;
// those that the larger sizes have around a packet belong to it.
class TsFile {
 public:
  // Throws InputError that names the file: cannot be opened or read, empty, holds no transport
  // stream; and Interrupted. goOn is asked every few megabytes of a search for packets, and by
  // goesOn; once it has said no, the file is at its end until it is rewound.
  explicit TsFile(const std::string &path, GoOn goOn = nullptr);
  ~TsFile();
  TsFile(const TsFile &) = delete;
  TsFile &operator=(const TsFile &) = delete;

  // False at the end of the file. Throws InputError where it cannot be read any further.
  bool next(TsPacket &packet);

  // For those who read the whole file at once: shows how far that is. False: it is to stop.
  bool goesOn();
  void requireUninterrupted() const;  // throws Interrupted once goOn has said no
  void rewind();

  std::uint64_t packets() const;       // read so far since the last rewind
  std::uint64_t skippedBytes() const;  // since the last rewind

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace chassis
