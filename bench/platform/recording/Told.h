// The checked build: a platform function tells its name and its arguments.
#pragma once

#include <cstdint>

void told(const char *name, std::uint32_t a = 0, std::uint32_t b = 0, std::uint32_t c = 0);
