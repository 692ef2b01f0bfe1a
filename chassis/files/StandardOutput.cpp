#include "files/StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "ExitStatus.h"

namespace chassis {
namespace {

// Why standard output is not whole; empty: it is. A file may tell so with its close alone.
std::string closeStandardOutput() {
  std::cout.flush();
  const bool lost = std::cout.bad() || std::ferror(stdout) != 0;
  errno = 0;
  const bool unclosed = std::fclose(stdout) != 0 && errno != EBADF;
  const std::string why = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
  return lost || unclosed ? "standard output is not whole" + why : "";
}

}  // namespace

int finishStandardOutput(const std::string &program, int status) {
  const std::string trouble = closeStandardOutput();
  if (trouble.empty()) {
    return status;
  }
  std::fprintf(stderr, "%s: %s\n", program.c_str(), trouble.c_str());
  return status == exitDone ? static_cast<int>(exitLost) : status;
}

}  // namespace chassis
