// The switch in front of the CAMs: its programming from a card's tables, and by hand.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint32_t SLOT = 2;
constexpr uint32_t PORT = 7;
constexpr uint16_t NULL_PACKETS = 0x1FFF;
constexpr uint32_t PIDS = 0x2000;
constexpr char CARD_AND_PORT[] = "card 3 port 8 ";

std::string flit(uint32_t slotNo, uint32_t pid, uint32_t pass) {
  return "SetCamFlit(" + std::to_string(slotNo) + ", " + hexName(pid) + ", " +
         std::to_string(pass) + ")";
}

Calls flitEach(uint32_t slotNo, uint32_t pass, uint32_t count = PIDS) {
  Calls calls;
  for (uint32_t pid = 0; pid < count; ++pid)
    calls.push_back(flit(slotNo, pid, pass));
  return calls;
}

// --- a card's filter -----------------------------------------------------------------------------

std::string scrambled(uint32_t pid, const std::string &cardAndPort = CARD_AND_PORT) {
  return bbPrinted(cardAndPort + " pid " + hexName(pid) + " scrFlag\n");
}

// A PID that is kept away from the CAM.
Calls away(uint32_t pid, uint32_t slotNo = SLOT, const std::string &cardAndPort = CARD_AND_PORT) {
  return {flit(slotNo, pid, 0), bbPrinted(cardAndPort + "pre-filt pid " + hexName(pid) + " \n")};
}

Calls away(const std::vector<uint16_t> &pids) {
  Calls calls;
  for (uint16_t pid : pids)
    calls = joined({calls, away(pid)});
  return calls;
}

Calls counts(uint32_t formPrograms, uint32_t tablePrograms) {
  return {bbPrinted("pMuxCardProgCnt = " + std::to_string(formPrograms) + "\n"),
          bbPrinted("descProgCnt = " + std::to_string(tablePrograms) + "\n")};
}

Calls passAll(uint32_t slotNo = SLOT) {
  return joined({flitEach(slotNo, 1, NULL_PACKETS), {flit(slotNo, NULL_PACKETS, 0)}});
}

Program programOf(const std::vector<uint16_t> &pids) {
  Program program(1);
  for (uint16_t pid : pids)
    program.stream(2, pid);
  return program;
}

class PreCamFilter : public testing::Test {
 protected:
  PreCamFilter() {
    registerCard(SLOT);
    platform.GetMuxCardFormList = form.get();
  }

  Card &card = platform.card[SLOT];
  MuxForm form;
};

TEST_F(PreCamFilter, CallsInOrder) {
  card.setTable({programOf({0x100, 0x101}), programOf({0x200})});
  form.program({0x101, 0x102}).program({0x200, 0x201});
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take(), joined({{"GetProgDesc(2)", "GetCardReady(2)"},
                                     {scrambled(0x100), scrambled(0x101), scrambled(0x200)},
                                     {"GetMuxCardFormList(2)"},
                                     passAll(),
                                     counts(2, 2),
                                     away({0x102, 0x201})}));
}

TEST_F(PreCamFilter, WithoutProgramsKeepsTheFormAway) {
  form.program({0x100, 0x101});
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take({"SetCamFlit", "printf", "bbPrintf"}),
            joined({passAll(), counts(1, 0), away({0x100, 0x101})}));
}

TEST_F(PreCamFilter, WithoutFormProgramsPassesEverything) {
  card.setTable({programOf({0x100})});
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take({"SetCamFlit", "printf", "bbPrintf"}),
            joined({{scrambled(0x100)}, passAll(), counts(0, 1)}));
}

TEST_F(PreCamFilter, CountsCardsAndPortsFromOne) {
  for (uint32_t slotNo : {0u, 1u, 3u, 5u}) {
    registerCard(slotNo);
    platform.card[slotNo].setTable({programOf({0x100})});
  }
  form.program({0x101});
  struct Named {
    uint32_t slotNo, port;
    const char *text;
  };
  for (const Named &named : {Named{0, 0, "card 1 port 1 "},
                             {5, 0, "card 6 port 1 "},
                             {0, 0x100, "card 1 port 257 "},
                             {1, 0xFFFFFFFE, "card 2 port 4294967295 "},
                             {3, 0xFFFFFFFF, "card 4 port 0 "}}) {
    PreCAMFilte(named.slotNo, named.port);
    const std::string slot = "(" + std::to_string(named.slotNo) + ")";
    EXPECT_EQ(platform.take(), joined({{"GetProgDesc" + slot, "GetCardReady" + slot},
                                       {scrambled(0x100, named.text)},
                                       {"GetMuxCardFormList" + slot},
                                       passAll(named.slotNo),
                                       counts(1, 1),
                                       away(0x101, named.slotNo, named.text)}));

    platform.card[named.slotNo].GetCardReady.then(0);
    PreCAMFilte(named.slotNo, named.port);
    EXPECT_EQ(platform.take({"bbPrintf"}),
              (Calls{bbPrinted(std::string(named.text) + "pre-filt all pid return \n")}));

    platform.GetMuxCardFormList.then(nullptr);
    PreCAMFilte(named.slotNo, named.port);
    EXPECT_EQ(
        platform.take({"printf"}),
        (Calls{printed(std::string(named.text) + "set PreCAMFilte can not find pMuxCard\n")}));
  }
}

// PIDs of the card's table and of its form; what is kept away, in order.
struct Lists {
  const char *name;
  std::vector<std::vector<uint16_t>> table;
  std::vector<std::vector<uint16_t>> form;
  std::vector<uint16_t> away;
};

std::ostream &operator<<(std::ostream &out, const Lists &lists) {
  return out << lists.name;
}

std::vector<uint16_t> range(uint32_t first, uint32_t count, uint32_t step = 1) {
  std::vector<uint16_t> pids;
  for (uint32_t i = 0; i < count; ++i)
    pids.push_back(static_cast<uint16_t>(first + i * step));
  return pids;
}

const std::vector<Lists> lists = {
    {"InBoth", {{0x100}}, {{0x100}}, {}},
    {"InTheTableOnly", {{0x100}}, {{}}, {}},
    {"InTheFormOnly", {}, {{0x100}}, {0x100}},
    {"TwiceInTheForm", {}, {{0x100, 0x100}}, {0x100, 0x100}},
    {"TwiceInTheFormAndListed", {{0x100}}, {{0x100, 0x100}}, {}},
    {"InTwoProgramsOfTheForm", {}, {{0x100}, {0x101, 0x100}}, {0x100, 0x101, 0x100}},
    {"TwiceInTheTable", {{0x100, 0x100}}, {{0x100}}, {}},
    {"InTwoProgramsOfTheTable", {{0x100}, {0x100}}, {{0x100}}, {}},
    {"InTheLastProgram", {{}, {0x1}, {0x100}}, {{0x100}, {}, {0x2}}, {0x2}},
    {"Unordered", {{0x300, 0x100}}, {{0x301, 0x300}, {0x101, 0x100}}, {0x301, 0x101}},
    {"NeighboursOfAByte",
     {range(0x100, 16, 2)},
     {range(0xF8, 48)},
     {0xF8,  0xF9,  0xFA,  0xFB,  0xFC,  0xFD,  0xFE,  0xFF,  0x101, 0x103, 0x105,
      0x107, 0x109, 0x10B, 0x10D, 0x10F, 0x111, 0x113, 0x115, 0x117, 0x119, 0x11B,
      0x11D, 0x11F, 0x120, 0x121, 0x122, 0x123, 0x124, 0x125, 0x126, 0x127}},
    {"FirstPids", {{0}}, {{0, 1, 2}}, {1, 2}},
    {"FirstPidAway", {{1}}, {{0, 1}}, {0}},
    {"LastPids", {{0x1FFE}}, {{0x1FFD, 0x1FFE, 0x1FFF}}, {0x1FFD, 0x1FFF}},
    {"NullPacketsListed", {{0x1FFF}}, {{0x1FFE, 0x1FFF}}, {0x1FFE}},
    {"OutsideTheSetInTheForm",
     {range(0, 32), range(0x1FE0, 32)},
     {{0x2000, 0x2001, 0x3FFF, 0x4000, 0x8000, 0xE000, 0xFFFF, 0}},
     {0x2000, 0x2001, 0x3FFF, 0x4000, 0x8000, 0xE000, 0xFFFF}},
    {"OutsideTheSetInTheTable",
     {{0x2000, 0x2101, 0x3FFF, 0x4002, 0x8003, 0xE004, 0xFFFF}},
     {{0, 0x101, 0x1FFF, 2, 3, 4, 0x1FFE}},
     {0, 0x101, 0x1FFF, 2, 3, 4, 0x1FFE}},
    {"OutsideTheSetInBoth", {{0x2000, 0xFFFF}}, {{0x2000, 0xFFFF}}, {0x2000, 0xFFFF}},
    {"FullProgramOfTheForm", {}, {range(0x400, 255)}, range(0x400, 255)},
    {"FullTableOfTheForm",
     {{0x400}},
     std::vector(270, range(0x400, 2)),
     std::vector<uint16_t>(270, 0x401)},
    {"FullTable", std::vector(32, range(0x400, 32)), {range(0x3FF, 34)}, {0x3FF, 0x420}},
};

class PreCamFilterLists : public PreCamFilter, public testing::WithParamInterface<Lists> {};

INSTANTIATE_TEST_SUITE_P(Pids, PreCamFilterLists, testing::ValuesIn(lists), ItsName());

TEST_P(PreCamFilterLists, KeepAwayWhatTheTableDoesNotList) {
  std::vector<Program> programs;
  Calls flags;
  for (const std::vector<uint16_t> &pids : GetParam().table) {
    programs.push_back(programOf(pids));
    for (uint16_t pid : pids)
      flags.push_back(scrambled(pid));
  }
  card.setTable(programs);
  for (const std::vector<uint16_t> &pids : GetParam().form)
    form.program(pids);
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take({"SetCamFlit", "printf", "bbPrintf"}),
            joined({flags, passAll(),
                    counts(static_cast<uint32_t>(GetParam().form.size()),
                           static_cast<uint32_t>(GetParam().table.size())),
                    away(GetParam().away)}));
}

TEST_F(PreCamFilter, ListsTheProgramsOfAllCams) {
  card.setTable({programOf({0x100}).cams(NO_CAM), programOf({0x101}).cams(CAM_A),
                 programOf({0x102}).cams(CAM_B), programOf({0x103}).cams(BOTH_CAMS),
                 programOf({0x104}).cams(0x80)});
  form.program(range(0x100, 6));
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take({"SetCamFlit", "printf", "bbPrintf"}),
            joined({{scrambled(0x100), scrambled(0x101), scrambled(0x102), scrambled(0x103),
                     scrambled(0x104)},
                    passAll(),
                    counts(1, 5),
                    away({0x105})}));
}

// ECM PIDs are no streams.
TEST_F(PreCamFilter, ListsStreamsOnly) {
  card.setTable({Program(0x103).ca(0x500, 0x101).stream(2, 0x100).streamCa(0x500, 0x102)});
  form.program(range(0x100, 4));
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(
      platform.take({"bbPrintf"}),
      joined({{scrambled(0x100)}, counts(1, 1), only(away({0x101, 0x102, 0x103}), {"bbPrintf"})}));
}

TEST_F(PreCamFilter, WalksTheTableIn16Bits) {
  card.setTable({programOf({0x100}), programOf({0x101})});
  card.desc.descProgCnt = 0x10001;
  form.program({0x100, 0x101});
  PreCAMFilte(SLOT, PORT);
  const Calls calls = platform.take();
  ASSERT_GT(calls.size(), 2u);
  EXPECT_EQ(calls[2], scrambled(0x100));
  EXPECT_EQ(only(calls, {"SetCamFlit"}), joined({passAll(), {flit(SLOT, 0x101, 0)}}));
}

TEST_F(PreCamFilter, TreatsBothValuesOfTheProgramFlagAlike) {
  constexpr size_t FLAG = 129;
  constexpr size_t PROGRAM_SIZE = 236;
  card.setTable({programOf({0x100})});
  form.program({0x100, 0x101}).program({0x100, 0x102});
  auto *bytes = reinterpret_cast<uint8_t *>(form.get());
  for (uint8_t flag : {0, 1}) {
    bytes[FLAG] = flag;
    bytes[FLAG + PROGRAM_SIZE] = 1 - flag;
    PreCAMFilte(SLOT, PORT);
    EXPECT_EQ(platform.take({"SetCamFlit"}),
              joined({passAll(), only(away({0x101, 0x102}), {"SetCamFlit"})}));
  }
}

TEST_F(PreCamFilter, StartsAfreshInEveryCall) {
  card.setTable({programOf({0x100, 0x1FFF})});
  form.program({0x100, 0x101, 0x1FFF});
  PreCAMFilte(SLOT, PORT);
  platform.take();
  card.setTable({programOf({0x101})});
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take({"SetCamFlit", "bbPrintf"}),
            joined({{scrambled(0x101)}, passAll(), counts(1, 1), away({0x100, 0x1FFF})}));
}

TEST_F(PreCamFilter, GoesOnWithoutTheSwitch) {
  registerCard(3, {53});
  platform.card[3].setTable({programOf({0x100})});
  form.program({0x100, 0x101, 0x102});
  PreCAMFilte(3, 0);
  const std::string failed = asserted("../../CiIf_fpga", "pCiData[slotNo]->SetCamFlit");
  const std::string cardAndPort = "card 4 port 1 ";
  EXPECT_EQ(anyLine(platform.take()),
            joined({{"GetProgDesc(3)", "GetCardReady(3)", scrambled(0x100, cardAndPort)},
                    {"GetMuxCardFormList(3)"},
                    Calls(PIDS, failed),
                    counts(1, 1),
                    {failed, away(0x101, 3, cardAndPort).back()},
                    {failed, away(0x102, 3, cardAndPort).back()}}));
}

TEST_F(PreCamFilter, KeepsEverythingAwayFromAnUnusedPath) {
  card.setTable({programOf({0x100})});
  form.program({0x100});
  card.GetCardReady = 0;
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take(), joined({{"GetProgDesc(2)", "GetCardReady(2)"},
                                     flitEach(SLOT, 0),
                                     {bbPrinted("card 3 port 8 pre-filt all pid return \n")}}));
}

TEST_F(PreCamFilter, TakesAnyOtherAnswerAsReady) {
  card.GetCardOnline = 0;
  card.GetCardBusy = 1;
  for (uint32_t ready : {1u, 2u, 0x100u, 0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
    card.GetCardReady = ready;
    PreCAMFilte(SLOT, PORT);
    EXPECT_EQ(platform.take(), joined({{"GetProgDesc(2)", "GetCardReady(2)"},
                                       {"GetMuxCardFormList(2)"},
                                       passAll(),
                                       counts(0, 0)}));
  }
}

TEST_F(PreCamFilter, LeavesTheSwitchWithoutAForm) {
  card.setTable({programOf({0x100}), programOf({0x101, 0xFFFF})});
  platform.GetMuxCardFormList = nullptr;
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(platform.take(),
            (Calls{"GetProgDesc(2)", "GetCardReady(2)", scrambled(0x100), scrambled(0x101),
                   scrambled(0xFFFF), "GetMuxCardFormList(2)",
                   printed("card 3 port 8 set PreCAMFilte can not find pMuxCard\n")}));
}

TEST_F(PreCamFilter, GuardsTheWholeSlotNumber) {
  for (uint32_t slotNo : {6u, 7u, 0x100u + SLOT, 0x10000u + SLOT, 0xFFFFFFFFu}) {
    PreCAMFilte(slotNo, PORT);
    EXPECT_EQ(anyLine(platform.take()),
              (Calls{asserted("../../CiIf_Status", "slotNo<MAX_BOARD_NUM")}));
  }
}

TEST_F(PreCamFilter, GuardsTheRecordAndTheTable) {
  PreCAMFilte(SLOT + 1, PORT);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted("../../CiIf_Status", "pCiData[slotNo]")}));
  card.GetProgDesc = nullptr;
  PreCAMFilte(SLOT, PORT);
  EXPECT_EQ(anyLine(platform.take()),
            (Calls{"GetProgDesc(2)", asserted("../../CiIf_Status", "pdesc")}));
}

// --- sets ----------------------------------------------------------------------------------------

TEST(TestBit, TellsEveryBit) {
  constexpr size_t SET_SIZE = 0x2000;
  for (uint32_t set = 0; set < 8 * SET_SIZE; set += 4099) {
    std::vector<uint8_t> bits(SET_SIZE);
    bits[set / 8] = static_cast<uint8_t>(1u << set % 8);
    std::vector<uint32_t> found;
    for (uint32_t bit = 0; bit < 8 * SET_SIZE; ++bit) {
      if (test_bit(bits.data(), bit) != 0)
        found.push_back(bit);
    }
    EXPECT_EQ(found, std::vector<uint32_t>{set});
  }
  EXPECT_EQ(platform.take(), Calls{});
}

TEST(TestBit, AnswersZeroOrOne) {
  const std::vector<uint8_t> bits = {0x00, 0xFF, 0xA5, 0x80};
  const std::vector<uint32_t> expected = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1,
                                          1, 0, 1, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1};
  std::vector<uint32_t> answers;
  for (uint32_t bit = 0; bit < expected.size(); ++bit)
    answers.push_back(test_bit(bits.data(), bit));
  EXPECT_EQ(answers, expected);
}

TEST(TestBit, CountsTheLow16Bits) {
  const std::vector<uint8_t> bits = {0x00, 0x02};
  for (uint32_t high : {0u, 0x10000u, 0xFFFF0000u}) {
    EXPECT_EQ(test_bit(bits.data(), high + 8), 0u);
    EXPECT_EQ(test_bit(bits.data(), high + 9), 1u);
    EXPECT_EQ(test_bit(bits.data(), high + 10), 0u);
  }
}

TEST(TestBit, ReportsANullSet) {
  for (uint32_t bit : {0u, 9u, 0xFFFFu}) {
    EXPECT_EQ(test_bit(nullptr, bit), 0xFFu);
    EXPECT_EQ(platform.take(), (Calls{printed("test_bit bitfield==NULL !\n")}));
  }
}

// --- by hand -------------------------------------------------------------------------------------

constexpr uint32_t ALL = 0xFFFF;

struct Switch {
  uint32_t slotNo, pid, flag;
};

struct ByHand {
  Switch given;
  Switch set;  // its pid: ALL for all
  const char *text;
};

std::ostream &operator<<(std::ostream &out, const ByHand &byHand) {
  return out << "slot " << byHand.given.slotNo << " PID " << hexName(byHand.given.pid) << " flag "
             << byHand.given.flag;
}

class PreCamFilterByHand : public testing::TestWithParam<ByHand> {
 protected:
  PreCamFilterByHand() {
    for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo)
      registerCard(slotNo);
  }

  static int run() {
    const Switch &given = GetParam().given;
    return testprefilter(given.slotNo, given.pid, given.flag);
  }
};

const ByHand handSettings[] = {
    {{0, 0xFFFF, 1}, {0, ALL, 1}, "card 1 #test pre filter#PASS ALL PID\n"},
    {{0, 0xFFFF, 0}, {0, ALL, 0}, "card 1 #test pre filter#FILT ALL PID\n"},
    {{5, 0xFFFF, 2}, {5, ALL, 2}, "card 6 #test pre filter#PASS ALL PID\n"},
    {{1, 0xFFFF, 0xFF}, {1, ALL, 0xFF}, "card 2 #test pre filter#PASS ALL PID\n"},
    {{0, 0x100, 1}, {0, 0x100, 1}, "card 1 #test pre filter#PASS PID 0x100\n"},
    {{0, 0x100, 0}, {0, 0x100, 0}, "card 1 #test pre filter#FILT PID 0x100\n"},
    {{5, 0, 2}, {5, 0, 2}, "card 6 #test pre filter#PASS PID 0x0\n"},
    {{5, 0, 0}, {5, 0, 0}, "card 6 #test pre filter#FILT PID 0x0\n"},
    {{0, 0x1FFF, 1}, {0, 0x1FFF, 1}, "card 1 #test pre filter#PASS PID 0x1fff\n"},
    {{0, 0x2000, 1}, {0, 0x2000, 1}, "card 1 #test pre filter#PASS PID 0x2000\n"},
    {{0, 0xFFFE, 0}, {0, 0xFFFE, 0}, "card 1 #test pre filter#FILT PID 0xfffe\n"},
    // cuts
    {{0x103, 0x10100, 0x103}, {3, 0x100, 3}, "card 4 #test pre filter#PASS PID 0x100\n"},
    {{0xFFFFFF03, 0xFFFF0100, 0x100}, {3, 0x100, 0}, "card 4 #test pre filter#FILT PID 0x100\n"},
    {{0x102, 0x1FFFF, 0xFFFFFF00}, {2, ALL, 0}, "card 3 #test pre filter#FILT ALL PID\n"},
    {{4, 0xFFFFFFFF, 0xFFFFFFFF}, {4, ALL, 0xFF}, "card 5 #test pre filter#PASS ALL PID\n"},
};

INSTANTIATE_TEST_SUITE_P(Modes, PreCamFilterByHand, testing::ValuesIn(handSettings));

TEST_P(PreCamFilterByHand, SetsTheSwitchAndTells) {
  const Switch &set = GetParam().set;
  const Calls flits =
      set.pid == ALL ? flitEach(set.slotNo, set.flag) : Calls{flit(set.slotNo, set.pid, set.flag)};
  run();
  EXPECT_EQ(platform.take(), joined({flits, {printed(GetParam().text)}}));
}

TEST_P(PreCamFilterByHand, ReturnsTheResultOfPrintf) {
  EXPECT_EQ(run(), static_cast<int>(std::string(GetParam().text).size()));
  for (int result : {-1, 0, 1234}) {
    platform.printfResult = result;
    EXPECT_EQ(run(), result);
  }
}

// Failures of the switch are told by it; the command goes on.
TEST(PreCamFilterByHandFails, OutsideTheCardSlots) {
  const std::string failed = asserted("../../CiIf_fpga", "slotNo<MAX_BOARD_NUM");
  testprefilter(6, 0x100, 1);
  EXPECT_EQ(anyLine(platform.take()),
            (Calls{failed, printed("card 7 #test pre filter#PASS PID 0x100\n")}));
  testprefilter(0x1FF, 0xFFFF, 0);
  EXPECT_EQ(anyLine(platform.take()),
            joined({Calls(PIDS, failed), {printed("card 256 #test pre filter#FILT ALL PID\n")}}));
}

TEST(PreCamFilterByHandFails, WithoutACard) {
  testprefilter(0, 0x100, 0);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted("../../CiIf_fpga", "pCiData[slotNo]"),
                                             printed("card 1 #test pre filter#FILT PID 0x100\n")}));
}

}  // namespace
