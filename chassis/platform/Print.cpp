#include "platform/Print.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "CiPlatform.h"

namespace chassis {
namespace {

// Lines end in "\n", "\r\n" or "\n\r "; a blank at the start of a line is otherwise its own.
class LineAssembler {
 public:
  template <typename Deliver>
  void push(const char *text, const Deliver &deliver) {
    for (; *text != '\0'; ++text) {
      pushChar(*text, deliver);
    }
  }
  void clear() { *this = LineAssembler(); }

 private:
  template <typename Deliver>
  void pushChar(char c, const Deliver &deliver) {
    const bool restOfEnd = line_.empty() && (c == '\r' || (c == ' ' && afterReturn_));
    afterReturn_ = c == '\r';
    if (restOfEnd || c == '\r') {
      return;
    }
    if (c != '\n') {
      line_ += c;
      return;
    }
    deliver(line_);
    line_.clear();
  }

  std::string line_;
  bool afterReturn_ = false;
};

ConsoleListener consoleListener;
std::array<LineAssembler, 2> assemblers;

std::string formatted(const char *format, va_list args) {
  char *text = nullptr;
  const int length = vasprintf(&text, format, args);
  if (length < 0) {
    return "";
  }
  std::string result(text, static_cast<std::size_t>(length));
  std::free(text);
  return result;
}

int print(ConsolePort port, const char *format, va_list args) {
  const std::string text = formatted(format, args);
  if (consoleListener) {
    const auto deliver = [port](const std::string &line) { consoleListener(port, line); };
    assemblers[static_cast<std::size_t>(port)].push(text.c_str(), deliver);
  }
  return static_cast<int>(text.size());
}

}  // namespace

void bindConsole(ConsoleListener listener) {
  consoleListener = std::move(listener);
  for (LineAssembler &assembler : assemblers) {
    assembler.clear();
  }
}

Event printed(ConsolePort port, const std::string &line) {
  const bool debug = port == ConsolePort::Debug;
  return {debug ? EventKind::ModuleDebug : EventKind::ModulePrint, {}, line, "", {}, Tone::Faint};
}

}  // namespace chassis

extern "C" int modulePrintf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = chassis::print(chassis::ConsolePort::Print, format, args);
  va_end(args);
  return length;
}

extern "C" int bbPrintf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = chassis::print(chassis::ConsolePort::Debug, format, args);
  va_end(args);
  return length;
}
