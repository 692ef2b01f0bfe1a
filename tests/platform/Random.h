// Random numbers of a seed, the same on every machine.
#ifndef TESTS_PLATFORM_RANDOM_H
#define TESTS_PLATFORM_RANDOM_H

#include <cstdint>
#include <initializer_list>
#include <random>

class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}

  uint32_t below(uint32_t end) { return static_cast<uint32_t>(engine_()) % end; }
  uint8_t byte() { return static_cast<uint8_t>(below(256)); }
  uint16_t word() { return static_cast<uint16_t>(below(65536)); }

  template <typename Value>
  Value of(std::initializer_list<Value> values) {
    return values.begin()[below(static_cast<uint32_t>(values.size()))];
  }

 private:
  std::mt19937 engine_;
};

#endif
