#include "rack/Rack.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "base/InputError.h"
#include "chassis/LibraryMemory.h"
#include "chassis/StreamWriter.h"
#include "chassis/cilib/EventLog.h"

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
}

TEST_F(RackTest, AllProgramsAreAssignedAtOnce) {
  insertCard(0);
  rack_.progAssignAll(0, 2);
  EXPECT_EQ(rack_.card(0).program(101)->camMask, 2U);
}

}  // namespace
}  // namespace chassis
