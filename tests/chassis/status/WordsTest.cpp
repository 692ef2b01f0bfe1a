#include "status/Words.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "CiIf.h"
#include "base/Text.h"

namespace chassis {
namespace {

TEST(Words, EveryStatusHasItsOwn) {
  const std::uint8_t codes[] = {DESC_STAT_SCRAMBLED, DESC_STAT_NO_ENTITLEMENT, DESC_STAT_TECHNICAL,
                                DESC_STAT_NO_ECM,    DESC_STAT_ECM_CC,         DESC_STAT_UNKNOWN,
                                DESC_STAT_OK};
  std::set<std::string> seen;
  for (const std::uint8_t code : codes) {
    EXPECT_EQ(statusWords(code).code, code);
    seen.insert(std::string(statusWords(code).state) + statusWords(code).cause);
  }
  EXPECT_EQ(seen.size(), std::size(codes));
}

TEST(Words, ZeroedTableReadsAsNotMeasured) {
  EXPECT_STREQ(statusWords(0).state, "not measured");
}

TEST(Words, CauseCarriesItsCode) {
  EXPECT_STREQ(statusWords(DESC_STAT_SCRAMBLED).cause, "the CAM is suspected");
}

TEST(Words, StreamTypes) {
  const std::map<std::uint16_t, std::string> named = {
      {0x01, "MPEG-1 video"}, {0x02, "MPEG-2 video"}, {0x03, "MPEG-1 audio"},
      {0x04, "MPEG-2 audio"}, {0x05, "sections"},     {0x06, "private data"},
      {0x0F, "AAC audio"},    {0x11, "LATM audio"},   {0x1B, "H.264 video"},
      {0x24, "H.265 video"},  {0x81, "AC-3 audio"}};
  for (std::uint16_t type = 0; type < 256; ++type) {
    const auto known = named.find(type);
    EXPECT_EQ(streamTypeText(type), known == named.end() ? "type " + hexText(type) : known->second);
  }
}

TEST(Words, Places) {
  EXPECT_EQ(camMaskText(0), "none");
  EXPECT_EQ(camMaskText(1), "0");
  EXPECT_EQ(camMaskText(2), "1");
  EXPECT_EQ(camMaskText(3), "0+1");
  EXPECT_EQ(placeText(-1, -1), "chassis");
  EXPECT_EQ(placeText(0, 1), "slot 0  CAM 1");
}

TEST(Words, Figures) {
  EXPECT_EQ(hexText(0x71), "0x71");
  EXPECT_EQ(hexText(0xFF), "0xFF");
  EXPECT_EQ(hexText(0x100), "0x0100");
  EXPECT_EQ(hexText(0x0101), "0x0101");
  EXPECT_EQ(stampText(3723004), "01:02:03.004");
  EXPECT_EQ(bitrateText(3250000), "3.25 Mbit/s");
  EXPECT_EQ(secondsText(12340), "12.3 s");
  EXPECT_EQ(countText(1, "error", "errors"), "1 error");
  EXPECT_EQ(countText(0, "error", "errors"), "0 errors");
}

TEST(Tones, HaveTheNamesOfTheSchema) {
  std::ifstream file(DOCS "/events.schema.json");
  const auto schema = nlohmann::json::parse(file);
  std::vector<std::string> tones;
  for (const Tone tone : {Tone::Plain, Tone::Good, Tone::Bad, Tone::Faint, Tone::Alarm}) {
    tones.emplace_back(toneName(tone));
  }
  EXPECT_EQ(schema["properties"]["tone"]["enum"].get<std::vector<std::string>>(), tones);
  EXPECT_EQ(tones.back(), "alarm");
}

}  // namespace
}  // namespace chassis
