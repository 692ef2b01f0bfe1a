#include "history/EventLines.h"

#include <nlohmann/json.hpp>
#include <utility>

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
}

void addFact(Json &line, const Fact &fact) {
  std::visit([&](const auto &value) { line[fact.name] = value; }, fact.value);
}

}  // namespace

std::string eventLine(const Event &event, const EventStamp &stamp) {
  Json line;
  line["number"] = stamp.number;
  line["time"] = wallClockText(stamp.wallMs);
  line["chassis_ms"] = stamp.chassisMs;
  line["kind"] = kindName(event.kind);
  addPlace(line, event.place);
  line["tone"] = toneName(event.tone);
  for (const Fact &fact : event.facts) {
    addFact(line, fact);
  }
  line["what"] = event.what;
  if (!event.why.empty()) {
    line["why"] = event.why;
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
