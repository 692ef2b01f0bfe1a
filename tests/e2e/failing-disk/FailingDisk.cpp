// A disk that tells with the close alone that it has not kept everything, as one across a network
// may, one that cannot be read to its end, and one that stalls. Loaded before a program's own
// libraries: the close of every file with FAILING_CLOSE in its path fails, what one with
// FAILING_READ has behind its first bytes cannot be read, and a write to one with STALLING_WRITE
// waits for a file of the name STALLED_UNTIL.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr std::size_t readable = 100000;

bool fails(const char *how, int file) {
  const char *named = std::getenv(how);
  std::array<char, PATH_MAX> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  const ssize_t size = readlink(link.c_str(), path.data(), path.size() - 1);
  return named != nullptr && size > 0 && std::string(path.data()).find(named) != std::string::npos;
}

template <typename Handle>
int closed(const char *how, Handle handle, bool failing) {
  using Close = int (*)(Handle);
  const int result = reinterpret_cast<Close>(dlsym(RTLD_NEXT, how))(handle);
  if (failing) {
    errno = EIO;
  }
  return failing ? -1 : result;
}

}  // namespace

extern "C" int close(int file) {
  return closed("close", file, fails("FAILING_CLOSE", file));
}

// The C library closes the file of a stream by a way of its own.
extern "C" int fclose(std::FILE *stream) {
  return closed("fclose", stream, fails("FAILING_CLOSE", fileno(stream)));
}

extern "C" ssize_t write(int file, const void *from, std::size_t size) {
  using Write = ssize_t (*)(int, const void *, std::size_t);
  static const auto next = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
  const char *until = std::getenv("STALLED_UNTIL");
  while (until != nullptr && fails("STALLING_WRITE", file) && access(until, F_OK) != 0) {
    usleep(10000);
  }
  return next(file, from, size);
}

extern "C" ssize_t read(int file, void *to, std::size_t size) {
  using Read = ssize_t (*)(int, void *, std::size_t);
  static const auto next = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "read"));
  if (!fails("FAILING_READ", file)) {
    return next(file, to, size);
  }
  const auto at = static_cast<std::size_t>(lseek(file, 0, SEEK_CUR));
  if (at >= readable) {
    errno = EIO;
    return -1;
  }
  return next(file, to, std::min(size, readable - at));
}
