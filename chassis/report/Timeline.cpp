#include "report/Timeline.h"

namespace chassis {
namespace {

constexpr std::size_t placeWidth = 13;
constexpr std::size_t whatWidth = 60;

std::string padded(const std::string &text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

const char *escapeOf(Tone tone) {
  switch (tone) {
    case Tone::Good:
      return "\033[32m";
    case Tone::Bad:
      return "\033[31m";
    case Tone::Faint:
      return "\033[2m";
    case Tone::Plain:
      break;
  }
  return "";
}

}  // namespace

std::string toned(const std::string &text, Tone tone, bool colour) {
  return colour && tone != Tone::Plain ? escapeOf(tone) + text + "\033[0m" : text;
}

Timeline::Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now)
    : out_(out), config_(config), now_(std::move(now)) {}

void Timeline::report(Place place, const std::string &what, const std::string &why) {
  report(place, what, why, Tone::Plain);
}

void Timeline::report(Place place, const std::string &what, const std::string &why, Tone tone) {
  flush();
  lastPrinted_.clear();
  const std::string text = why.empty() ? what : padded(what, whatWidth) + "  " + why;
  write(now_(), placeText(place.slot, place.cam), text, tone);
}

void Timeline::print(ConsolePort port, const std::string &line) {
  if (line.empty() || (port == ConsolePort::Debug && !config_.debug)) {
    return;
  }
  if (line == lastPrinted_) {
    ++repeats_;
    lastPrintedMs_ = now_();
    return;
  }
  flush();
  lastPrinted_ = line;
  write(now_(), port == ConsolePort::Debug ? "module debug" : "module", line, Tone::Faint);
}

void Timeline::flush() {
  if (repeats_ > 0) {
    write(lastPrintedMs_, "module", "(" + countText(repeats_, "time", "times") + " more)",
          Tone::Faint);
  }
  repeats_ = 0;
}

void Timeline::write(std::uint64_t ms, const std::string &place, const std::string &text,
                     Tone tone) {
  out_ << stampText(ms) << "  " << padded(place, placeWidth) << "  "
       << toned(text, tone, config_.colour) << "\n"
       << std::flush;
}

}  // namespace chassis
