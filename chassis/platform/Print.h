// Collects what the module and the firmware print into whole lines. It supplies bbPrintf and
// modulePrintf, to which the module's printf is redirected.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "event/Event.h"

namespace chassis {

enum class ConsolePort {
  Print,  // printf
  Debug   // bbPrintf
};

// Receives each line without its end.
using PrintListener = std::function<void(ConsolePort port, const std::string &line)>;
using Printing = std::shared_ptr<const PrintListener>;

// Of both ports. What comes without a listener is dropped, and so is a line that was not ended when
// another one begins to listen.
class PrintedLines {
 public:
  [[nodiscard]] Printing onLine(PrintListener listener);  // for as long as the result is kept
  void push(ConsolePort port, const char *text);

 private:
  // Lines end in "\n", "\r\n" or "\n\r ".
  class Assembler {
   public:
    std::optional<std::string> take(char c);  // the line that it ends

   private:
    std::string line_;
    bool afterReturn_ = false;
  };

  std::weak_ptr<const PrintListener> listener_;
  std::array<Assembler, 2> assemblers_;
};

// A printed line as an event.
Event printed(ConsolePort port, const std::string &line);

}  // namespace chassis

extern "C" int modulePrintf(const char *format, ...);
