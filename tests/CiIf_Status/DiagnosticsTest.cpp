// The console commands that print a card's registration and table, the version and the help.
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace {

constexpr char UNIT[] = "../../CiIf_Status";

Calls printedEach(const std::vector<std::string> &texts) {
  Calls calls;
  for (const std::string &text : texts) {
    calls.push_back(printed(text));
  }
  return calls;
}

// --- getCAinfo -----------------------------------------------------------------------------------

constexpr char STARS[] = " ******************************************** \n";

class CaInfo : public testing::Test {
 protected:
  CaInfo() { registerCard(0); }

  // What the command prints of a slot, behind its reading of the table.
  static void expectPrints(uint32_t slotNo, const std::vector<std::string> &texts) {
    getCAinfo(slotNo);
    EXPECT_EQ(platform.take(),
              joined({{"GetProgDesc(" + std::to_string(slotNo & 0xFF) + ")"}, printedEach(texts)}));
  }

  Card &card = platform.card[0];
};

TEST_F(CaInfo, OfAnEmptyTable) {
  expectPrints(0, {STARS, "Prg NUM = 0 \n ", STARS});
}

TEST_F(CaInfo, ShowsProgramsAndStreamsInOrder) {
  card.setTable({Program(0x101)
                     .ca(0x500, 0x1001)
                     .ca(0x0B00, 0x1002)
                     .stream(2, 0x100)
                     .streamCa(0x1234, 0x1003)
                     .streamCa(0xFFFF, 0x1004)
                     .stream(4, 0x101)
                     .stream(4, 0x102)
                     .streamCa(0, 0x1005),
                 Program(0x102), Program(0x103).ca(0x1, 0x1006).stream(2, 0x103)});
  expectPrints(0, {STARS, "Prg NUM = 3 \n ", " Prg0 CA NUM = 2 \n ", "  prg0 ca0 casid=0x500 \n",
                   "  prg0 ca1 casid=0xb00 \n", "  Prg0 ele0 CA NUM = 2 \n",
                   "   prg0 ele0 ca0 casid=0x1234 \n", "   prg0 ele0 ca1 casid=0xffff \n",
                   "  Prg0 ele1 CA NUM = 0 \n", "  Prg0 ele2 CA NUM = 1 \n",
                   "   prg0 ele2 ca0 casid=0x0 \n", " Prg1 CA NUM = 0 \n ", " Prg2 CA NUM = 1 \n ",
                   "  prg2 ca0 casid=0x1 \n", "  Prg2 ele0 CA NUM = 0 \n", STARS});
}

TEST_F(CaInfo, ShowsEveryProgramWhateverItsCamsAndLevels) {
  for (uint8_t cams : {0, 1, 2, 3}) {
    for (uint16_t level : {0, 1, 2, 3}) {
      card.setTable({Program(1)
                         .ca(0x500, 0x1001)
                         .stream(2, 0x100)
                         .streamCa(0x600, 0x1002)
                         .cams(cams)
                         .level(level)});
      expectPrints(0,
                   {STARS, "Prg NUM = 1 \n ", " Prg0 CA NUM = 1 \n ", "  prg0 ca0 casid=0x500 \n",
                    "  Prg0 ele0 CA NUM = 1 \n", "   prg0 ele0 ca0 casid=0x600 \n", STARS});
    }
  }
}

TEST_F(CaInfo, CountsCaSystemsByTheLowByte) {
  card.setTable({Program(1)
                     .ca(0x500, 0x1001)
                     .ca(0x501, 0x1002)
                     .stream(2, 0x100)
                     .streamCa(0x600, 0x1003)
                     .stream(2, 0x101)});
  card.desc.prog[0].caList.caNum = 0x101;
  card.desc.prog[0].ele[0].caList.caNum = 0xFF01;
  card.desc.prog[0].ele[1].caList.caNum = 0x100;
  expectPrints(0, {STARS, "Prg NUM = 1 \n ", " Prg0 CA NUM = 1 \n ", "  prg0 ca0 casid=0x500 \n",
                   "  Prg0 ele0 CA NUM = 1 \n", "   prg0 ele0 ca0 casid=0x600 \n",
                   "  Prg0 ele1 CA NUM = 0 \n", STARS});
}

TEST_F(CaInfo, ShowsAFullTable) {
  Program full(1);
  for (uint16_t k = 0; k < 32; ++k) {
    full.ca(static_cast<uint16_t>(0x500 + k), 0x1000);
  }
  for (uint16_t e = 0; e < 32; ++e) {
    full.stream(2, e);
    for (uint16_t k = 0; k < 32; ++k) {
      full.streamCa(static_cast<uint16_t>(0x600 + k), 0x1000);
    }
  }
  card.setTable(std::vector<Program>(32, full));

  auto casids = [](const std::string &label, uint32_t first) {
    std::vector<std::string> texts;
    for (uint32_t k = 0; k < 32; ++k) {
      char casid[8];
      std::snprintf(casid, sizeof casid, "%x", first + k);
      texts.push_back(label + " ca" + std::to_string(k) + " casid=0x" + casid + " \n");
    }
    return texts;
  };
  std::vector<std::string> texts = {STARS, "Prg NUM = 32 \n "};
  auto add = [&](const std::vector<std::string> &more) {
    texts.insert(texts.end(), more.begin(), more.end());
  };
  for (int i = 0; i < 32; ++i) {
    const std::string program = "rg" + std::to_string(i);
    add({" P" + program + " CA NUM = 32 \n "});
    add(casids("  p" + program, 0x500));
    for (int e = 0; e < 32; ++e) {
      const std::string stream = program + " ele" + std::to_string(e);
      add({"  P" + stream + " CA NUM = 32 \n"});
      add(casids("   p" + stream, 0x600));
    }
  }
  add({STARS});
  expectPrints(0, texts);
}

TEST_F(CaInfo, TakesTheSlotFromTheLowByte) {
  registerCard(5);
  platform.card[5].setTable({Program(1)});
  for (uint32_t high : {0x100u, 0xFFFFFF00u}) {
    expectPrints(high, {STARS, "Prg NUM = 0 \n ", STARS});
    expectPrints(high + 5, {STARS, "Prg NUM = 1 \n ", " Prg0 CA NUM = 0 \n ", STARS});
  }
}

TEST_F(CaInfo, GuardsTheRecordAndTheTable) {
  for (uint32_t slotNo : {1u, 0x105u}) {
    getCAinfo(slotNo);
    EXPECT_EQ(anyLine(platform.take()), (Calls{asserted(UNIT, "pCiData[slotNo]")}));
  }
  card.GetProgDesc = nullptr;
  getCAinfo(0);
  EXPECT_EQ(anyLine(platform.take()), (Calls{"GetProgDesc(0)", asserted(UNIT, "pdesc")}));
}

// --- printCiCard ---------------------------------------------------------------------------------

TEST(PrintCiCard, ShowsTheNameOfEveryCard) {
  const std::vector<const char *> names = {"first", "", "with 100% signs %s", "d", "e", "sixth"};
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    platform.card[slotNo].name = names[slotNo];
    registerCard(slotNo);
  }
  for (uint32_t high : {0u, 0x100u, 0xFFFFFF00u}) {
    for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
      printCiCard(high + slotNo);
      EXPECT_EQ(platform.take(),
                (Calls{printed("Card " + std::to_string(slotNo + 1) +
                               " CI interface register:" + names[slotNo] + " \n")}));
    }
  }
}

TEST(PrintCiCard, GuardsTheRecordAndTheName) {
  for (uint32_t slotNo : {0u, 5u, 0x103u}) {
    printCiCard(slotNo);
    EXPECT_EQ(anyLine(platform.take()), (Calls{asserted(UNIT, "pCiData[slotNo]")}));
  }
  registerCard(0, {1});
  printCiCard(0);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted(UNIT, "pCiData[slotNo]->pCardName")}));
}

// --- version and help ----------------------------------------------------------------------------

TEST(PrintCiIfVer, ShowsTheVersion) {
  printCiIfVer();
  EXPECT_EQ(platform.take(), (Calls{printed("CI Interface Version is V3.0.1.1 \n")}));
}

constexpr char HELP[] =
    "---------------------------------------------------------------------\n"
    "void printCiIfVer()\n"
    "void printCiCard(slotNo)\n"
    "void resetCAM(SlotNo,CamNo)\n"
    "int  caPMTSend(slotNo, camSlot, caSysID, ProgNumber, Flag);\n"
    "int  printDesSta(slotNo)\n"
    "void getCAinfo(slotNo)\n"
    "uint32_t cimax_pid_rate_pre(slotNo, pid_l, pid_h)\n"
    "uint32_t cimax_pid_rate(slotNo, pid_l, pid_h)\n"
    "void CaPmtAdd(slotNo,camSlot,addProgNumber)\n"
    "void GetCAMCC(slotNo)\n"
    "void printCiCard(slotNo)\n"
    "---------------------------------------------------------------------\n";

void expectHelp() {
  ci_Help();
  const std::vector<std::string> &texts = platform.printText;
  EXPECT_EQ(std::accumulate(texts.begin(), texts.end(), std::string()), HELP);
  EXPECT_EQ(except(platform.take(), {"printf"}), Calls{});
  platform.printText.clear();
}

TEST(CiHelp, ListsThirteenLines) {
  expectHelp();
}

TEST(CiHelp, IsTheSameInEveryState) {
  registerCard(0);
  expectHelp();
  platform.card[0].GetCardOnline = 0;
  platform.card[0].GetProgDesc = nullptr;
  camStatusCheck(0);
  platform.take();
  platform.printText.clear();
  expectHelp();
}

}  // namespace
