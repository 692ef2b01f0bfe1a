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
  EventWords words;
};

Timeline::Timeline(std::ostream &out, Config config, std::function<std::uint64_t()> now)
    : out_(out), config_(std::move(config)), now_(std::move(now)) {}

void Timeline::tell(const Event &event) {
  const EventWords words = wordsOf(event);
  if (event.kind() == EventKind::ModulePrint || event.kind() == EventKind::ModuleDebug) {
    print(event.kind() == EventKind::ModuleDebug ? "module debug" : "module", words);
    return;
  }
  flush();
  printed_.clear();
  write({now_(), placeText(event.place.slot, event.place.cam), words});
}

void Timeline::print(const std::string &printer, const EventWords &words) {
  const std::string &line = words.what;
  if (printed_.count(line) != 0) {
    ++repeats_;
    lastPrintedMs_ = now_();
    return;
  }
  flush();
  printed_.insert(line);
  write({now_(), printer, words});
}

void Timeline::flush() {
  if (repeats_ > 0) {
    const std::string what = printed_.size() == 1 ? "" : " of the lines above";
    const std::string text = "(" + countText(repeats_, "repeat", "repeats") + what + ")";
    write({lastPrintedMs_, "module", {text, "", Tone::Faint}});
  }
  repeats_ = 0;
}

void Timeline::write(const Line &line) {
  const std::string head = stampText(line.ms) + "  " + padded(line.place, placeWidth) + "  ";
  const std::size_t width = config_.width ? config_.width() : anyWidth;
  const std::size_t room = remaining(width, head.size());
  const std::vector<std::string> rows =
      paired(line.words.what, line.words.why, reasonColumn(room), room);
  const bool beside = indentFor(rows.front(), width, head.size()) == head.size();
  out_ << (beside ? head : head.substr(0, head.find_last_not_of(' ') + 1) + "\n");
  for (const std::string &row : rows) {
    const bool behindHead = beside && &row == &rows.front();
    out_ << std::string(behindHead ? 0 : indentFor(row, width, head.size()), ' ')
         << toned(row, line.words.tone, config_.colour) << "\n";
  }
  out_ << std::flush;
}

}  // namespace chassis
