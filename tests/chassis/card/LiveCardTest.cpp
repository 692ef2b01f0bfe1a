// A card whose stream is found out while it flows.
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <memory>

#include "base/InputError.h"
#include "card/Card.h"
#include "card/Fpga.h"
#include "chassis/FakeSource.h"
#include "chassis/LastFacts.h"
#include "chassis/RecordedEvents.h"
#include "chassis/StreamWriter.h"

using namespace testing_streams;
using chassis::Card;
using chassis::Event;
using chassis::EventKind;
using chassis::TsPacket;
using testing_events::RecordedEvents;
using testing_streams::FakeSource;

namespace {

const ProgramMap video{1, 0x1001, 0x100, {{0x1B, 0x100, {}}}, {}, 0};
const ProgramMap radio{2, 0x1002, 0x200, {{0x03, 0x200, {}}}, {}, 0};

class LiveCard : public testing::Test {
 protected:
  LiveCard() {
    card.onProgramsChanged([this](std::uint32_t) { ++changes; });
    card.insertLive(std::make_unique<FakeSource>(coming), "udp://239.0.0.1:1234", 0);
  }

  void come(const StreamWriter &stream) { put(stream, coming); }
  std::vector<std::string> told() { return std::exchange(events.lines, {}); }

  RecordedEvents events{3};
  chassis::Files files;
  std::deque<TsPacket> coming;
  Card card{3, events, files};
  int changes = 0;
};

// Hands the arrivals of what is written to a test.
class PatientSink : public chassis::PacketSink {
 public:
  using Written = std::function<void(std::uint64_t firstCameMs)>;
  explicit PatientSink(Written written) : written_(std::move(written)) {}
  void write(const TsPacket *, const std::uint64_t *cameNs, std::size_t) override {
    written_(cameNs[0] / 1000000);
  }
  void end() override {}
  std::uint64_t patienceMs() const override { return 60; }
  const std::string &name() const override { return none_; }
  std::uint64_t writtenPackets() const override { return 0; }
  std::uint64_t lostPackets() const override { return 0; }
  const std::string &trouble() const override { return none_; }

 private:
  const Written written_;
  const std::string none_;
};

class AnyEvents : public chassis::Events {
  void tell(const Event &) override {}
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(LiveCard, StartsWithoutTables) {
  EXPECT_TRUE(card.inserted());
  EXPECT_TRUE(card.live());
  EXPECT_EQ(card.streamName(), "udp://239.0.0.1:1234");
  ASSERT_NE(card.descTable(), nullptr);
  EXPECT_EQ(card.descTable()->descProgCnt, 0U);
  EXPECT_TRUE(card.programs().empty());
  EXPECT_EQ(card.bitrate(), 0U);
}

TEST_F(LiveCard, TakesProgramsOverWhenTheyAppear) {
  EXPECT_FALSE(card.assign(2, 1)) << "not there yet";
  card.tick(100);
  EXPECT_EQ(changes, 0);
  come(StreamWriter().psi({video, radio}));
  card.tick(200);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(told(), (Lines{"the stream has begun: after 0.2 s",
                           "the stream's programs changed: 2 programs, new: PMT of program 1 "
                           "version 0, PMT of program 2 version 0"}));
  const auto facts = testing_events::lastFacts<chassis::event::StreamChanged>(events.all);
  EXPECT_EQ(facts.programs, (std::vector<std::uint16_t>{1, 2}));
  EXPECT_EQ(facts.changed.numbers(), facts.programs);
  EXPECT_EQ(facts.versions, (std::vector<std::uint16_t>{0, 0}));
  card.publishTables();
  ASSERT_EQ(card.descTable()->descProgCnt, 1U);
  EXPECT_EQ(card.descTable()->prog[0].prog_num, 2U);
  EXPECT_EQ(card.program(1)->camMask, 0U);
  EXPECT_EQ(card.program(3), nullptr);
  EXPECT_TRUE(card.assign(1, 2));
  EXPECT_EQ(changes, 2);
}

TEST_F(LiveCard, AllProgramsAreAlsoThoseThatComeLater) {
  card.assign(2, 2);
  card.assignAll(1);
  come(StreamWriter().psi({video, radio}));
  card.tick(10);
  EXPECT_EQ(card.program(1)->camMask, 1U);
  EXPECT_EQ(card.program(2)->camMask, 1U) << "what was said before is not said any more";
  card.assign(2, 0);
  EXPECT_EQ(card.program(2)->camMask, 0U);
  EXPECT_THROW(card.assignAll(4), chassis::InputError);
}

// The PMTs come one after the other; what a person sees is the whole.
TEST_F(LiveCard, ProgramsThatComeOneByOneAreToldTogether) {
  StreamWriter stream;
  stream.psi({video, radio});
  std::deque<TsPacket> all;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    all.push_back(stream.packet(i));
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    coming.push_back(all[i]);
    card.tick((i + 1) * 100);
    EXPECT_EQ(changes, i + 1 < all.size() ? 0 : 1) << i;
  }
}

TEST_F(LiveCard, APmtThatNeverComesIsNotWaitedForLongerThanTwoSeconds) {
  StreamWriter stream;
  stream.psi({video, radio});
  for (std::size_t i = 0; i + 1 < stream.packets(); ++i) {
    coming.push_back(stream.packet(i));
  }
  card.tick(1990);
  EXPECT_EQ(changes, 0);
  card.tick(2000);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(card.programs().size(), 1U);
}

TEST_F(LiveCard, ANameIsNoChangeOfThePrograms) {
  come(StreamWriter().psi({video}));
  card.tick(10);
  EXPECT_EQ(card.programs()[0].service.name, "");
  told();
  for (const std::string name : {"One", "Uno"}) {
    come(StreamWriter().table(0x11, sdtSection({{1, {name.begin(), name.end()}, {}}})));
    card.tick(card.fpga().nowMs + 10);
    EXPECT_EQ(card.programs()[0].service.name, name);
    EXPECT_EQ(card.programName(1), name);
    EXPECT_EQ(card.programName(2), "");
  }
  EXPECT_EQ(told(), Lines{});
  EXPECT_EQ(changes, 1);
}

TEST_F(LiveCard, SilenceAndReturnAreTold) {
  come(StreamWriter().psi({video}));
  card.tick(10);
  told();
  card.tick(1000);
  EXPECT_FALSE(card.silent());
  card.tick(1010);
  EXPECT_TRUE(card.silent());
  EXPECT_EQ(told(), Lines{"the stream is silent: no packets for 1.0 s"});
  come(StreamWriter().payload(0x100));
  card.tick(1020);
  EXPECT_FALSE(card.silent());
  ASSERT_EQ(events.lines.size(), 1U);
  EXPECT_EQ(events.lines[0], "the stream is back: after 1.0 s without packets");
}

// Its continuity counters begin anew: that is no loss. A gap behind it is one.
TEST_F(LiveCard, BehindASilenceTheCountersBeginAnew) {
  come(StreamWriter().psi({video}).payload(0x100));
  card.tick(10);
  card.tick(1010);
  ASSERT_TRUE(card.silent());
  come(StreamWriter().counter(0x100, 7).payload(0x100).counter(0x100, 11).payload(0x100));
  card.tick(1020);
  EXPECT_EQ(card.before(0x100).ccErrors, 1U);
  EXPECT_EQ(card.behind(0x100).ccErrors, 1U);
  come(StreamWriter().counter(0x100, 3).payload(0x100));
  card.tick(1030);
  EXPECT_EQ(card.before(0x100).ccErrors, 2U);
  EXPECT_EQ(card.behind(0x100).ccErrors, 2U);
}

TEST_F(LiveCard, SoTheyDoWithAnotherSender) {
  StreamWriter stream;
  stream.psi({video}).payload(0x100);
  const std::size_t first = stream.packets();
  stream.counter(0x100, 5).payload(0x100).payload(0x100).counter(0x100, 1).payload(0x100);
  card.insertLive(std::make_unique<FakeSource>(coming, first), "rtp://239.0.0.1:1234", 0);
  come(stream);
  card.tick(10);
  EXPECT_EQ(card.before(0x100).packets, 4U);
  EXPECT_EQ(card.before(0x100).ccErrors, 1U) << "the gap behind the seam alone";
  EXPECT_EQ(card.behind(0x100).ccErrors, 1U);
}

TEST_F(LiveCard, ASeamIsNoneOfTheCardPutInLater) {
  come(StreamWriter().psi({video}).payload(0x100));
  card.tick(1010);
  card.tick(2010);
  ASSERT_TRUE(card.silent());
  card.insertLive(std::make_unique<FakeSource>(coming), "rtp://239.0.0.1:1234", 2010);
  come(StreamWriter().payload(0x100).counter(0x100, 7).payload(0x100));
  card.tick(2020);
  EXPECT_EQ(card.before(0x100).ccErrors, 1U);
}

// The stream went on meanwhile: what waited for the chassis is there when it goes on.
TEST_F(LiveCard, AStallOfTheChassisIsNoSilence) {
  come(StreamWriter().psi({video}));
  card.tick(10);
  told();
  come(StreamWriter().payload(0x100));
  card.tick(5000);
  EXPECT_EQ(told(), Lines());
  EXPECT_EQ(card.before(0x100).lastSeenMs, 5000U);
}

TEST_F(LiveCard, EvidenceIsOfWhatHasCome) {
  EXPECT_FALSE(card.carries(0x100));
  come(StreamWriter().psi({video}).payload(0x100));
  card.tick(10);
  EXPECT_TRUE(card.carries(0x100));
  EXPECT_EQ(card.before(0x100).packets, 1U);
  EXPECT_EQ(card.behind(0x100).packets, 1U);
  EXPECT_EQ(card.counters().packets, 3U);
}

TEST_F(LiveCard, TheBitrateIsThatOfTheLastSecond) {
  StreamWriter stream;
  while (stream.packets() < 250) {
    stream.null();
  }
  come(stream);
  card.tick(500);
  EXPECT_EQ(card.bitrate(), 0U) << "before its end";
  card.tick(1000);
  EXPECT_EQ(card.bitrate(), 250U * 188 * 8);
}

TEST_F(LiveCard, AnOutputThatEndsGetsWhatWasHeldForIt) {
  int writes = 0;
  card.setOutput(std::make_unique<PatientSink>([&writes](std::uint64_t) { ++writes; }));
  come(StreamWriter().payload(0x100));
  card.tick(10);
  ASSERT_EQ(writes, 0) << "it is patient";
  card.endOutput();
  EXPECT_EQ(writes, 1);
}

TEST_F(LiveCard, PulledOutNothingIsLeftOfIt) {
  card.assignAll(3);
  come(StreamWriter().psi({video}));
  card.tick(10);
  card.remove();
  EXPECT_FALSE(card.live());
  EXPECT_FALSE(card.silent());
  EXPECT_EQ(card.streamName(), "");
  EXPECT_EQ(card.counters().packets, 0U);
  card.insertLive(std::make_unique<FakeSource>(coming), "-", 20);
  come(StreamWriter().psi({video}));
  card.tick(30);
  EXPECT_EQ(card.program(1)->camMask, 0U);
}

TEST(LiveCards, ThatBeganTogetherWriteOneAfterTheOther) {
  AnyEvents events;
  chassis::Files files;
  std::array<std::deque<TsPacket>, MAX_BOARD_NUM> coming;
  std::vector<std::unique_ptr<Card>> cards;
  std::map<std::uint64_t, int> writers;  // by tick
  std::uint64_t nowMs = 0;
  for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    cards.push_back(std::make_unique<Card>(slot, events, files));
    cards.back()->insertLive(std::make_unique<FakeSource>(coming[slot]), "udp://239.0.0.1:1234", 0);
    cards.back()->setOutput(std::make_unique<PatientSink>([&](std::uint64_t firstCameMs) {
      ++writers[nowMs];
      EXPECT_LE(nowMs - firstCameMs, 60U) << "at " << nowMs;
    }));
  }
  while (nowMs < 600) {
    nowMs += 10;
    for (std::uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
      coming[slot].push_back(StreamWriter().payload(0x100).packet(0));
      cards[slot]->tick(nowMs);
    }
  }
  EXPECT_GE(writers.size(), 54U);
  for (const auto &[atMs, count] : writers) {
    EXPECT_EQ(count, 1) << "at " << atMs;
  }
}
