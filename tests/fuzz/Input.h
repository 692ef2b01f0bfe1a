// The bytes of one fuzz input, taken from the front; behind their end there are zeros.
#ifndef TESTS_FUZZ_INPUT_H
#define TESTS_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace fuzz {

class Input {
 public:
  Input(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}

  size_t left() const { return static_cast<size_t>(end_ - at_); }
  uint8_t byte() { return at_ == end_ ? 0 : *at_++; }
  bool flag() { return (byte() & 1) != 0; }
  uint16_t word() {
    const unsigned high = byte();
    return static_cast<uint16_t>(high << 8 | byte());
  }
  uint32_t below(uint32_t limit) { return limit > 256 ? word() % limit : byte() % limit; }
  std::vector<uint8_t> bytes(size_t count) {
    const size_t taken = count < left() ? count : left();
    std::vector<uint8_t> result(at_, at_ + taken);
    at_ += taken;
    return result;
  }

 private:
  const uint8_t *at_;
  const uint8_t *end_;
};

// Numbers for what is too large to stand in an input; the input chooses the seed.
class Noise {
 public:
  explicit Noise(uint32_t seed = 0) : state_(seed * 2654435761u + 1) {}

  uint32_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  uint32_t below(uint32_t limit) { return (next() >> 8) % limit; }

 private:
  uint32_t state_;
};

// Ends the run with a finding.
[[noreturn]] inline void broken(const char *rule) {
  std::fprintf(stderr, "BROKEN: %s\n", rule);
  std::abort();
}

inline void require(bool holds, const char *rule) {
  if (!holds) {
    broken(rule);
  }
}

}  // namespace fuzz

#endif
