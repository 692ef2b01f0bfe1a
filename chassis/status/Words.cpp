#include "status/Words.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "CiIf.h"
#include "base/Text.h"

namespace chassis {
namespace {

const std::vector<StatusWords> statusTable = {
    {DESC_STAT_SCRAMBLED, "not descrambled", "the CAM is suspected", Tone::Bad},
    {DESC_STAT_NO_ENTITLEMENT, "not descrambled", "no entitlement", Tone::Bad},
    {DESC_STAT_TECHNICAL, "not descrambled", "technical refusal", Tone::Bad},
    {DESC_STAT_NO_ECM, "not descrambled", "ECMs missing", Tone::Bad},
    {DESC_STAT_ECM_CC, "not descrambled", "ECMs damaged", Tone::Bad},
    {DESC_STAT_OK, "descrambled", "", Tone::Good},
    {DESC_STAT_UNKNOWN, "not measured", "", Tone::Faint},
};

struct StreamTypeWords {
  std::uint16_t type;
  const char *text;
};

const StreamTypeWords streamTypeTable[] = {
    {0x01, "MPEG-1 video"}, {0x02, "MPEG-2 video"}, {0x03, "MPEG-1 audio"}, {0x04, "MPEG-2 audio"},
    {0x05, "sections"},     {0x06, "private data"}, {0x0F, "AAC audio"},    {0x11, "LATM audio"},
    {0x1B, "H.264 video"},  {0x24, "H.265 video"},  {0x81, "AC-3 audio"},
};

constexpr const char *toneNames[] = {"plain", "good", "bad", "faint", "alarm"};
static_assert(std::size(toneNames) == static_cast<std::size_t>(Tone::Alarm) + 1);

template <typename... Args>
std::string formatted(const char *format, Args... args) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, args...);
  return buffer;
}

}  // namespace

const char *toneName(Tone tone) {
  return toneNames[static_cast<std::size_t>(tone)];
}

const std::vector<StatusWords> &allStatusWords() {
  return statusTable;
}

const StatusWords &statusWords(std::uint8_t status) {
  const auto hasCode = [status](const StatusWords &words) { return words.code == status; };
  const auto found = std::find_if(std::begin(statusTable), std::end(statusTable), hasCode);
  return found == std::end(statusTable) ? *(std::end(statusTable) - 1) : *found;
}

std::string streamTypeText(std::uint16_t streamType) {
  const auto hasType = [streamType](const StreamTypeWords &words) {
    return words.type == streamType;
  };
  const auto found = std::find_if(std::begin(streamTypeTable), std::end(streamTypeTable), hasType);
  return found == std::end(streamTypeTable) ? "type " + hexText(streamType) : found->text;
}

std::string stampText(std::uint64_t ms) {
  const unsigned long long all = ms;
  return formatted("%02llu:%02llu:%02llu.%03llu", all / 3600000, all / 60000 % 60, all / 1000 % 60,
                   all % 1000);
}

std::string hexText(std::uint32_t value) {
  return hex(value, value > 0xFF ? 4 : 2);
}

std::string camText(int camSlot) {
  return std::to_string(camSlot);
}

std::string camMaskText(std::uint8_t camMask) {
  static const char *const texts[] = {"none", "0", "1", "0+1"};
  return texts[camMask & 3];
}

std::string placeText(int slot, int camSlot) {
  std::string text = slot < 0 ? "chassis" : "slot " + std::to_string(slot);
  if (camSlot >= 0) {
    text += "  CAM " + camText(camSlot);
  }
  return text;
}

std::string bitrateText(std::uint64_t bitrate) {
  return formatted("%.2f Mbit/s", static_cast<double>(bitrate) / 1e6);
}

std::string countText(std::uint64_t count, const std::string &one, const std::string &many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace chassis
