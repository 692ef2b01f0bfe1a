#include "platform/Print.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "CiPlatform.h"
#include "platform/Binding.h"

namespace chassis {
namespace {

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
  Binding::print(port, text.c_str());
  return static_cast<int>(text.size());
}

}  // namespace

// A blank at the start of a line is its own, but for the one that belongs to an end.
std::optional<std::string> PrintedLines::Assembler::take(char c) {
  const bool restOfEnd = line_.empty() && (c == '\r' || (c == ' ' && afterReturn_));
  afterReturn_ = c == '\r';
  if (restOfEnd || c == '\r') {
    return std::nullopt;
  }
  if (c != '\n') {
    line_ += c;
    return std::nullopt;
  }
  return std::exchange(line_, "");
}

Printing PrintedLines::onLine(PrintListener listener) {
  auto printing = std::make_shared<const PrintListener>(std::move(listener));
  listener_ = printing;
  assemblers_ = {};
  return printing;
}

void PrintedLines::push(ConsolePort port, const char *text) {
  const Printing listener = listener_.lock();
  if (listener == nullptr) {
    return;
  }
  for (; *text != '\0'; ++text) {
    if (const auto line = assemblers_[static_cast<std::size_t>(port)].take(*text)) {
      (*listener)(port, *line);
    }
  }
}

Event printed(ConsolePort port, const std::string &line) {
  if (port == ConsolePort::Debug) {
    return {{}, event::ModuleDebug{{line}}};
  }
  return {{}, event::ModulePrint{{line}}};
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
