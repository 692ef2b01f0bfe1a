// Courses of many status check cycles, with a CAM that behaves like one.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

namespace {

constexpr uint8_t SLOT = 2;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t ECM = 0x1001;
constexpr uint8_t TECHNICAL = 0x73;
constexpr uint8_t NO_ENTITLEMENT = 0x71;

// What the module printed or reset, and when.
struct Event {
  uint32_t second;
  std::string line;

  bool operator==(const Event &other) const { return second == other.second && line == other.line; }
};

std::ostream &operator<<(std::ostream &out, const Event &event) {
  return out << event.second << ": " << event.line;
}

using Events = std::vector<Event>;

Event caPmtBuilt(uint32_t second, int version) {
  return {second, printed("card 3 cam 0 capmtVerNum=" + std::to_string(version) + "\n")};
}

Event queryBegun(uint32_t second) {
  return {second, printed("send CAPMT_QUERY info \n")};
}

Event reset(uint32_t second, char cam) {
  return {second, std::string("resetCAM(2, ") + cam + ")"};
}

Event firstReset(uint32_t second) {
  return {second, printed("all programs error, first reset! \n")};
}

Event repeatReset(uint32_t second) {
  return {second, printed("all programs error, repeat reset! \n")};
}

Event partialReset(uint32_t second) {
  return {second, printed("partial programs error, reset! \n")};
}

Event refused(uint32_t second) {
  return {second, bbPrinted("card 3 Program 0012 NO_ENTITLEMENT\n")};
}

// One card, checked once a period. The programs of CAM A are clear while `clear` holds.
class Supervision : public testing::Test {
 protected:
  explicit Supervision(uint32_t start = 1000000) : start_(start) {
    registerCard(SLOT);
    platform.now = start;
    platform.supports(SLOT, 0, {CAS});
    platform.supports(SLOT, 1, {CAS});
    platform.setInPort(SLOT, {{CAS, ECM}});
    Program program(0x12);
    program.ca(CAS, ECM).stream(0x02, 0x100);
    setTable({program});
    card.rdDescStat.does([this](uint16_t, uint32_t) { return clear ? 0u : 5u; });
  }

  void setTable(const std::vector<Program> &programs) {
    card.setTable(programs);
    getSlotDescPidInfo(SLOT);
    platform.take();
  }

  // Cycles up to and with the one of a second. The second that a CA PMT waits ends with the next.
  void runTo(uint32_t second, uint32_t period = 1) {
    for (; second_ <= second; second_ += period) {
      platform.now = start_ + second_ * 1000;
      camStatusCheck(SLOT);
      for (const std::string &line : platform.take({"printf", "bbPrintf", "resetCAM"})) {
        events_.push_back({second_, line});
      }
    }
  }

  Event caPmtSent(uint32_t second) const {
    return {second, printed("send 1 PMT to Card 3 CAM A,time " +
                            std::to_string(start_ + second * 1000 + 1000) + "\n\r ")};
  }

  Event querySent(uint32_t second) const {
    return {second, printed("second send 1 PMT query to Card 3 CAM A,time " +
                            std::to_string(start_ + second * 1000) + "\n\r ")};
  }

  Events takeEvents() { return std::exchange(events_, {}); }

  // The CAM answers each query with a CA_enable.
  void answerQueries(uint8_t caEnable) {
    platform.onSendCaPmt = [caEnable] {
      if (platform.sent.back().records.at(0).cmdId != 3) {
        return;
      }
      CaPmtReply &reply = caPmtReplyInfo[4];
      reply.progNum = 1;
      reply.prog[0].progNum = 0x12;
      reply.prog[0].caEnable = caEnable;
    };
  }

  static uint8_t summary(size_t cam = 0) { return pCiData[SLOT]->descStat[cam]; }
  static uint8_t status() { return DescStatus[SLOT][0].progStatus; }

  Card &card = platform.card[SLOT];
  bool clear = true;

 private:
  uint32_t start_;
  uint32_t second_ = 0;
  Events events_;
};

// --- the road of one CA PMT ----------------------------------------------------------------------

TEST_F(Supervision, InsertedCamIsGivenItsCaPmt) {
  platform.ciLibGetInsertCard = 0;
  clear = false;
  platform.onSendCaPmt = [this] { clear = true; };
  runTo(9);
  EXPECT_EQ(takeEvents(), Events{});
  EXPECT_EQ(summary(), DESC_SUM_ERROR);
  platform.ciLibGetInsertCard = 1;
  platform.giveFlag(4);
  runTo(600);
  EXPECT_EQ(takeEvents(), (Events{caPmtBuilt(10, 1), caPmtSent(10)}));
  EXPECT_EQ(summary(), DESC_SUM_OK);
  ASSERT_EQ(platform.sent.size(), 1u);
  const CaPmtProg &record = platform.sent[0].records.at(0);
  EXPECT_EQ(record.progNum, 0x12);
  EXPECT_EQ(record.listMgmt, 3);
  EXPECT_EQ(record.caNum, 1);
  EXPECT_EQ(record.casid[0], CAS);
  EXPECT_EQ(record.caPid[0], ECM);
}

class AnsweredQuery : public Supervision {
 protected:
  // A CAM that descrambles no longer from second 100 on.
  AnsweredQuery() {
    platform.giveFlag(4);
    runTo(99);
    EXPECT_EQ(takeEvents(), (Events{caPmtBuilt(0, 1), caPmtSent(0)}));
    clear = false;
  }
};

TEST_F(AnsweredQuery, MissingEntitlementIsFoundAndNotCuredByAReset) {
  answerQueries(NO_ENTITLEMENT);
  runTo(105);
  EXPECT_EQ(summary(), DESC_SUM_ALL | DESC_SUM_SCRAMBLED);
  EXPECT_EQ(takeEvents(), Events{});
  runTo(107);
  EXPECT_EQ(takeEvents(), (Events{queryBegun(106), caPmtBuilt(106, 2), querySent(106), refused(106),
                                  refused(107)}));
  EXPECT_EQ(status(), DESC_STAT_NO_ENTITLEMENT);
  EXPECT_EQ(summary(), DESC_SUM_ALL);
  runTo(2000);
  const Events rest = takeEvents();
  ASSERT_EQ(rest.size(), 2000u - 107u);
  EXPECT_EQ(rest.front(), refused(108));
  EXPECT_EQ(rest.back(), refused(2000));
}

TEST_F(AnsweredQuery, TechnicalFailureIsFoundSilently) {
  answerQueries(TECHNICAL);
  runTo(2000);
  EXPECT_EQ(takeEvents(), (Events{queryBegun(106), caPmtBuilt(106, 2), querySent(106)}));
  EXPECT_EQ(status(), DESC_STAT_TECHNICAL);
}

TEST_F(AnsweredQuery, SilentCamIsResetAndGivenItsCaPmtAgain) {
  platform.resetCAM.does([this](uint32_t, uint32_t) {
    platform.giveFlag(4);
    clear = true;
    return 0;
  });
  runTo(1000);
  EXPECT_EQ(takeEvents(),
            (Events{queryBegun(106), caPmtBuilt(106, 2), querySent(106), firstReset(130),
                    reset(130, '0'), caPmtBuilt(131, 3), caPmtSent(131)}));
  EXPECT_EQ(summary(), DESC_SUM_OK);
}

TEST_F(AnsweredQuery, DeadCamIsQueriedOnceAndResetAtLongIntervals) {
  runTo(740);
  EXPECT_EQ(takeEvents(), (Events{queryBegun(106), caPmtBuilt(106, 2), querySent(106),
                                  firstReset(130), reset(130, '0'), repeatReset(431),
                                  reset(431, '0'), repeatReset(732), reset(732, '0')}));
}

TEST_F(AnsweredQuery, CamThatKeepsAskingForCaPmtsIsNotReset) {
  card.rdDescStat.does([](uint16_t, uint32_t) {
    platform.giveFlag(4);
    return 5u;
  });
  runTo(400);
  EXPECT_EQ(platform.sent.size(), 1u + 300u);
  for (const Event &event : takeEvents()) {
    EXPECT_EQ(event.line.find("reset"), std::string::npos) << event;
  }
}

TEST_F(AnsweredQuery, MissingEcmIsNoCaseForTheCam) {
  card.GetPreCAMPidExist = 0;
  runTo(1000);
  EXPECT_EQ(takeEvents(), Events{});
  EXPECT_EQ(status(), DESC_STAT_NO_ECM);
  EXPECT_EQ(pCiData[SLOT]->preCamPidStat[0], 1);
}

TEST_F(AnsweredQuery, PulledCamIsLeftAlone) {
  runTo(103);
  platform.ciLibGetInsertCard = 0;
  runTo(1000);
  EXPECT_EQ(takeEvents(), Events{});
  EXPECT_EQ(status(), DESC_STAT_UNKNOWN);
}

// --- faults of a part and of the card ------------------------------------------------------------

TEST_F(Supervision, FaultOfAPartIsResetOnceUntilItHasHealed) {
  Program first(0x12);
  Program second(0x13);
  setTable({first.ca(CAS, ECM).stream(0x02, 0x100), second.ca(CAS, ECM).stream(0x02, 0x200)});
  card.rdDescStat.does([this](uint16_t pid, uint32_t) { return clear || pid == 0x100 ? 0u : 5u; });
  runTo(99);
  clear = false;
  runTo(999);
  // Six seconds after the last clean cycle that the scheduler saw, the clean spell allows a query.
  const Events once{queryBegun(106), caPmtBuilt(106, 1), querySent(106), partialReset(130),
                    reset(130, '0')};
  EXPECT_EQ(takeEvents(), once);
  clear = true;
  runTo(1004);
  clear = false;
  runTo(1099);
  EXPECT_EQ(takeEvents(), (Events{}));
  clear = true;
  runTo(1105);
  clear = false;
  runTo(1199);
  EXPECT_EQ(takeEvents(), (Events{queryBegun(1112), caPmtBuilt(1112, 2), querySent(1112),
                                  partialReset(1136), reset(1136, '0')}));
}

TEST_F(Supervision, LostSyncResetsBothCams) {
  runTo(99);
  card.cimax_sync_ok = 0;
  runTo(450);
  EXPECT_EQ(takeEvents(),
            (Events{firstReset(130), reset(130, '0'), firstReset(130), reset(130, '1'),
                    repeatReset(431), reset(431, '0'), repeatReset(431), reset(431, '1')}));
  EXPECT_EQ(pCiData[SLOT]->cimaxStat, 1);
  EXPECT_EQ(summary(), DESC_SUM_ERROR);
}

TEST_F(Supervision, UnlockedClockResetsBothCamsWhileTheCardIsReady) {
  runTo(99);
  card.PllLock = 0;
  runTo(129);
  card.GetCardBusy = 1;
  runTo(199);
  EXPECT_EQ(takeEvents(), Events{});
  card.GetCardBusy = 0;
  runTo(235);
  EXPECT_EQ(takeEvents(),
            (Events{firstReset(230), reset(230, '0'), firstReset(230), reset(230, '1')}));
}

// --- a day ---------------------------------------------------------------------------------------

class Day : public Supervision {
 protected:
  Day() : Supervision(0u - 43200000u) {}  // the clock starts again at zero at noon
};

TEST_F(Day, OfATroubledCam) {
  Events expected{caPmtBuilt(0, 1), caPmtSent(0)};
  platform.giveFlag(4);
  int version = 1;
  for (uint32_t hour = 1; hour < 24; ++hour) {
    const uint32_t fault = hour * 3600;
    runTo(fault - 10, 10);
    clear = false;
    runTo(fault + 590, 10);
    clear = true;
    for (const Event &event :
         Events{queryBegun(fault + 10), caPmtBuilt(fault + 10, ++version), querySent(fault + 10),
                firstReset(fault + 30), reset(fault + 30, '0'), repeatReset(fault + 340),
                reset(fault + 340, '0')}) {
      expected.push_back(event);
    }
  }
  runTo(86400, 10);
  EXPECT_EQ(takeEvents(), expected);
}

TEST_F(Day, OfAHealthyCam) {
  platform.giveFlag(4);
  runTo(86400, 10);
  EXPECT_EQ(takeEvents(), (Events{caPmtBuilt(0, 1), caPmtSent(0)}));
  EXPECT_EQ(summary(), DESC_SUM_OK);
}

}  // namespace
