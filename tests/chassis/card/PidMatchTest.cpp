#include "card/PidMatch.h"

#include <gtest/gtest.h>

using namespace chassis;

namespace {

PsiProgram program(std::uint16_t number, const std::vector<std::pair<int, int>> &streams) {
  PsiProgram made;
  made.number = number;
  for (const auto &[type, pid] : streams) {
    PsiStream stream;
    stream.type = static_cast<std::uint8_t>(type);
    stream.pid = static_cast<std::uint16_t>(pid);
    made.streams.push_back(stream);
  }
  return made;
}

Psi psi(const std::vector<PsiProgram> &programs) {
  Psi made;
  made.programs = programs;
  return made;
}

}  // namespace

TEST(PidMatch, TheSameProgramIsTheSamePids) {
  const Psi both = psi({program(1, {{0x1B, 0x100}, {0x03, 0x101}})});
  const PidMatch match = matchPids(both, both, {});
  EXPECT_EQ(match.before[0x100], 0x100);
  EXPECT_EQ(match.before[0x101], 0x101);
  EXPECT_EQ(match.before[0x102], nullPid);
  EXPECT_TRUE(match.missing.empty());
  EXPECT_TRUE(match.unmatched.empty());
}

TEST(PidMatch, MovedStreamsAreMatchedByTypeAndOrder) {
  const Psi before = psi({program(1, {{0x1B, 0x100}, {0x03, 0x101}, {0x03, 0x102}})});
  const Psi behind = psi({program(1, {{0x03, 0x201}, {0x03, 0x202}, {0x1B, 0x200}})});
  const PidMatch match = matchPids(before, behind, {});
  EXPECT_EQ(match.before[0x200], 0x100);
  EXPECT_EQ(match.before[0x201], 0x101);
  EXPECT_EQ(match.before[0x202], 0x102);
}

// Also when an earlier stream of the type could take it.
TEST(PidMatch, AStreamThatKeptItsPidKeepsIt) {
  const Psi before = psi({program(1, {{0x03, 0x101}, {0x03, 0x102}})});
  const Psi behind = psi({program(1, {{0x03, 0x102}, {0x03, 0x300}})});
  const PidMatch match = matchPids(before, behind, {});
  EXPECT_EQ(match.before[0x102], 0x102);
  EXPECT_EQ(match.before[0x300], 0x101);
}

TEST(PidMatch, AnotherTypeIsAnotherStream) {
  const Psi before = psi({program(7, {{0x1B, 0x100}, {0x03, 0x101}})});
  const Psi behind = psi({program(7, {{0x24, 0x100}, {0x03, 0x101}})});
  const PidMatch match = matchPids(before, behind, {});
  EXPECT_EQ(match.before[0x100], nullPid);
  EXPECT_EQ(match.unmatched, (std::vector<UnmatchedStream>{{7, 0x100, 0x1B}}));
  const Psi left = withoutUnmatched(before, match);
  ASSERT_EQ(left.programs.size(), 1U);
  ASSERT_EQ(left.programs[0].streams.size(), 1U);
  EXPECT_EQ(left.programs[0].streams[0].pid, 0x101);
}

// The programs before may have changed since they were matched.
TEST(PidMatch, AStreamOfAnotherTypeIsNotTheUnmatchedOne) {
  PidMatch match;
  match.unmatched = {{7, 0x100, 0x1B}};
  for (const int type : {0x02, 0x24}) {
    const Psi left = withoutUnmatched(psi({program(7, {{type, 0x100}})}), match);
    EXPECT_EQ(left.programs[0].streams.size(), 1U) << type;
  }
}

TEST(PidMatch, NumbersThatChangedAreMapped) {
  const Psi before = psi({program(1, {{0x1B, 0x100}}), program(2, {{0x1B, 0x200}})});
  const Psi behind = psi({program(11, {{0x1B, 0x500}}), program(2, {{0x1B, 0x200}})});
  const PidMatch match = matchPids(before, behind, {{1, 11}});
  EXPECT_EQ(match.before[0x500], 0x100);
  EXPECT_EQ(match.before[0x200], 0x200);
  EXPECT_EQ(matchPids(before, behind, {}).missing, std::set<std::uint16_t>{1});
  EXPECT_EQ(matchPids(before, behind, {{1, 11}, {2, 12}}).missing, std::set<std::uint16_t>{2});
}

TEST(PidMatch, AProgramThatIsNotBehindIsMissingWithoutItsStreams) {
  const Psi before = psi({program(1, {{0x1B, 0x100}})});
  const PidMatch match = matchPids(before, psi({}), {});
  EXPECT_EQ(match.missing, std::set<std::uint16_t>{1});
  EXPECT_TRUE(match.unmatched.empty());
}

// Counting two streams as one would look like continuity errors.
TEST(PidMatch, ASharedPidHasOneBehind) {
  const Psi before = psi({program(1, {{0x03, 0x101}}), program(2, {{0x03, 0x101}})});
  const Psi behind = psi({program(1, {{0x03, 0x201}}), program(2, {{0x03, 0x202}})});
  const PidMatch match = matchPids(before, behind, {});
  EXPECT_EQ(match.before[0x201], 0x101);
  EXPECT_EQ(match.before[0x202], nullPid);
  EXPECT_TRUE(match.unmatched.empty());
}
