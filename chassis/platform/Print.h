// Collects what the module and the firmware print into whole lines. It supplies bbPrintf and
// modulePrintf, to which the module's printf is redirected.
#pragma once

#include <functional>
#include <string>

#include "event/Event.h"

namespace chassis {

enum class ConsolePort {
  Print,  // printf
  Debug   // bbPrintf
};

// Receives each line without its end.
using ConsoleListener = std::function<void(ConsolePort port, const std::string &line)>;

// What is printed without a listener is dropped, and so is a line that was not ended.
void bindConsole(ConsoleListener listener);

// A printed line as an event.
Event printed(ConsolePort port, const std::string &line);

}  // namespace chassis

extern "C" int modulePrintf(const char *format, ...);
