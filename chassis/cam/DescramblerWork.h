// How the payloads were descrambled: batches cost the same however full they are.
#pragma once

#include <cstdint>

namespace chassis {

struct DescramblerWork {
  std::uint64_t batches = 0;
  std::uint64_t inBatches = 0;  // payloads
  std::uint64_t singly = 0;     // payloads
};

inline DescramblerWork operator+(const DescramblerWork &a, const DescramblerWork &b) {
  return {a.batches + b.batches, a.inBatches + b.inBatches, a.singly + b.singly};
}

inline DescramblerWork operator-(const DescramblerWork &a, const DescramblerWork &b) {
  return {a.batches - b.batches, a.inBatches - b.inBatches, a.singly - b.singly};
}

}  // namespace chassis
