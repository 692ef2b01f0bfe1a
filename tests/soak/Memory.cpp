#include "Memory.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#ifdef __SANITIZE_ADDRESS__
// The compiler brings the function, but not always the header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

size_t heapInUse() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 heap = mallinfo2();
  return heap.uordblks + heap.hblkhd;
#endif
}

// The other counts of the kernel are rough for the sake of speed; this one goes through the pages.
void readRollup(char *text, size_t size) {
  const int file = open("/proc/self/smaps_rollup", O_RDONLY);
  const ssize_t length = file < 0 ? 0 : read(file, text, size - 1);
  text[length < 0 ? 0 : length] = 0;
  if (file >= 0) {
    close(file);
  }
}

size_t bytesOf(const char *text, const char *name) {
  const char *found = std::strstr(text, name);
  return found == nullptr ? 0 : std::strtoull(found + std::strlen(name), nullptr, 10) * 1024;
}

}  // namespace

void countSinglePages() {
  prctl(PR_SET_THP_DISABLE, 1, 0, 0, 0);
}

Memory memoryNow() {
  char rollup[4096];
  readRollup(rollup, sizeof rollup);
  return {heapInUse(), bytesOf(rollup, "\nAnonymous:") + bytesOf(rollup, "\nSwap:")};
}
