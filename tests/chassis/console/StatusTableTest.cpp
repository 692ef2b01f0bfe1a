#include "console/StatusTable.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <array>

#include "CiPlatform.h"
#include "chassis/LibraryMemory.h"
#include "chassis/SampleFindings.h"

namespace chassis {
namespace {

TEST(StatusTable, OneRowPerPidWithItsEvidence) {
  CardFinding card = sampleCard(DESC_STAT_OK, DESC_STAT_NO_ENTITLEMENT);
  PidFinding &refused = card.programs[1].pids[0];
  refused.reply = 0x71;
  refused.behind.lastScrambled = true;
  PidFinding &lost = card.programs[1].pids[1];
  lost.ecms = {{0x1001, false, {50, 0, 0, false, false, 6000}}, {0x1002, false, {}}};
  lost.behind = {};
  EXPECT_EQ(statusTable(card, false), R"(slot 0 at 00:00:10.000, 2.50 Mbit/s, 2 programs
program  PID     stream        CAM  state            cause                  reply  ECM PIDs                                before  behind  seen behind the CAMs
-------  ------  ------------  ---  ---------------  ---------------------  -----  --------------------------------------  ------  ------  --------------------
101      0x0111  MPEG-2 video  0    descrambled                                    0x1001 present/0                        1000/2  1000/3  clear, PES readable
101      0x0112  MPEG-2 audio  0    descrambled                                    0x1001 present/0                        1000/2  1000/3  clear, PES readable
102      0x0121  MPEG-2 video  0    not descrambled  no entitlement (0x20)  0x71   0x1001 present/0                        1000/2  1000/3  scrambled
102      0x0122  MPEG-2 audio  0    not descrambled  no entitlement (0x20)         0x1001 absent 4.0 s, 0x1002 never seen  1000/2  0/0     nothing
before, behind the CAMs: packets/continuity errors; ECM PIDs: before the CAMs
)");
}

TEST(StatusTable, NamesStandBesideTheNumbers) {
  CardFinding card = sampleCard();
  card.programs[0].service.name = "Canal \u00e9t\u00e9";
  const std::string text = statusTable(card, false);
  EXPECT_NE(text.find("\nprogram  name       PID     stream "), std::string::npos) << text;
  EXPECT_NE(text.find("\n101      Canal \u00e9t\u00e9  0x0111  "), std::string::npos) << text;
  EXPECT_NE(text.find("\n102                 0x0121  "), std::string::npos) << text;
}

TEST(StatusTable, ALongNameIsCutShort) {
  CardFinding card = sampleCard();
  card.programs[0].service.name = "A name that leaves no room for anything else";
  const std::string text = statusTable(card, false);
  EXPECT_NE(text.find("\n101      A name that leaves no r\u2026  0x0111  "), std::string::npos)
      << text;
}

// Everything behind the table itself.
std::string linesBehind(const CardFinding &card) {
  const std::string text = statusTable(card, false);
  const std::string last = "ECM PIDs: before the CAMs\n";
  return text.substr(text.find(last) + last.size());
}

TEST(StatusTable, ALiveStreamTellsItsLossesByPlace) {
  CardFinding card = sampleCard();
  EXPECT_EQ(linesBehind(card), "") << "nothing of a file";
  card.input = {"rtp://239.0.0.1:1", true, false, {}};
  card.input.counters.packets = 1;
  EXPECT_EQ(linesBehind(card),
            "in rtp://239.0.0.1:1: 1 packet; lost: network 0, kernel 0, stream 8 continuity "
            "errors, here 0\n")
      << "without datagrams nothing is said of them";
  SourceCounters &counters = card.input.counters;
  counters.packets = 70;
  counters.datagrams = 10;
  counters.networkLost = 1;
  counters.kernelLost = 2;
  counters.dropped = 3;
  counters.reordered = 4;
  counters.duplicates = 5;
  counters.late = 6;
  counters.foreign = 7;
  counters.senders = 8;
  card.input.silent = true;
  EXPECT_EQ(linesBehind(card),
            "in rtp://239.0.0.1:1, silent: 70 packets; lost: network 1, kernel 2, stream 8 "
            "continuity errors, here 3\n"
            "  10 datagrams: put in order 4, duplicates 5, too late 6, without packets 7, senders "
            "8\n");
}

TEST(StatusTable, AReceiverHasASideBehindAndAnOutputItsLosses) {
  CardFinding card = sampleCard();
  card.input = {"a", true, false, {}};
  card.countersBehind = SourceCounters{};
  card.countersBehind->packets = 9;
  card.behindName = "b";
  card.output = {"udp://1.2.3.4:5", 20, 1, std::nullopt};
  EXPECT_EQ(linesBehind(card),
            "in a: 0 packets; lost: network 0, kernel 0, stream 8 continuity errors, here 0\n"
            "behind b: 9 packets; lost: network 0, kernel 0, stream 12 continuity errors, here 0\n"
            "out udp://1.2.3.4:5: 20 packets, lost 1\n");
}

// The cells of the first PID's row behind the column of the CAM.
std::string firstRow(const CardFinding &card) {
  const std::string text = statusTable(card, false);
  const std::size_t row = text.find("\n101 ");
  const std::string line = text.substr(row + 1, text.find('\n', row + 1) - row - 1);
  return line.substr(line.find("  0    ") + 7);
}

bool begins(const std::string &text, const std::string &with) {
  return text.rfind(with, 0) == 0;
}

TEST(StatusTable, RightAfterACaPmtNothingFailsYet) {
  CardFinding card = sampleCard(DESC_STAT_SCRAMBLED);
  card.programs[0].caPmtAgeMs = 400;
  EXPECT_TRUE(begins(firstRow(card), "not descrambled yet  CA PMT sent 0.4 s ago (0x10) "));
  EXPECT_EQ(statusTable(card, true).find("\033[31m"), std::string::npos);
  card.programs[0].caPmtAgeMs = 2000;
  EXPECT_TRUE(begins(firstRow(card), "not descrambled  the CAM is suspected (0x10) "))
      << firstRow(card);
  EXPECT_NE(statusTable(card, true).find("\033[31mnot descrambled"), std::string::npos);
}

TEST(StatusTable, APidWithoutPacketsIsNotDescrambled) {
  CardFinding card = sampleCard();
  card.programs[0].pids[0].behind = {};
  EXPECT_TRUE(begins(firstRow(card), "without packets  counted as descrambled (0xFF) "))
      << firstRow(card);
  card.programs[0].pids[0].status = DESC_STAT_NO_ECM;
  EXPECT_TRUE(begins(firstRow(card), "not descrambled  ECMs missing (0x30) ")) << firstRow(card);
}

TEST(StatusTable, AClearProgramThatIsNotMeasuredIsCalledClear) {
  CardFinding card = sampleCard(DESC_STAT_UNKNOWN);
  EXPECT_TRUE(begins(firstRow(card), "not measured   ")) << firstRow(card);
  card.programs[0].clear = true;
  EXPECT_TRUE(begins(firstRow(card), "not measured  clear, no CA descriptors (0xEE) "))
      << firstRow(card);
}

TEST(StatusTable, AnOldReplyIsMarked) {
  CardFinding card = sampleCard(DESC_STAT_NO_ENTITLEMENT);
  card.programs[0].pids[0].reply = 0x71;
  EXPECT_NE(firstRow(card).find("  0x71   "), std::string::npos) << firstRow(card);
  card.programs[0].pids[0].replyOld = true;
  EXPECT_NE(firstRow(card).find("  0x71 (old)  "), std::string::npos) << firstRow(card);
}

TEST(StatusTable, ProgramWithoutCamIsNotSupervised) {
  CardFinding card = sampleCard(DESC_STAT_UNKNOWN);
  card.programs.resize(1);
  card.programs[0].pids.resize(1);
  card.programs[0].camMask = 0;
  card.programs[0].pids[0].ecms.clear();
  card.programs[0].pids[0].behind.lastPesBad = true;
  const std::string text = statusTable(card, false);
  EXPECT_NE(text.find("none  not supervised"), std::string::npos) << text;
  EXPECT_NE(text.find("          1000/2  1000/3  clear, PES not readable\n"), std::string::npos)
      << text;
}

TEST(StatusTable, ColourLeavesTheTextAsItIs) {
  std::string coloured = statusTable(sampleCard(), true);
  EXPECT_NE(coloured, statusTable(sampleCard(), false));
  for (const char *escape : {"\033[32m", "\033[0m"}) {
    for (std::size_t at; (at = coloured.find(escape)) != std::string::npos;) {
      coloured.erase(at, std::string(escape).size());
    }
  }
  EXPECT_EQ(coloured, statusTable(sampleCard(), false));
}

class CamHistory : public testing::Test {
 protected:
  CamHistory() {
    library_.load();
    library_.insert(slot, 0, &cams_[0]);
    library_.insert(slot, 1, &cams_[1]);
    runUntil(4000);
  }
  void runUntil(std::uint64_t ms) {
    for (; nowMs_ <= ms; nowMs_ += 10) {
      for (Cam &cam : cams_) {
        cam.tick(nowMs_);
      }
      library_.tick(nowMs_);
    }
  }
  void sendTo(std::uint32_t camSlot) {
    CaPmtProg record{};
    record.mark = 1;
    CaPmtProg *const records = &record;
    ASSERT_EQ(library_.send(slot, camSlot, &records, 1), 1);
  }
  std::size_t lines() const {
    const std::string text = camHistory(camsOf(library_, slot));
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }
  bool tells(const std::string &part) const {
    return camHistory(camsOf(library_, slot)).find(part) != std::string::npos;
  }

  static constexpr std::uint32_t slot = 3;
  EventFan events_;
  std::array<Cam, 2> cams_{Cam{{{0x0500}}, {3, 0}, events_, 0},
                           Cam{{{0x0500}}, {3, 1}, events_, 0}};
  LibraryMemory memory_;
  CiLibrary library_{events_, memory_.shared()};
  std::uint64_t nowMs_ = 0;
};

TEST_F(CamHistory, ACamToWhichNothingHappenedIsLeftOut) {
  EXPECT_EQ(camHistory(camsOf(library_, slot)), "");
}

TEST_F(CamHistory, ACamThatWasOnlyResetIsTold) {
  library_.reset(slot, 1);
  EXPECT_EQ(lines(), 1U);
  EXPECT_TRUE(tells(": no CA PMT, 1 reset, the last 00:00:04.000"));
  library_.reset(slot, 1);
  EXPECT_TRUE(tells("2 resets"));
}

TEST_F(CamHistory, ACamThatWasOnlySentToIsTold) {
  sendTo(0);
  EXPECT_EQ(lines(), 1U);
  EXPECT_TRUE(tells(": last CA PMT or query 00:00:04.000 for 1 program, no reset"));
}

TEST_F(CamHistory, EveryCamHasItsOwnLineWhileItIsIn) {
  sendTo(0);
  sendTo(1);
  library_.reset(slot, 1);
  EXPECT_EQ(lines(), 2U);
  library_.remove(slot, 0);
  EXPECT_EQ(lines(), 1U);
  EXPECT_TRUE(tells("1 program, 1 reset"));
}

}  // namespace
}  // namespace chassis
