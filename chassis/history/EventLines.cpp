#include "history/EventLines.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "status/EventWords.h"

namespace chassis {
namespace {

using Json = nlohmann::ordered_json;

void addPlace(Json &line, Place place) {
  if (place.slot >= 0) {
    line["slot"] = place.slot;
  }
  if (place.cam >= 0) {
    line["cam"] = place.cam;
  }
  if (place.side != Side::None) {
    line["side"] = place.side == Side::Before ? "before" : "behind";
  }
}

void addFacts(Json &line, const Facts &facts) {
  const auto add = [&line](const char *name, const auto &value) { line[name] = value; };
  std::visit([&add](const auto &known) { known.each(add); }, facts);
}

}  // namespace

std::string eventLine(const Event &event, const EventStamp &stamp) {
  Json line;
  line["number"] = stamp.number;
  line["time"] = wallClockText(stamp.wallMs);
  line["chassis_ms"] = stamp.chassisMs;
  line["kind"] = kindName(event.kind());
  addPlace(line, event.place);
  const EventWords words = wordsOf(event);
  line["tone"] = toneName(words.tone);
  addFacts(line, event.facts);
  line["what"] = words.what;
  if (!words.why.empty()) {
    line["why"] = words.why;
  }
  return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

EventLines::EventLines(Write write, std::function<std::uint64_t()> nowMs,
                       std::function<std::int64_t()> wallMs)
    : write_(std::move(write)), nowMs_(std::move(nowMs)), wallMs_(std::move(wallMs)) {}

void EventLines::tell(const Event &event) {
  write_(eventLine(event, {++number_, nowMs_(), wallMs_()}) + "\n");
}

}  // namespace chassis
