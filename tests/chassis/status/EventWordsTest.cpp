#include "status/EventWords.h"

#include <gtest/gtest.h>

#include <set>

#include "chassis/SampleEvents.h"

namespace chassis {
namespace {

using sample_events::everyEvent;
using sample_events::Told;

TEST(EventWords, AreMadeOfTheFacts) {
  for (const Told &told : everyEvent()) {
    const EventWords words = wordsOf({told.place, told.facts});
    EXPECT_EQ(words.what + " | " + words.why, told.words);
    EXPECT_EQ(words.tone, told.tone) << words.what;
  }
}

TEST(EventWords, AreTestedForEachKind) {
  std::set<std::size_t> kinds;
  for (const Told &told : everyEvent()) {
    kinds.insert(told.facts.index());
  }
  EXPECT_EQ(kinds.size(), eventKinds);
}

TEST(EventWords, GivePidsFourDigits) {
  event::Feed feed;
  feed.ecmPid = 0x0150;
  feed.reason = event::FeedReason::NoEcm;
  feed.timeoutMs = 4000;
  EXPECT_EQ(wordsOf({{0, 0}, event::CamStops{feed}}).why, "no ECM on PID 0x0150 for 4000 ms");
  feed.reason = event::FeedReason::EcmsCome;
  feed.tier = 7;
  EXPECT_EQ(wordsOf({{0, 0}, event::CamDescrambles{feed, false}}).why,
            "ECMs on PID 0x0150, tier 7");
}

// A CAM may say anything, and any length of it.
TEST(EventWords, OfLongListsAreCutShort) {
  const EventWords replied = wordsOf({{0, 0}, sample_events::reply(20000)});
  EXPECT_NE(replied.why.find(", 19992 more"), std::string::npos);
  EXPECT_LT(replied.why.size(), 500U);
  const event::CamUp up{{std::vector<std::uint16_t>(10, 0x0100)}};
  EXPECT_EQ(wordsOf({{0, 0}, up}).what,
            "CAM is up, CA systems 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, "
            "2 more");
}

}  // namespace
}  // namespace chassis
