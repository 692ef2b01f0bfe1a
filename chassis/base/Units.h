// Units of time.
#pragma once

#include <cstdint>

namespace chassis {

constexpr std::uint64_t msPerSecond = 1000;
constexpr std::uint64_t nsPerMs = 1000000;
constexpr std::uint64_t nsPerSecond = msPerSecond * nsPerMs;

}  // namespace chassis
