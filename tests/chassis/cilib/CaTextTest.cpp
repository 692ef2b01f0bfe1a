#include "cilib/CaText.h"

#include <gtest/gtest.h>

namespace chassis {
namespace {

TEST(CaText, NamesListManagement) {
  const char *names[] = {"more", "first", "last", "only", "add", "update", "0x06"};
  for (std::uint8_t code = 0; code < 7; ++code) {
    EXPECT_EQ(listManagementText(code), names[code]);
  }
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

}  // namespace
}  // namespace chassis
