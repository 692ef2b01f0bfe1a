#include "report/StatusTable.h"

#include <gtest/gtest.h>

#include "Samples.h"

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

}  // namespace
}  // namespace chassis
