#include "rack/Rack.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "base/InputError.h"
#include "chassis/LibraryMemory.h"
#include "chassis/PaidStream.h"
#include "chassis/StreamWriter.h"
#include "chassis/cilib/EventLog.h"
#include "chassis/io/Datagrams.h"

using namespace testing_streams;

namespace chassis {
namespace {

constexpr std::uint64_t bitrate = 1504000;
constexpr std::uint16_t caSystem = 0x0500;

class RackTest : public testing::Test {
 protected:
  void insertCard(std::uint32_t slot) { rack_.cardInsert(slot, file_.path(), bitrate); }
  // The lines that begin so.
  long count(const std::string &what) const {
    return std::count_if(
        events_.lines.begin(), events_.lines.end(),
        [&what](const EventLog::Line &line) { return line.what.rfind(what, 0) == 0; });
  }
  void play(std::uint64_t ms) {
    for (const std::uint64_t end = nowMs_ + ms; nowMs_ < end;) {
      nowMs_ += Clock::msPerTick;
      rack_.tick(nowMs_);
      library_.tick(nowMs_);
    }
  }

  TemporaryFile file_{oneProgram()};
  EventLog events_;
  Clock clock_;
  Loop loop_;
  LibraryMemory memory_;
  CiLibrary library_{events_, memory_.shared()};
  Rack rack_{clock_, events_, loop_, library_};
  std::uint64_t nowMs_ = 0;
};

TEST_F(RackTest, TellsWhenACardIsInAndWhenItsProgramsChange) {
  std::vector<std::uint32_t> inserted;
  std::vector<std::uint32_t> changed;
  rack_.onCardInserted([&](std::uint32_t slot) {
    EXPECT_TRUE(rack_.card(slot).inserted());
    inserted.push_back(slot);
  });
  EXPECT_THROW(rack_.cardInsert(3, "nowhere.ts", bitrate), InputError);
  EXPECT_TRUE(inserted.empty());
  insertCard(3);
  rack_.onProgramsChanged([&changed](std::uint32_t slot) { changed.push_back(slot); });
  insertCard(5);
  changed.clear();
  EXPECT_EQ(inserted, (std::vector<std::uint32_t>{3, 5}));
  rack_.progAssign(5, 101, 1);
  EXPECT_EQ(changed, std::vector<std::uint32_t>{5});
}

// An output with something to wait for.
class WaitingSink : public PacketSink {
 public:
  explicit WaitingSink(std::function<bool()> letGo) : letGo_(std::move(letGo)) {}
  bool letGo() override { return letGo_(); }
  void write(const TsPacket *, const std::uint64_t *, std::size_t) override {}
  void end() override { ++ended; }
  std::uint64_t patienceMs() const override { return 0; }
  const std::string &name() const override { return none_; }
  std::uint64_t writtenPackets() const override { return 0; }
  std::uint64_t lostPackets() const override { return 0; }
  const std::string &trouble() const override { return none_; }
  static int ended;

 private:
  const std::function<bool()> letGo_;
  const std::string none_;
};
int WaitingSink::ended = 0;

TEST_F(RackTest, NoOutputEndsBeforeAllHaveLetGo) {
  WaitingSink::ended = 0;
  std::array<int, 2> asked{};
  for (std::size_t slot = 0; slot < asked.size(); ++slot) {
    rack_.card(static_cast<std::uint32_t>(slot))
        .setOutput(std::make_unique<WaitingSink>([&asked, slot] {
          EXPECT_EQ(WaitingSink::ended, 0);
          return ++asked[slot] > static_cast<int>(2 + slot);
        }));
  }
  EXPECT_TRUE(rack_.endOutputs().empty());
  EXPECT_EQ(asked, (std::array<int, 2>{4, 4})) << "all, until the last";
  EXPECT_EQ(WaitingSink::ended, 2);
}

// The first has let go only when the second has sent what it held for its time.
TEST_F(RackTest, WhileAnOutputWaitsTheOthersAreServed) {
  const std::string url = "udp://127.0.0.1:" + std::to_string(testing_datagrams::freePort());
  const testing_datagrams::Receiver receiver(url);
  bool came = false;
  rack_.card(0).setOutput(std::make_unique<WaitingSink>([&] {
    pollfd file{receiver.file(), POLLIN, 0};
    came = poll(&file, 1, 0) == 1;
    return came;
  }));
  insertCard(1);
  rack_.output(1, url + "?delay=50");
  play(200);
  ASSERT_FALSE(came);
  EXPECT_TRUE(rack_.endOutputs().empty());
  EXPECT_TRUE(came);
  EXPECT_EQ(rack_.card(1).output().packets, 200U);
}

TEST_F(RackTest, TheLibraryHasEachCamWhileItIsIn) {
  library_.load();
  insertCard(0);
  rack_.camInsert(0, 1, {caSystem});
  EXPECT_EQ(library_.insertStatus(0, 1), 2U);
  EXPECT_EQ(library_.insertStatus(0, 0), 0U);
  play(4000);
  EXPECT_EQ(library_.insertStatus(0, 1), 1U);
  EXPECT_TRUE(library_.supports(CiLibrary::indexOf(0, 1), caSystem));
  rack_.camRemove(0, 1);
  EXPECT_EQ(library_.insertStatus(0, 1), 0U);
  rack_.camRemove(0, 1);
}

TEST_F(RackTest, ACardGoesWithItsCams) {
  insertCard(0);
  rack_.camInsert(0, 0, {caSystem});
  rack_.cardRemove(0);
  EXPECT_EQ(library_.insertStatus(0, 0), 0U);
  EXPECT_FALSE(rack_.card(0).inserted());
}

TEST_F(RackTest, ACardThatIsPulledOutIsToldOnce) {
  insertCard(0);
  rack_.cardRemove(0);
  rack_.cardRemove(0);
  EXPECT_EQ(count("card pulled out"), 1);
}

TEST_F(RackTest, NamesWhatIsNotThere) {
  const auto errorOf = [](const std::function<void()> &call) -> std::string {
    try {
      call();
    } catch (const InputError &error) {
      return error.what();
    }
    return "no error";
  };
  insertCard(2);
  EXPECT_EQ(errorOf([this] { rack_.camFault(2, 1, CamFault::Deaf, true); }), "no CAM is in 2, 1");
  EXPECT_EQ(errorOf([this] { rack_.camEntitle(2, 1, 101, false); }), "no CAM is in 2, 1");
  EXPECT_EQ(errorOf([this] { rack_.camRefuse(2, 1, 102, false); }),
            "program 102 is not in the stream of slot 2, which carries 101");
}

TEST_F(RackTest, ALiveStreamHasTimeGoAtTheMachinesClock) {
  const TemporaryFile place;
  std::filesystem::remove(place.path());
  ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
  EXPECT_THROW(rack_.cardInsert(1, place.path(), bitrate), InputError) << "its own bitrate";
  EXPECT_FALSE(clock_.live());
  rack_.cardInsert(1, place.path(), 0);
  EXPECT_TRUE(clock_.live());
  EXPECT_TRUE(rack_.card(1).live());
  EXPECT_EQ(count("chassis time goes at the machine's clock from now on"), 1);
  rack_.cardInsert(2, place.path(), 0);
  EXPECT_EQ(count("chassis time goes at the machine's clock from now on"), 1);
}

TEST_F(RackTest, AnOutputIntoANetworkIsLiveToo) {
  rack_.output(0, "udp://127.0.0.1:9");
  EXPECT_TRUE(clock_.live());
}

TEST_F(RackTest, AProgramMayBeAssignedBeforeItAppears) {
  const TemporaryFile place;
  std::filesystem::remove(place.path());
  ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
  rack_.cardInsert(1, place.path(), 0);
  rack_.progAssign(1, 101, 1);
  EXPECT_EQ(count("nothing changes yet: program 101 is not in the stream"), 1);
  rack_.camInsert(1, 0, {caSystem});
  rack_.camEntitle(1, 0, 101, false);
  EXPECT_EQ(count("nothing changes yet: program 101 is not assigned to this CAM"), 1);
  EXPECT_EQ(events_.last<event::NoEffect>().reason, event::NoEffectReason::NotAssigned);
}

TEST_F(RackTest, AllProgramsAreAssignedAtOnce) {
  insertCard(0);
  rack_.progAssignAll(0, 2);
  EXPECT_EQ(rack_.card(0).program(101)->camMask, 2U);
}

class RackProbe : public RackTest {
 protected:
  Rack::Probe files() const {
    Rack::Probe probe;
    probe.before = in_.path();
    probe.behind = out_.path();
    return probe;
  }
  std::string error(const Rack::Probe &probe) {
    try {
      rack_.probeInsert(0, probe);
    } catch (const InputError &error) {
      return error.what();
    }
    return "";
  }

  const TemporaryFile in_{paidStream(true)};
  const TemporaryFile out_{paidStream(false)};
};

TEST_F(RackProbe, TheCaSystemIsTheFirstThatTheProgramsCarry) {
  rack_.probeInsert(0, files());
  EXPECT_TRUE(rack_.card(0).probing());
  EXPECT_FALSE(clock_.live());
  EXPECT_EQ(library_.insertStatus(0, 0), 1U);
  EXPECT_FALSE(library_.supports(0, caSystem)) << "not known yet";
  play(100);
  rack_.observe(0);
  EXPECT_TRUE(library_.supports(0, caSystem));
  EXPECT_EQ(count("the receiver is judged by CA system 0x0500"), 1);
  rack_.observe(0);
  EXPECT_EQ(count("the receiver is judged by CA system 0x0500"), 1) << "told once";
}

TEST_F(RackProbe, OneThatIsAskedForMustBeCarried) {
  Rack::Probe probe = files();
  probe.caSystems = {0x0B00, caSystem};
  rack_.probeInsert(0, probe);
  EXPECT_TRUE(library_.supports(0, 0x0B00));
  play(100);
  rack_.observe(0);
  EXPECT_EQ(count("the receiver is judged by CA system 0x0500"), 1);
  probe.caSystems = {0x0B00};
  rack_.probeInsert(0, probe);
  play(100);
  rack_.observe(0);
  EXPECT_EQ(count("no program carries CA system 0x0B00"), 1);
  const auto begun = events_.last<event::ProbeBegun>();
  EXPECT_EQ(begun.carried, std::vector<std::uint16_t>{0x0500});
  EXPECT_EQ(begun.by, 0);
  EXPECT_EQ(begun.asked, std::vector<std::uint16_t>{0x0B00});
}

TEST_F(RackProbe, TheObservedCamGoesWithItsReceiver) {
  rack_.probeInsert(0, files());
  rack_.cardRemove(0);
  EXPECT_EQ(library_.insertStatus(0, 0), 0U);
  rack_.probeInsert(0, files());
  EXPECT_THROW(rack_.camInsert(0, 0, {caSystem}), InputError);
  EXPECT_EQ(library_.insertStatus(0, 0), 1U);
  insertCard(0);
  EXPECT_EQ(library_.insertStatus(0, 0), 0U);
  EXPECT_FALSE(rack_.card(0).probing());
  rack_.camInsert(0, 0, {caSystem});
  EXPECT_EQ(library_.insertStatus(0, 0), 2U);
}

TEST_F(RackProbe, ACardThatCannotBePutInLeavesTheReceiverItsCam) {
  rack_.probeInsert(0, files());
  EXPECT_THROW(rack_.cardInsert(0, "nowhere.ts", bitrate), InputError);
  EXPECT_TRUE(rack_.card(0).probing());
  EXPECT_EQ(library_.insertStatus(0, 0), 1U);
}

TEST_F(RackProbe, FilesWithoutCommonTimeAreTold) {
  const TemporaryFile late(paidStream(false, 60000));
  Rack::Probe probe = files();
  probe.behind = late.path();
  rack_.probeInsert(0, probe);
  EXPECT_EQ(count("the two files have no time in common"), 1);
}

TEST_F(RackProbe, AFileBesideALiveStreamIsLiveToo) {
  const TemporaryFile place;
  std::filesystem::remove(place.path());
  ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
  Rack::Probe probe = files();
  probe.behind = place.path();
  rack_.probeInsert(0, probe);
  EXPECT_TRUE(clock_.live());
  EXPECT_EQ(count("the two files"), 0);
  probe.before = place.path();
  EXPECT_EQ(error(probe), "'" + place.path() +
                              "' is given twice; what goes in and what comes out are two streams");
}

TEST_F(RackProbe, WhatIsWrongWithAnInputLeavesWhatWasThere) {
  insertCard(0);
  Rack::Probe probe = files();
  probe.behind = "nowhere.ts";
  EXPECT_EQ(error(probe), "'nowhere.ts' cannot be opened: No such file or directory");
  EXPECT_TRUE(rack_.card(0).inserted());
  EXPECT_FALSE(rack_.card(0).probing());
}

}  // namespace
}  // namespace chassis
