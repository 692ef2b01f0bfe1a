#include "report/EventLines.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

namespace chassis {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t msPerSecond = 1000;

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

std::int64_t wallClockMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string wallClockText(std::int64_t wallMs) {
  const std::time_t seconds = wallMs / msPerSecond;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char date[32];
  const std::size_t size = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc);
  char ms[16];
  std::snprintf(ms, sizeof ms, ".%03dZ", static_cast<int>(wallMs % msPerSecond));
  return std::string(date, size) + ms;
}

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
