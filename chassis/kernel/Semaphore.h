// The kernel's object that CiPlatform.h leaves open.
#pragma once

#include <utility>

// A binary semaphore, created by defining it: semaphore flag; or, free at first, semaphore lock{1}.
// It must outlive every use of its address as a SEM_ID.
struct semaphore {
  int available = 0;  // 0 taken, 1 free

  void give() { available = 1; }
  bool take() { return std::exchange(available, 0) != 0; }  // without waiting: whether it was free
};
