// What the program has taken of memory.
#ifndef TESTS_SOAK_MEMORY_H
#define TESTS_SOAK_MEMORY_H

#include <cstddef>

struct Memory {
  size_t heap;       // bytes that somebody allocated and holds
  size_t anonymous;  // bytes of pages that no file backs, in memory or swapped out
};

// From now on the kernel gives single pages only, so that their number follows what is touched.
void countSinglePages();

// Allocates nothing itself.
Memory memoryNow();

#endif
