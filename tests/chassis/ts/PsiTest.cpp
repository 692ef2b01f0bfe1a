#include "ts/Psi.h"

#include <gtest/gtest.h>

#include <random>

#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::PsiCa;
using chassis::PsiReader;

namespace {

ProgramMap program(unsigned number, unsigned pmtPid, unsigned firstPid) {
  return {number, pmtPid, firstPid, {{0x1B, firstPid, {}}, {0x04, firstPid + 1, {}}}, {}, 0};
}

void pushAll(PsiReader &reader, const StreamWriter &stream) {
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    reader.push(stream.packet(i));
  }
}

// A stream whose writer goes on, so that its continuity counters do.
struct Reading {
  void push() {
    for (; pushed < stream.packets(); ++pushed) {
      reader.push(stream.packet(pushed));
    }
  }

  StreamWriter stream;
  PsiReader reader;
  std::size_t pushed = 0;
};

}  // namespace

TEST(Psi, KnowsNothingAtFirst) {
  const PsiReader reader;
  EXPECT_FALSE(reader.complete());
  EXPECT_EQ(reader.changes(), 0U);
  EXPECT_TRUE(reader.psi().programs.empty());
}

TEST(Psi, ReadsProgramsInPatOrder) {
  Reading reading;
  const ProgramMap a = program(7, 0x1000, 0x100);
  const ProgramMap b = program(3, 0x1001, 0x200);
  // the PMTs come the other way round
  reading.stream.table(0, patSection({a, b})).table(0x1001, pmtSection(b));
  reading.push();
  EXPECT_FALSE(reading.reader.complete());
  reading.stream.table(0x1000, pmtSection(a));
  reading.push();
  EXPECT_TRUE(reading.reader.complete());
  const auto &psi = reading.reader.psi();
  EXPECT_EQ(psi.transportStreamId, 0x1234);
  ASSERT_EQ(psi.programs.size(), 2U);
  EXPECT_EQ(psi.programs[0].number, 7);
  EXPECT_EQ(psi.programs[0].pmtPid, 0x1000);
  EXPECT_EQ(psi.programs[0].pcrPid, 0x100);
  EXPECT_EQ(psi.programs[1].number, 3);
  ASSERT_EQ(psi.programs[1].streams.size(), 2U);
  EXPECT_EQ(psi.programs[1].streams[0].type, 0x1B);
  EXPECT_EQ(psi.programs[1].streams[0].pid, 0x200);
  EXPECT_EQ(psi.programs[1].streams[1].type, 0x04);
  EXPECT_EQ(psi.programs[1].streams[1].pid, 0x201);
}

TEST(Psi, ReadsCaDescriptorsOfBothLevelsAndOfTheCat) {
  const Bytes longData(251, 0xA5);
  ProgramMap map = program(1, 0x1000, 0x100);
  append(map.descriptors, caDescriptor(0x0500, 0x1F00, {1, 2, 3}));
  append(map.descriptors, {0x0A, 1, 0});  // another tag
  append(map.descriptors, caDescriptor(0x0B00, 0x1F01));
  append(map.streams[0].descriptors, caDescriptor(0x0500, 0x1F02, longData));
  Reading reading;
  reading.stream.psi({map}).table(1, catSection(caDescriptor(0x0500, 0x1FF0, {9})));
  reading.push();
  const auto &psi = reading.reader.psi();
  ASSERT_EQ(psi.programs.size(), 1U);
  EXPECT_EQ(psi.programs[0].ca,
            (std::vector<PsiCa>{{0x0500, 0x1F00, {1, 2, 3}}, {0x0B00, 0x1F01, {}}}));
  EXPECT_EQ(psi.programs[0].streams[0].ca, (std::vector<PsiCa>{{0x0500, 0x1F02, longData}}));
  EXPECT_TRUE(psi.programs[0].streams[1].ca.empty());
  EXPECT_EQ(psi.cat, (std::vector<PsiCa>{{0x0500, 0x1FF0, {9}}}));
}

TEST(Psi, LeavesOutACaDescriptorThatIsTooShort) {
  ProgramMap map = program(1, 0x1000, 0x100);
  append(map.descriptors, {0x09, 3, 0x05, 0x00, 0xE1});
  append(map.descriptors, caDescriptor(0x0500, 0x1F00));
  Reading reading;
  reading.stream.psi({map});
  reading.push();
  ASSERT_EQ(reading.reader.psi().programs.size(), 1U);
  EXPECT_EQ(reading.reader.psi().programs[0].ca, (std::vector<PsiCa>{{0x0500, 0x1F00, {}}}));
}

TEST(Psi, RepetitionIsNoChange) {
  Reading reading;
  const ProgramMap map = program(1, 0x1000, 0x100);
  reading.stream.psi({map});
  reading.push();
  const auto changes = reading.reader.changes();
  for (int i = 0; i < 10; ++i) {
    reading.stream.psi({map});
  }
  // nor is one behind a gap
  reading.stream.counter(0, 9).counter(0x1000, 3).psi({map});
  reading.push();
  EXPECT_EQ(reading.reader.changes(), changes);
}

TEST(Psi, FollowsAPmtToItsNextVersion) {
  Reading reading;
  ProgramMap map = program(1, 0x1000, 0x100);
  const ProgramMap other = program(2, 0x1001, 0x300);
  reading.stream.psi({map, other});
  reading.push();
  const auto changes = reading.reader.changes();
  map.version = 1;
  map.streams = {{0x02, 0x150, caDescriptor(0x0600, 0x1F05)}};
  reading.stream.psi({map, other});
  reading.push();
  const auto &programs = reading.reader.psi().programs;
  EXPECT_EQ(reading.reader.changes(), changes + 1);
  ASSERT_EQ(programs.size(), 2U);
  EXPECT_EQ(programs[0].version, 1);
  ASSERT_EQ(programs[0].streams.size(), 1U);
  EXPECT_EQ(programs[0].streams[0].pid, 0x150);
  EXPECT_EQ(programs[0].streams[0].ca.size(), 1U);
  EXPECT_EQ(programs[1].number, 2);
}

TEST(Psi, FollowsThePatToItsNextVersion) {
  Reading reading;
  const ProgramMap stays = program(1, 0x1000, 0x100);
  const ProgramMap goes = program(2, 0x1001, 0x200);
  const ProgramMap comes = program(3, 0x1002, 0x300);
  reading.stream.psi({stays, goes});
  reading.push();
  reading.stream.table(0, patSection({comes, stays}, 1));
  reading.push();
  const auto &programs = reading.reader.psi().programs;
  ASSERT_EQ(programs.size(), 1U);
  EXPECT_EQ(programs[0].number, 1);
  EXPECT_FALSE(reading.reader.complete());
  reading.stream.table(0x1002, pmtSection(comes));
  reading.push();
  ASSERT_EQ(programs.size(), 2U);
  EXPECT_EQ(programs[0].number, 3);
  EXPECT_TRUE(reading.reader.complete());
}

TEST(Psi, DropsASectionWithAWrongCrc) {
  Reading reading;
  ProgramMap map = program(1, 0x1000, 0x100);
  reading.stream.psi({map});
  reading.push();
  const auto changes = reading.reader.changes();
  map.version = 1;
  map.pcrPid = 0x101;
  Bytes damaged = pmtSection(map);
  damaged[8] ^= 0x01;
  reading.stream.table(0x1000, damaged);
  reading.push();
  EXPECT_EQ(reading.reader.changes(), changes);
  EXPECT_EQ(reading.reader.psi().programs[0].pcrPid, 0x100);
  reading.stream.table(0x1000, pmtSection(map));
  reading.push();
  EXPECT_EQ(reading.reader.psi().programs[0].pcrPid, 0x101);
}

// One program whose PMT section takes several packets.
StreamWriter longSection() {
  ProgramMap map = program(1, 0x1000, 0x100);
  for (unsigned i = 0; i < 3; ++i) {
    append(map.descriptors, caDescriptor(0x0500 + i, 0x1F00, Bytes(200, 0x33)));
  }
  StreamWriter stream;
  stream.psi({map});
  return stream;
}

TEST(Psi, DropsALongSectionThatLostAPacket) {
  const StreamWriter stream = longSection();
  PsiReader reader;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    if (i != 2) {
      reader.push(stream.packet(i));
    }
  }
  EXPECT_TRUE(reader.psi().programs.empty());
  PsiReader whole;
  pushAll(whole, stream);
  EXPECT_EQ(whole.psi().programs.size(), 1U);
}

TEST(Psi, PacketsSentTwiceCountOnceFromTheFirstTableOn) {
  const StreamWriter stream = longSection();
  PsiReader reader;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    reader.push(stream.packet(i));
    reader.push(stream.packet(i));
  }
  ASSERT_EQ(reader.psi().programs.size(), 1U);
  EXPECT_EQ(reader.psi().programs[0].ca.size(), 3U);
}

TEST(Psi, WaitsForATableThatIsNotCurrentYet) {
  Reading reading;
  ProgramMap map = program(1, 0x1000, 0x100);
  reading.stream.psi({map});
  reading.push();
  map.version = 1;
  map.pcrPid = 0x101;
  Bytes next = pmtSection(map);
  next[5] &= 0xFE;
  reading.stream.table(0x1000, sealed(next));
  reading.push();
  EXPECT_EQ(reading.reader.psi().programs[0].pcrPid, 0x100);
}

// The CRC is right, but lengths inside lead out of the section.
TEST(Psi, DropsSectionsWhoseInnerLengthsDoNotFit) {
  const std::vector<Bytes> bodies = {
      {},
      {0xE1, 0x00},
      {0xE1, 0x00, 0xFF, 0xFF},
      {0xE1, 0x00, 0xF0, 0x06, 0x09, 0xFF, 0x05, 0x00, 0xE1, 0x00},
      {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x00, 0xFF, 0xFF},
      {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x00, 0xF0, 0x02, 0x09, 0x30},
      {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1},
  };
  const ProgramMap map = program(1, 0x1000, 0x100);
  Reading reading;
  reading.stream.table(0, patSection({map}));
  unsigned version = 1;
  for (const Bytes &body : bodies) {
    reading.stream.table(0x1000, section(0x02, 1, version++, body));
  }
  reading.push();
  EXPECT_TRUE(reading.reader.psi().programs.empty());
  reading.stream.table(0x1000, pmtSection(map));
  reading.push();
  EXPECT_EQ(reading.reader.psi().programs.size(), 1U);
}

TEST(Psi, DropsAPatThatEndsWithinAProgram) {
  const ProgramMap map = program(1, 0x1000, 0x100);
  const Bytes entry = {0x00, 0x01, 0xF0, 0x00};
  for (const std::size_t size : {1, 2, 3, 5, 6, 7}) {
    Bytes body = entry;
    body.insert(body.end(), entry.begin(), entry.end());
    body.resize(size);
    Reading reading;
    reading.stream.table(0, section(0x00, 1, 1, body));
    reading.push();
    EXPECT_FALSE(reading.reader.patSeen()) << size;
    reading.stream.psi({map});
    reading.push();
    EXPECT_TRUE(reading.reader.complete()) << size;
  }
}

TEST(Psi, IgnoresPacketsWhoseFieldsLeadOutOfThem) {
  Reading reading;
  const ProgramMap map = program(1, 0x1000, 0x100);
  reading.stream.psi({map});
  reading.push();
  const auto changes = reading.reader.changes();
  auto packet = reading.stream.packet(0);
  for (const unsigned length : {0U, 182U, 183U, 184U, 255U}) {
    packet[3] = 0x30 | 1;
    packet[4] = static_cast<std::uint8_t>(length);
    reading.reader.push(packet);
  }
  packet = reading.stream.packet(0);
  for (const unsigned pointer : {182U, 183U, 184U, 255U}) {
    packet[4] = static_cast<std::uint8_t>(pointer);
    reading.reader.push(packet);
  }
  EXPECT_EQ(reading.reader.changes(), changes);
}

TEST(Psi, ProgramWhosePmtMovesIsReadAnew) {
  for (const unsigned moved : {0x1001U, 0x0FFFU}) {
    Reading reading;
    reading.stream.psi({program(1, 0x1000, 0x100)});
    reading.push();
    ASSERT_TRUE(reading.reader.complete());
    reading.stream.table(0, patSection({program(1, moved, 0x100)}, 1));
    reading.push();
    EXPECT_FALSE(reading.reader.complete()) << moved;
    reading.stream.table(moved, pmtSection(program(1, moved, 0x200)));
    reading.push();
    ASSERT_TRUE(reading.reader.complete()) << moved;
    EXPECT_EQ(reading.reader.psi().programs[0].pmtPid, moved);
    EXPECT_EQ(reading.reader.psi().programs[0].pcrPid, 0x200);
  }
}

TEST(Psi, TwoProgramsShareAPmtPid) {
  Reading reading;
  reading.stream.psi({program(1, 0x1000, 0x100), program(2, 0x1000, 0x200)});
  reading.push();
  EXPECT_TRUE(reading.reader.complete());
  ASSERT_EQ(reading.reader.psi().programs.size(), 2U);
  EXPECT_EQ(reading.reader.psi().programs[1].pcrPid, 0x200);
}

TEST(Psi, SurvivesNoise) {
  std::mt19937 random(1);
  ProgramMap map = program(1, 0x1000, 0x100);
  append(map.descriptors, caDescriptor(0x0500, 0x1F00, Bytes(40, 0x55)));
  StreamWriter stream;
  for (int i = 0; i < 2000; ++i) {
    stream.psi({map}).table(1, catSection(caDescriptor(0x0500, 0x1FF0)));
  }
  PsiReader reader;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    chassis::TsPacket packet = stream.packet(i);
    for (unsigned flips = random() % 8; flips > 0; --flips) {
      // any bit but the PID's, so that the noise reaches the tables
      packet[3 + random() % 60] ^= static_cast<std::uint8_t>(1U << random() % 8);
    }
    reader.push(packet);
  }
  ASSERT_EQ(reader.psi().programs.size(), 1U);
  EXPECT_EQ(reader.psi().programs[0].ca[0].pid, 0x1F00);
}
