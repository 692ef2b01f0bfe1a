#include "console/StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "base/ExitStatus.h"

namespace chassis {
namespace {

bool failed = false;
int reason = 0;  // of the first failure that tells one

void note(bool fine) {
  failed = failed || !fine;
  reason = fine || reason != 0 ? reason : errno;
  errno = 0;
}

// Why standard output is not whole; empty: it is. A file may tell so with its close alone.
std::string closeStandardOutput() {
  errno = 0;
  std::cout.flush();
  note(!std::cout.bad() && std::ferror(stdout) == 0);
  note(std::fclose(stdout) == 0 || errno == EBADF);
  const std::string why = reason == 0 ? "" : std::string(": ") + std::strerror(reason);
  return failed ? "standard output is not whole" + why : "";
}

}  // namespace

void writeStandardOutput(const std::string &text) {
  if (standardOutputGone()) {
    return;
  }
  errno = 0;
  const bool taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  note(std::fflush(stdout) == 0 && taken);
}

bool standardOutputGone() {
  return reason == EPIPE;
}

int finishStandardOutput(const std::string &program, int status) {
  const std::string trouble = closeStandardOutput();
  if (trouble.empty()) {
    return status;
  }
  std::fprintf(stderr, "%s: %s\n", program.c_str(), trouble.c_str());
  return status == exitDone ? static_cast<int>(exitLost) : status;
}

}  // namespace chassis
