// Where a live stream begins anew: behind a silence, or with another sender. The continuity
// counters of its packets begin anew there too, which is no loss, so meters forget theirs.
#pragma once

#include <cstdint>
#include <utility>

namespace chassis {

class SeamWatch {
 public:
  // Before the packets of a step of time: whether the stream has been silent until now.
  void beginStep(bool silent) { silent_ = silent; }

  // With each packet, and the beginnings of its source by then: whether it begins anew with it.
  bool at(std::uint64_t beginnings) {
    const bool other = std::exchange(beginnings_, beginnings) != beginnings;
    return std::exchange(silent_, false) || other;
  }

 private:
  bool silent_ = false;
  std::uint64_t beginnings_ = 0;
};

}  // namespace chassis
