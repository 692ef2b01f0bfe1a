#include "console/Colour.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace chassis {
namespace {

std::string textOf(const char *variable) {
  return variable == nullptr ? "" : variable;
}

}  // namespace

bool takesCodes(const char *term) {
  const std::string kind = textOf(term);
  return !kind.empty() && kind != "dumb";
}

bool wantsColour(bool terminal, const char *noColor, const char *term) {
  return terminal && textOf(noColor).empty() && takesCodes(term);
}

bool outputWantsColour() {
  return wantsColour(isatty(STDOUT_FILENO) == 1, std::getenv("NO_COLOR"), std::getenv("TERM"));
}

bool outputTakesCodes() {
  return takesCodes(std::getenv("TERM"));
}

}  // namespace chassis
