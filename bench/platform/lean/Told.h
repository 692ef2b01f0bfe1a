// The timed build: a platform function tells nobody that it was called.
#pragma once

#include <cstdint>

inline void told(const char *, std::uint32_t = 0, std::uint32_t = 0, std::uint32_t = 0) {}
