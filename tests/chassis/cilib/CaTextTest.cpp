#include "cilib/CaText.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(CaText, NamesWhatACamAnswers) {
  EXPECT_EQ(caEnableText(0), "no statement");
  EXPECT_EQ(caEnableText(0x01), "descrambling possible (0x01)");
  EXPECT_EQ(caEnableText(0x02), "possible after a purchase dialogue (0x02)");
  EXPECT_EQ(caEnableText(0x03), "possible after a technical dialogue (0x03)");
  EXPECT_EQ(caEnableText(0x71), "no entitlement (0x71)");
  EXPECT_EQ(caEnableText(0x73), "technical reasons (0x73)");
  EXPECT_EQ(caEnableText(0x72), "a reserved value (0x72)");
}

TEST(CaText, NamesListManagement) {
  const char *names[] = {"more", "first", "last", "only", "add", "update", "0x06"};
  for (std::uint8_t code = 0; code < 7; ++code) {
    EXPECT_EQ(listManagementText(code), names[code]);
  }
}

TEST(CaText, ListsSystems) {
  EXPECT_EQ(caSystemsText({}), "no CA system");
  EXPECT_EQ(caSystemsText({0x0500}), "CA system 0x0500");
  EXPECT_EQ(caSystemsText({0x0500, 0x0B01}), "CA systems 0x0500, 0x0B01");
}

TEST(CaText, LongListsAreCutShort) {
  EXPECT_EQ(caSystemsText(std::vector<std::uint16_t>(10, 0x0100)),
            "CA systems 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 0x0100, 2 more");
  CaReply reply;
  reply.streams.assign(20000, {0x0101, 0x71});
  EXPECT_NE(streamsText(reply).find("19992 more"), std::string::npos);
  EXPECT_LT(streamsText(reply).size(), 500u);
  EXPECT_EQ(firstAndMore({"one", "two", "three"}), "one; and 2 more");
  EXPECT_EQ(firstAndMore({"one"}), "one");
}

struct Judged {
  std::uint8_t program;
  std::vector<std::uint8_t> streams;
  std::uint8_t verdict;
};

TEST(CaText, VerdictIsTheProgramsElseTheWorstOfTheStreams) {
  const Judged cases[] = {{0, {}, 0},
                          {0x71, {0x01}, 0x71},
                          {0x01, {0x71}, 0x01},
                          {0, {0x01, 0x73}, 0x73},
                          {0, {0x71, 0x73}, 0x71},
                          {0, {0, 0x02}, 0x02},
                          {0, {0x6F, 0x71}, 0x71},
                          {0, {0x70, 0x71}, 0x70},
                          {0, {0x71, 0x01}, 0x71}};
  for (const Judged &judged : cases) {
    CaReply reply;
    reply.caEnable = judged.program;
    for (const std::uint8_t caEnable : judged.streams) {
      reply.streams.push_back({0x0100, caEnable});
    }
    EXPECT_EQ(verdict(reply), judged.verdict);
  }
}

TEST(CaText, StreamsAreNamedByPid) {
  CaReply reply;
  reply.streams = {{0x0101, 0x71}, {0x0102, 0}, {0x0103, 0x01}};
  EXPECT_EQ(streamsText(reply),
            "PID 0x0101: no entitlement (0x71), PID 0x0103: descrambling possible (0x01)");
}

}  // namespace
}  // namespace chassis
