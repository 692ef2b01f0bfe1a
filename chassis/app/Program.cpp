#include "app/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <sstream>

#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "console/Layout.h"
#include "console/StandardOutput.h"
#include "io/ReplacedFile.h"

namespace chassis {
namespace {

// A standard stream that is closed stays one that can be neither read nor written, and what the
// program opens for itself does not get its number.
void holdClosedStreams() {
  constexpr int uselessFor[] = {O_WRONLY, O_RDONLY, O_RDONLY};
  for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(file, F_GETFD) < 0) {
      static_cast<void>(open("/dev/null", uselessFor[file]));  // the lowest number that is free
    }
  }
}

int complain(const std::string &name, const std::exception &error, int status) {
  complainLines(name, error.what());
  return status;
}

int statusOf(const std::string &name, const std::function<int()> &work) {
  try {
    return work();
  } catch (const InputError &error) {
    return complain(name, error, exitBadInput);
  } catch (const OutputLost &error) {
    return complain(name, error, exitLost);
  } catch (const std::exception &error) {
    return complain(name, error, exitFailed);
  }
}

}  // namespace

void complainLines(const std::string &name, const std::string &text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    line.insert(0, name + ": ").append("\n");
    std::fputs(fitted(line, widthOf(STDERR_FILENO)).c_str(), stderr);
  }
}

int runProgram(const std::string &name, const std::function<int()> &work) {
  holdClosedStreams();
  for (const int signal : {SIGXFSZ, SIGPIPE}) {
    std::signal(signal, SIG_IGN);  // the write that finds no room, or no reader, tells so itself
  }
  return finishStandardOutput(name, statusOf(name, work));
}

}  // namespace chassis
