#include "app/Program.h"

#include <cstdio>
#include <exception>
#include <sstream>

#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "console/StandardOutput.h"
#include "io/ReplacedFile.h"

namespace chassis {
namespace {

int complain(const std::string &name, const std::exception &error, int status) {
  std::istringstream lines(error.what());
  for (std::string line; std::getline(lines, line);) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), line.c_str());
  }
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

int runProgram(const std::string &name, const std::function<int()> &work) {
  return finishStandardOutput(name, statusOf(name, work));
}

}  // namespace chassis
