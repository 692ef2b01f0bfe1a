// Reads the packets of a transport stream file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/LongWork.h"
#include "ts/TsPacket.h"

namespace chassis {

// Reads 188-byte packets one by one. Where the sync byte is missing it looks for the next place
// from which several packets in a row begin with one, and goes on there. Bytes before the first
// packet, between packets and after the last whole one are skipped and counted.
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
