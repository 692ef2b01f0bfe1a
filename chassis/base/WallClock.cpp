#include "base/WallClock.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace chassis {
namespace {

constexpr std::int64_t msPerSecond = 1000;

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

}  // namespace chassis
