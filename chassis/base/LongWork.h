// Work that takes long: reading a large file, waiting for a reader. Whoever does it asks now and
// then, some times a second, whether to go on.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/InputError.h"

namespace chassis {

struct Progress {
  std::string what;        // "reading 'in.ts'"
  std::uint64_t done = 0;  // of all, in a unit of the work's own
  std::uint64_t all = 0;   // 0: not known
  std::string reached{};   // in words, beside the part of a hundred; it may be empty
};

inline bool isDone(const Progress &progress) {
  return progress.all > 0 && progress.done >= progress.all;
}

// Shows the progress, and lets what comes from outside act. False: the work is to stop.
using GoOn = std::function<bool(const Progress &)>;

// Begins a piece of long work, which is over when what this returns is gone.
using BeginWork = std::function<GoOn()>;

// Thrown by what cannot do its work since it was not to go on.
class Interrupted : public InputError {
 public:
  using InputError::InputError;
};

}  // namespace chassis
