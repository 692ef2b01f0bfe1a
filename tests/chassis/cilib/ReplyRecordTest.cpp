#include "cilib/ReplyRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace chassis {
namespace {

CaReply makeReply(std::uint16_t program, std::uint8_t caEnable, std::size_t streams = 0) {
  CaReply reply;
  reply.program = program;
  reply.caEnable = caEnable;
  for (std::size_t s = 0; s < streams; ++s) {
    reply.streams.push_back({static_cast<std::uint16_t>(0x100 + s), 0x73});
  }
  return reply;
}

bool zeroBeyondCounts(const CaPmtReply &record) {
  const auto zero = [](const void *from, const void *to) {
    const auto *bytes = static_cast<const std::uint8_t *>(from);
    return std::all_of(bytes, static_cast<const std::uint8_t *>(to),
                       [](std::uint8_t byte) { return byte == 0; });
  };
  bool all = zero(record.prog + record.progNum, record.prog + 32);
  for (int p = 0; p < record.progNum; ++p) {
    const CaPmtReplyProg &entry = record.prog[p];
    all = all && zero(entry.ele + entry.eleNum, entry.ele + 32);
  }
  return all;
}

TEST(ReplyRecord, AppendsProgramsInTheOrderOfTheirReplies) {
  CaPmtReply record{};
  for (const std::uint16_t program : {7, 3}) {
    const FiledReply result = fileReply(record, makeReply(program, 0x71, 2));
    EXPECT_TRUE(result.filed);
    EXPECT_TRUE(result.changed);
    EXPECT_EQ(result.streamsLeftOut, 0u);
  }
  ASSERT_EQ(record.progNum, 2);
  EXPECT_EQ(record.prog[0].progNum, 7);
  EXPECT_EQ(record.prog[1].progNum, 3);
  EXPECT_EQ(record.prog[1].caEnable, 0x71);
  ASSERT_EQ(record.prog[1].eleNum, 2);
  EXPECT_EQ(record.prog[1].ele[1].pid, 0x101);
  EXPECT_EQ(record.prog[1].ele[1].caEnable, 0x73);
  EXPECT_TRUE(zeroBeyondCounts(record));
}

TEST(ReplyRecord, ShorterReplyInPlaceOfALongerLeavesNothingBehind) {
  CaPmtReply record{};
  fileReply(record, makeReply(7, 0x71, 32));
  fileReply(record, makeReply(8, 0x71, 1));
  const FiledReply result = fileReply(record, makeReply(7, 0, 1));
  EXPECT_TRUE(result.filed);
  EXPECT_TRUE(result.changed);
  EXPECT_EQ(record.progNum, 2);
  EXPECT_EQ(record.prog[0].eleNum, 1);
  EXPECT_EQ(record.prog[0].caEnable, 0);
  EXPECT_TRUE(zeroBeyondCounts(record));
}

TEST(ReplyRecord, SameReplyAgainIsNoChange) {
  CaPmtReply record{};
  fileReply(record, makeReply(7, 0x71, 3));
  const FiledReply again = fileReply(record, makeReply(7, 0x71, 3));
  EXPECT_TRUE(again.filed);
  EXPECT_FALSE(again.changed);
  EXPECT_EQ(record.progNum, 1);
}

TEST(ReplyRecord, AppendedReplyIsAChangeEvenIfItSaysNothing) {
  CaPmtReply record{};
  EXPECT_TRUE(fileReply(record, makeReply(0, 0)).changed);
  EXPECT_EQ(record.progNum, 1);
  EXPECT_FALSE(fileReply(record, makeReply(0, 0)).changed);
}

TEST(ReplyRecord, KeepsThirtyTwoStreamsAndCountsTheRest) {
  CaPmtReply record{};
  EXPECT_EQ(fileReply(record, makeReply(1, 0, 32)).streamsLeftOut, 0u);
  const FiledReply result = fileReply(record, makeReply(2, 0, 300));
  EXPECT_EQ(result.streamsLeftOut, 268u);
  EXPECT_EQ(record.prog[1].eleNum, 32);
  EXPECT_EQ(record.prog[1].ele[31].pid, 0x11F);
  EXPECT_EQ(record.prog[2].progNum, 0);
}

TEST(ReplyRecord, ThirtyThirdProgramIsNotFiledButAKnownOneStillIs) {
  CaPmtReply record{};
  for (std::uint16_t program = 1; program <= 32; ++program) {
    EXPECT_TRUE(fileReply(record, makeReply(program, 0x71)).filed);
  }
  const CaPmtReply before = record;
  EXPECT_FALSE(fileReply(record, makeReply(33, 0x71, 32)).filed);
  EXPECT_EQ(std::memcmp(&before, &record, sizeof record), 0);
  EXPECT_TRUE(fileReply(record, makeReply(32, 0x73)).changed);
  EXPECT_EQ(record.prog[31].caEnable, 0x73);
  EXPECT_EQ(record.progNum, 32);
}

TEST(ReplyRecord, DroppingMovesTheRestUpAndLeavesZeros) {
  CaPmtReply record{};
  for (std::uint16_t program = 1; program <= 32; ++program) {
    fileReply(record, makeReply(program, 0x71, program));
  }
  dropReply(record, 2);
  dropReply(record, 99);
  EXPECT_EQ(record.progNum, 31);
  EXPECT_EQ(record.prog[0].progNum, 1);
  EXPECT_EQ(record.prog[1].progNum, 3);
  EXPECT_EQ(record.prog[30].progNum, 32);
  EXPECT_TRUE(zeroBeyondCounts(record));
}

TEST(ReplyRecord, DroppingTheOnlyOneLeavesAnEmptyRecord) {
  CaPmtReply record{};
  const CaPmtReply empty{};
  fileReply(record, makeReply(5, 0x71, 4));
  dropReply(record, 5);
  EXPECT_EQ(std::memcmp(&record, &empty, sizeof record), 0);
  dropReply(record, 5);
  EXPECT_EQ(record.progNum, 0);
}

}  // namespace
}  // namespace chassis
