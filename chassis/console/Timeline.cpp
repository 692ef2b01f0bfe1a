#include "console/Timeline.h"

#include <algorithm>
#include <utility>

#include "console/Tone.h"

namespace chassis {
namespace {

constexpr std::size_t placeWidth = 13;
constexpr std::size_t whatWidth = 60;

// Where the reasons begin. A narrow terminal has them nearer, so that more of them stay on the
// line.
std::size_t reasonColumn(std::size_t room) {
  return std::min(whatWidth, room / 2);
}

}  // namespace

struct Timeline::Line {
  std::uint64_t ms;
  std::string place;
  std::string what;
  std::string why;
  Tone tone;
};

Timeline::Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now)
    : out_(out), config_(std::move(config)), now_(std::move(now)) {}

void Timeline::tell(const Event &event) {
  if (event.kind == EventKind::ModulePrint || event.kind == EventKind::ModuleDebug) {
    print(event);
    return;
  }
  flush();
  printed_.clear();
  write({now_(), placeText(event.place.slot, event.place.cam), event.what, event.why, event.tone});
}

void Timeline::print(const Event &event) {
  const std::string &line = event.what;
  if (printed_.count(line) != 0) {
    ++repeats_;
    lastPrintedMs_ = now_();
    return;
  }
  flush();
  printed_.insert(line);
  const char *place = event.kind == EventKind::ModuleDebug ? "module debug" : "module";
  write({now_(), place, line, "", event.tone});
}

void Timeline::flush() {
  if (repeats_ > 0) {
    const std::string what = printed_.size() == 1 ? "" : " of the lines above";
    const std::string text = "(" + countText(repeats_, "repeat", "repeats") + what + ")";
    write({lastPrintedMs_, "module", text, "", Tone::Faint});
  }
  repeats_ = 0;
}

void Timeline::write(const Line &line) {
  const std::string head = stampText(line.ms) + "  " + padded(line.place, placeWidth) + "  ";
  const std::size_t width = config_.width ? config_.width() : anyWidth;
  const std::size_t room = remaining(width, head.size());
  const std::vector<std::string> rows = paired(line.what, line.why, reasonColumn(room), room);
  const bool beside = indentFor(rows.front(), width, head.size()) == head.size();
  out_ << (beside ? head : head.substr(0, head.find_last_not_of(' ') + 1) + "\n");
  for (const std::string &row : rows) {
    const bool behindHead = beside && &row == &rows.front();
    out_ << std::string(behindHead ? 0 : indentFor(row, width, head.size()), ' ')
         << toned(row, line.tone, config_.colour) << "\n";
  }
  out_ << std::flush;
}

}  // namespace chassis
