// A disk that tells with the close alone that it has not kept everything, as one across a network
// may. Loaded before a program's own libraries: the close of every file with FAILING_CLOSE in its
// path fails.
#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool isOnThatDisk(int file) {
  const char *named = std::getenv("FAILING_CLOSE");
  std::array<char, PATH_MAX> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(file);
  const ssize_t size = readlink(link.c_str(), path.data(), path.size() - 1);
  return named != nullptr && size > 0 && std::string(path.data()).find(named) != std::string::npos;
}

template <typename Handle>
int closed(const char *how, Handle handle, bool fails) {
  using Close = int (*)(Handle);
  const int result = reinterpret_cast<Close>(dlsym(RTLD_NEXT, how))(handle);
  if (fails) {
    errno = EIO;
  }
  return fails ? -1 : result;
}

}  // namespace

extern "C" int close(int file) {
  return closed("close", file, isOnThatDisk(file));
}

// The C library closes the file of a stream by a way of its own.
extern "C" int fclose(std::FILE *stream) {
  return closed("fclose", stream, isOnThatDisk(fileno(stream)));
}
