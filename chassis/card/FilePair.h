// What went into a receiver and what came out of it, as two files: each is played once at its own
// bitrate, and begins when its first clock reference (PCR) says so.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/LongWork.h"
#include "card/PidMatch.h"
#include "card/StreamScan.h"
#include "io/PacketSource.h"

namespace chassis {

// How many ms later the second of two streams begins than the first; below 0: earlier. None: no PID
// with a PCR, and no program with one, is in both, or they have not a moment of time in common.
// numbers: of the programs of the first in the second.
std::optional<std::int64_t> beginsLaterMs(const StreamScan &first, const StreamScan &second,
                                          const ProgramNumbers &numbers = {});

class FilePair {
 public:
  static constexpr std::size_t Before = 0;
  static constexpr std::size_t Behind = 1;

  // numbers: behind, of programs that the receiver renumbers.
  explicit FilePair(GoOn goOn, ProgramNumbers numbers = {});
  ~FilePair();
  FilePair(const FilePair &) = delete;
  FilePair &operator=(const FilePair &) = delete;

  // Reads a file. Throws as scanStream does.
  void add(std::size_t which, const std::string &path);
  // One that was added. Throws as FileSource does.
  std::unique_ptr<PacketSource> play(std::size_t which, std::uint64_t nowMs) const;
  // Both are there, but cannot be aligned.
  bool unaligned() const;

 private:
  struct File {
    std::string path;
    StreamScan scan;
  };

  std::optional<std::int64_t> behindLaterMs() const;

  const GoOn goOn_;
  const ProgramNumbers numbers_;
  std::array<std::optional<File>, 2> files_;
};

}  // namespace chassis
