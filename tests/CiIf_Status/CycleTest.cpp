// One status check cycle of a card and its two CAMs.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "CiIf_Status/CiIf_Status.h"
#include "platform/Platform.h"

namespace {

constexpr uint8_t SLOT = 2;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t OTHER_CAS = 0x0100;
constexpr uint16_t ECM = 0x1001;
constexpr uint16_t OTHER_ECM = 0x1002;
constexpr uint8_t OLD = 0x77;
constexpr uint8_t UNCHECKED = 0xFF;

// The status fields of a card.
struct Fields {
  unsigned cimaxStat;
  std::vector<unsigned> camInsert;
  std::vector<unsigned> casidStat;
  std::vector<unsigned> preCamPidStat;
  std::vector<unsigned> descStat;

  bool operator==(const Fields &other) const {
    return cimaxStat == other.cimaxStat && camInsert == other.camInsert &&
           casidStat == other.casidStat && preCamPidStat == other.preCamPidStat &&
           descStat == other.descStat;
  }
};

std::ostream &operator<<(std::ostream &out, const Fields &fields) {
  using testing::PrintToString;
  return out << "cimaxStat " << fields.cimaxStat << " camInsert " << PrintToString(fields.camInsert)
             << " casidStat " << PrintToString(fields.casidStat) << " preCamPidStat "
             << PrintToString(fields.preCamPidStat) << " descStat "
             << PrintToString(fields.descStat);
}

Fields fieldsOf(uint8_t slot) {
  const CiData &data = *pCiData[slot];
  return {data.cimaxStat,
          {data.camInsert[0], data.camInsert[1]},
          {data.casidStat[0], data.casidStat[1]},
          {data.preCamPidStat[0], data.preCamPidStat[1]},
          {data.descStat[0], data.descStat[1]}};
}

const Fields ALL_WELL{0, {1, 1}, {1, 1}, {0, 0}, {0, 0}};
const Fields NOTHING_CHECKED{0xFF, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}};

// A card with one program for each CAM, both in order. The fields hold old values.
class Cycle : public testing::Test {
 protected:
  Cycle() {
    registerCard(SLOT);
    platform.supports(SLOT, 0, {CAS});
    platform.supports(SLOT, 1, {CAS});
    platform.setInPort(SLOT, {{CAS, ECM}});
    setTable({program(1, CAM_A, 0x100), program(2, CAM_B, 0x200)});
    CiData &data = *pCiData[SLOT];
    data.cimaxStat = OLD;
    for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
      data.camInsert[cam] = data.preCamPidStat[cam] = OLD;
      data.casidStat[cam] = OLD;
      data.descStat[cam] = UNCHECKED;
    }
  }

  static Program program(uint16_t number, uint8_t cams, uint16_t pid) {
    Program result(number);
    result.cams(cams).ca(CAS, ECM).stream(0x02, pid);
    return result;
  }

  void setTable(const std::vector<Program> &programs) {
    card.setTable(programs);
    getSlotDescPidInfo(SLOT);
    platform.take();
  }

  static Calls cycle() {
    platform.take();
    camStatusCheck(SLOT);
    return platform.take();
  }

  static Fields checked() {
    cycle();
    return fieldsOf(SLOT);
  }

  Card &card = platform.card[SLOT];
};

// --- preconditions -------------------------------------------------------------------------------

TEST(CycleWithoutCard, IsReported) {
  camStatusCheck(SLOT);
  EXPECT_EQ(anyLine(platform.take()), (Calls{asserted("../../CiIf_Status", "pCiData[slotNo]")}));
}

TEST_F(Cycle, MissingTableIsReportedAndNothingTouched) {
  const Fields before = fieldsOf(SLOT);
  card.GetProgDesc = nullptr;
  EXPECT_EQ(anyLine(cycle()), (Calls{"GetProgDesc(2)", asserted("../../CiIf_Status", "pdesc")}));
  EXPECT_EQ(fieldsOf(SLOT), before);
}

// --- the whole course ----------------------------------------------------------------------------

Calls readyTest() {
  return {"GetCardOnline(2)", "GetCardBusy(2)", "GetCardReady(2)"};
}

Calls inserted(char cam) {
  return {std::string("ciLibGetInsertCard(2, ") + cam + ")"};
}

Calls matching(char cam, const Calls &asked) {
  return joined(
      {{"GetProgDesc(2)", std::string("ciLibGetCardIndex(2, ") + cam + ")"}, inserted(cam), asked});
}

const Calls ASKED_A{"ciLibCaSysIdMatch(4, 0x500)"};

TEST_F(Cycle, RunsItsStepsInOrder) {
  setTable({program(1, CAM_A, 0x100)});
  pCiData[SLOT]->descStat[0] = DESC_SUM_OK;
  const Calls insertionAndMatchA =
      joined({readyTest(), inserted('0'), matching('0', ASKED_A), readyTest(), inserted('0')});
  const Calls schedulingA =
      joined({{"ciLibGetCardIndex(2, 0)"},
              matching('0', ASKED_A),
              {"semTake(CaPMTFlag[4], 0)", "OSTimeGet()", "get_inc_of_time(0)"}});
  const Calls insertionAndMatchB =
      joined({readyTest(), matching('1', {}), readyTest(), inserted('1')});
  const Calls schedulingB = joined({{"ciLibGetCardIndex(2, 1)"}, matching('1', {})});
  const Calls controller =
      joined({readyTest(), inserted('0'), {"cimax_sync_ok(2)", "cimax_sys_rate(2)"}});
  const Calls caPids = joined({readyTest(),
                               inserted('0'),
                               {"GetInPortFormList(2, 0)", "GetPreCAMPidExist(2, 0x1001)"},
                               readyTest(),
                               inserted('1')});
  const Calls measurement = joined({readyTest(),
                                    inserted('0'),
                                    {"GetProgDesc(2)"},
                                    matching('0', ASKED_A),
                                    {"wrDesPid(2, 0x100)", "rdDescStat(2, 1)", "GetProgDesc(2)"},
                                    readyTest(),
                                    inserted('1'),
                                    {"GetProgDesc(2)"}});
  const Calls resets = joined({readyTest(),
                               {"PllLock(2)", "OSTimeGet()", "OSTimeGet()", "get_inc_of_time(0)"},
                               readyTest(),
                               {"PllLock(2)", "OSTimeGet()", "OSTimeGet()"}});
  EXPECT_EQ(cycle(), joined({{"GetProgDesc(2)"},
                             insertionAndMatchA,
                             schedulingA,
                             insertionAndMatchB,
                             schedulingB,
                             controller,
                             caPids,
                             measurement,
                             {"ClrAllPreCAMPidExist(2)"},
                             resets}));
}

// --- the fields ----------------------------------------------------------------------------------

struct Situation {
  const char *name;
  std::function<void(Card &)> arrange;
  Fields fields;
};

std::ostream &operator<<(std::ostream &out, const Situation &situation) {
  return out << situation.name;
}

class CycleIn : public Cycle, public testing::WithParamInterface<Situation> {};

TEST_P(CycleIn, LeavesTheseFields) {
  GetParam().arrange(card);
  EXPECT_EQ(checked(), GetParam().fields);
}

void insertA(uint32_t value) {
  platform.ciLibGetInsertCard.when(SLOT, 0) = value;
}

const Fields ONLY_B{0, {0, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}};

INSTANTIATE_TEST_SUITE_P(
    Card, CycleIn,
    testing::Values(
        Situation{"all well", [](Card &) {}, ALL_WELL},
        Situation{"offline", [](Card &card) { card.GetCardOnline = 0; }, NOTHING_CHECKED},
        Situation{"online 2", [](Card &card) { card.GetCardOnline = 2; }, NOTHING_CHECKED},
        Situation{"busy", [](Card &card) { card.GetCardBusy = 1; }, NOTHING_CHECKED},
        Situation{"busy 0x100", [](Card &card) { card.GetCardBusy = 0x100; }, NOTHING_CHECKED},
        Situation{"not ready", [](Card &card) { card.GetCardReady = 0; }, NOTHING_CHECKED},
        Situation{"ready 2", [](Card &card) { card.GetCardReady = 2; }, NOTHING_CHECKED},
        Situation{"empty table", [](Card &card) { card.setTable({}); }, NOTHING_CHECKED}));

INSTANTIATE_TEST_SUITE_P(
    Insertion, CycleIn,
    testing::Values(
        Situation{"A empty", [](Card &) { insertA(0); }, ONLY_B},
        Situation{"A 0x100", [](Card &) { insertA(0x100); }, ONLY_B},
        Situation{"A 0x101", [](Card &) { insertA(0x101); }, ALL_WELL},
        Situation{"A 2", [](Card &) { insertA(2); }, {0, {2, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
        Situation{"A 0xFF",
                  [](Card &) { insertA(0xFF); },
                  {0, {0xFF, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
        Situation{"both empty",
                  [](Card &) { platform.ciLibGetInsertCard = 0; },
                  {0xFF, {0, 0}, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}}},
        Situation{"both 2",
                  [](Card &) { platform.ciLibGetInsertCard = 2; },
                  {0, {2, 2}, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}}}));

void keepPrograms(Card &card, uint8_t maskOfFirst, uint8_t maskOfSecond) {
  card.desc.prog[0].camMask = maskOfFirst;
  card.desc.prog[1].camMask = maskOfSecond;
}

INSTANTIATE_TEST_SUITE_P(
    Programs, CycleIn,
    testing::Values(Situation{"of B only",
                              [](Card &card) { keepPrograms(card, NO_CAM, CAM_B); },
                              {0, {0xFF, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
                    Situation{"of A only",
                              [](Card &card) { keepPrograms(card, CAM_A, CAM_A); },
                              {0, {1, 0xFF}, {1, 0xFF}, {0, 0xFF}, {0, 0xFF}}},
                    Situation{"of both",
                              [](Card &card) { keepPrograms(card, BOTH_CAMS, BOTH_CAMS); },
                              ALL_WELL},
                    Situation{"of neither",
                              [](Card &card) { keepPrograms(card, NO_CAM, 0xFC); },
                              {0, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}}},
                    Situation{"in other high bits",
                              [](Card &card) { keepPrograms(card, 0xF1, 0xF2); }, ALL_WELL}));

INSTANTIATE_TEST_SUITE_P(Matching, CycleIn,
                         testing::Values(Situation{"neither",
                                                   [](Card &) { platform.ciLibCaSysIdMatch = 1; },
                                                   {0, {1, 1}, {0, 0}, {0xFF, 0xFF}, {0xFF, 0xFF}}},
                                         Situation{"A only",
                                                   [](Card &) {
                                                     platform.ciLibCaSysIdMatch.when(5, CAS) = 1;
                                                   },
                                                   {0, {1, 1}, {1, 0}, {0, 0xFF}, {0, 0xFF}}}));

const Fields CONTROLLER_FAULT{1, {1, 1}, {1, 1}, {0xFF, 0xFF}, {0xFF, 0xFF}};

INSTANTIATE_TEST_SUITE_P(
    Controller, CycleIn,
    testing::Values(
        Situation{"no sync", [](Card &card) { card.cimax_sync_ok = 0; }, CONTROLLER_FAULT},
        Situation{"sync 0x100", [](Card &card) { card.cimax_sync_ok = 0x100; }, ALL_WELL},
        Situation{"rate 0", [](Card &card) { card.cimax_sys_rate = 0; }, CONTROLLER_FAULT},
        Situation{"rate 800", [](Card &card) { card.cimax_sys_rate = 800; }, CONTROLLER_FAULT},
        Situation{"rate 801", [](Card &card) { card.cimax_sys_rate = 801; }, ALL_WELL},
        Situation{"rate 0xFFFFFFFF", [](Card &card) { card.cimax_sys_rate = 0xFFFFFFFF; },
                  ALL_WELL},
        Situation{"other rates 0",
                  [](Card &card) {
                    card.cimax_sys_rate_pre = card.cimax_vld_rate = card.cimax_vld_rate_pre = 0;
                  },
                  ALL_WELL}));

INSTANTIATE_TEST_SUITE_P(
    CaPids, CycleIn,
    testing::Values(Situation{"absent",
                              [](Card &card) { card.GetPreCAMPidExist = 0; },
                              {0, {1, 1}, {1, 1}, {1, 1}, {0, 0}}},
                    Situation{"presence 0x100", [](Card &card) { card.GetPreCAMPidExist = 0x100; },
                              ALL_WELL},
                    Situation{"empty form",
                              [](Card &) { platform.setInPort(SLOT, {}); },
                              {0, {1, 1}, {1, 1}, {1, 1}, {0, 0}}},
                    Situation{"other CA systems",
                              [](Card &) {
                                platform.setInPort(SLOT, {{OTHER_CAS, ECM}});
                              },
                              {0, {1, 1}, {1, 1}, {1, 1}, {0, 0}}},
                    Situation{"no form",
                              [](Card &) { platform.GetInPortFormList = nullptr; },
                              {0, {1, 1}, {1, 1}, {OLD, OLD}, {0, 0}}}));

INSTANTIATE_TEST_SUITE_P(
    Descrambling, CycleIn,
    testing::Values(Situation{"scrambled",
                              [](Card &card) { card.rdDescStat = 5; },
                              {0, {1, 1}, {1, 1}, {0, 0}, {0x21, 0x21}}},
                    Situation{"scrambled at B",
                              [](Card &card) { card.rdDescStat.when(0x200, 1) = 5; },
                              {0, {1, 1}, {1, 1}, {0, 0}, {0, 0x21}}},
                    Situation{"unreadable at A",
                              [](Card &card) { card.rdDescStat.when(0x100, 1) = 0xFF; },
                              {0, {1, 1}, {1, 1}, {0, 0}, {0x20, 0}}},
                    Situation{"partly scrambled",
                              [](Card &card) {
                                keepPrograms(card, BOTH_CAMS, BOTH_CAMS);
                                card.rdDescStat.when(0x200, 1) = 5;
                              },
                              {0, {1, 1}, {1, 1}, {0, 0}, {0x11, 0x11}}},
                    Situation{"partly unreadable",
                              [](Card &card) {
                                keepPrograms(card, BOTH_CAMS, BOTH_CAMS);
                                card.rdDescStat.when(0x200, 1) = 0xFF;
                              },
                              {0, {1, 1}, {1, 1}, {0, 0}, {0x10, 0x10}}}));

// --- every condition is asked afresh -------------------------------------------------------------

// The n-th time (from 1) that something is asked it fails, for this time only.
struct Once {
  int nth;
  Fields fields;
};

std::ostream &operator<<(std::ostream &out, const Once &once) {
  return out << "time " << once.nth;
}

class ReadyOnce : public Cycle, public testing::WithParamInterface<Once> {};

TEST_P(ReadyOnce, UnreadyCardConcernsThatStepOnly) {
  int asked = 0;
  card.GetCardOnline.does([&asked] { return ++asked == GetParam().nth ? 0u : 1u; });
  const Calls calls = cycle();
  EXPECT_EQ(fieldsOf(SLOT), GetParam().fields);
  EXPECT_EQ(asked, 11);
  EXPECT_EQ(only(calls, {"PllLock"}).size(), GetParam().nth >= 10 ? 1u : 2u);
}

INSTANTIATE_TEST_SUITE_P(
    Tests, ReadyOnce,
    testing::Values(Once{0, ALL_WELL}, Once{1, {0, {0xFF, 1}, {1, 1}, {0, 0}, {0, 0}}},
                    Once{2, {0, {1, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
                    Once{3, {0, {1, 0xFF}, {1, 1}, {0, 0}, {0, 0}}},
                    Once{4, {0, {1, 1}, {1, 0xFF}, {0, 0xFF}, {0, 0xFF}}},
                    Once{5, {0xFF, {1, 1}, {1, 1}, {0xFF, 0xFF}, {0xFF, 0xFF}}},
                    Once{6, {0, {1, 1}, {1, 1}, {0xFF, 0}, {0, 0}}},
                    Once{7, {0, {1, 1}, {1, 1}, {0, 0xFF}, {0, 0}}},
                    Once{8, {0, {1, 1}, {1, 1}, {0, 0}, {0xFF, 0}}},
                    Once{9, {0, {1, 1}, {1, 1}, {0, 0}, {0, 0xFF}}}, Once{10, ALL_WELL},
                    Once{11, ALL_WELL}));

class InsertedOnce : public Cycle, public testing::WithParamInterface<Once> {};

TEST_P(InsertedOnce, AbsentCamConcernsThatStepOnly) {
  int asked = 0;
  platform.ciLibGetInsertCard.does(
      [&asked](uint32_t, uint32_t cam) { return cam == 0 && ++asked == GetParam().nth ? 0u : 1u; });
  EXPECT_EQ(checked(), GetParam().fields);
}

INSTANTIATE_TEST_SUITE_P(Tests, InsertedOnce,
                         testing::Values(Once{1, {0, {0, 1}, {1, 1}, {0, 0}, {0, 0}}},
                                         Once{2, {0, {1, 1}, {0, 1}, {0xFF, 0}, {0xFF, 0}}},
                                         Once{3, {0, {1, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
                                         Once{4, ALL_WELL}, Once{5, ALL_WELL},
                                         Once{6, {0, {1, 1}, {1, 1}, {0xFF, 0}, {0, 0}}},
                                         Once{7, {0, {1, 1}, {1, 1}, {0, 0}, {0xFF, 0}}},
                                         Once{8, ALL_WELL}, Once{9, ALL_WELL}));

class InsertedOtherwise : public Cycle, public testing::WithParamInterface<Once> {};

TEST_P(InsertedOtherwise, MattersForTheCaSystemOnly) {
  int asked = 0;
  platform.ciLibGetInsertCard.does(
      [&asked](uint32_t, uint32_t cam) { return cam == 0 && ++asked == GetParam().nth ? 2u : 1u; });
  EXPECT_EQ(checked(), GetParam().fields);
}

INSTANTIATE_TEST_SUITE_P(Tests, InsertedOtherwise,
                         testing::Values(Once{1, {0, {2, 1}, {1, 1}, {0, 0}, {0, 0}}},
                                         Once{2, ALL_WELL},
                                         Once{3, {0, {1, 1}, {0xFF, 1}, {0xFF, 0}, {0xFF, 0}}},
                                         Once{4, ALL_WELL}, Once{5, ALL_WELL}, Once{6, ALL_WELL},
                                         Once{7, ALL_WELL}, Once{8, ALL_WELL}));

TEST_F(Cycle, InsertionBySomethingElseThan1KeepsTheControllerChecked) {
  platform.ciLibGetInsertCard.when(SLOT, 0) = 0;
  platform.ciLibGetInsertCard.when(SLOT, 1) = 0x102;
  const Calls calls = only(cycle(), {"ciLibGetInsertCard", "cimax_sync_ok", "cimax_sys_rate"});
  const Calls around(calls.begin() + 8, calls.begin() + 12);
  EXPECT_EQ(around, (Calls{"ciLibGetInsertCard(2, 0)", "ciLibGetInsertCard(2, 1)",
                           "cimax_sync_ok(2)", "cimax_sys_rate(2)"}));
  EXPECT_EQ(pCiData[SLOT]->cimaxStat, 0);
}

TEST_F(Cycle, RateIsReadThoughThereIsNoSync) {
  card.cimax_sync_ok = 0;
  EXPECT_EQ(only(cycle(), {"cimax_sync_ok", "cimax_sys_rate"}),
            (Calls{"cimax_sync_ok(2)", "cimax_sys_rate(2)"}));
}

// --- CA PIDs before the CAM ----------------------------------------------------------------------

TEST_F(Cycle, EachCamLooksForThePidsOfItsCaSystem) {
  Program b(2);
  b.cams(CAM_B).ca(OTHER_CAS, OTHER_ECM).stream(0x02, 0x200);
  setTable({program(1, CAM_A, 0x100), b});
  platform.supports(SLOT, 1, {OTHER_CAS});
  platform.setInPort(SLOT, {{OTHER_CAS, 0x20}, {CAS, 0x10}, {0x0666, 0x30}, {CAS, 0x11}});
  card.GetPreCAMPidExist.when(0x20) = 0;
  EXPECT_EQ(
      only(cycle(), {"GetInPortFormList", "GetPreCAMPidExist"}),
      (Calls{"GetInPortFormList(2, 0)", "GetPreCAMPidExist(2, 0x10)", "GetPreCAMPidExist(2, 0x11)",
             "GetInPortFormList(2, 0)", "GetPreCAMPidExist(2, 0x20)"}));
  EXPECT_EQ(fieldsOf(SLOT).preCamPidStat, (std::vector<unsigned>{0, 1}));
}

TEST_F(Cycle, OnePresentPidOfManyIsEnough) {
  setTable({program(1, CAM_A, 0x100)});
  platform.setInPort(SLOT, {{CAS, 0x10}, {CAS, 0x11}, {CAS, 0x12}, {CAS, 0x11}});
  card.GetPreCAMPidExist = 0;
  card.GetPreCAMPidExist.when(0x12) = 1;
  EXPECT_EQ(only(cycle(), {"GetPreCAMPidExist"}),
            (Calls{"GetPreCAMPidExist(2, 0x10)", "GetPreCAMPidExist(2, 0x11)",
                   "GetPreCAMPidExist(2, 0x12)", "GetPreCAMPidExist(2, 0x11)"}));
  EXPECT_EQ(pCiData[SLOT]->preCamPidStat[0], 0);
}

struct FormCount {
  uint8_t count;
  size_t read;
};

std::ostream &operator<<(std::ostream &out, const FormCount &count) {
  return out << +count.count << " entries";
}

class InPortCount : public Cycle, public testing::WithParamInterface<FormCount> {};

TEST_P(InPortCount, AtMost32EntriesAreRead) {
  setTable({program(1, CAM_A, 0x100)});
  InPortForm &form = platform.setInPort(SLOT, {});
  form.caNum = GetParam().count;
  Calls expected;
  for (uint16_t k = 0; k < 32; ++k) {
    form.ca[k] = {CAS, static_cast<uint16_t>(0x1000 + k)};
    if (k < GetParam().read) {
      expected.push_back("GetPreCAMPidExist(2, 0x10" + std::string(k < 16 ? "0" : "1") +
                         "0123456789abcdef"[k % 16] + ")");
    }
  }
  EXPECT_EQ(only(cycle(), {"GetPreCAMPidExist"}), expected);
}

INSTANTIATE_TEST_SUITE_P(Counts, InPortCount,
                         testing::Values(FormCount{0, 0}, FormCount{1, 1}, FormCount{31, 31},
                                         FormCount{32, 32}, FormCount{33, 32}, FormCount{40, 32},
                                         FormCount{50, 32}, FormCount{255, 32}));

TEST_F(Cycle, LookedForIsTheCaSystemMatchedAtItsStart) {
  Program both(1);
  both.ca(OTHER_CAS, OTHER_ECM).ca(CAS, ECM).stream(0x02, 0x100);
  setTable({both});
  platform.setInPort(SLOT, {{CAS, 0x50}, {OTHER_CAS, 0x10}});
  platform.ciLibCaSysIdMatch.then(0);
  EXPECT_EQ(only(cycle(), {"GetPreCAMPidExist"}), (Calls{"GetPreCAMPidExist(2, 0x10)"}));
}

TEST_F(Cycle, MissingFormEndsTheSearchButNotTheCycle) {
  platform.GetInPortFormList = nullptr;
  EXPECT_EQ(only(cycle(), {"printf", "GetInPortFormList", "GetPreCAMPidExist", "wrDesPid",
                           "ClrAllPreCAMPidExist", "PllLock"}),
            (Calls{"GetInPortFormList(2, 0)", printed("camStatusCheck GetInPortFormList error! \n"),
                   "wrDesPid(2, 0x100)", "wrDesPid(2, 0x200)", "ClrAllPreCAMPidExist(2)",
                   "PllLock(2)", "PllLock(2)"}));
}

TEST_F(Cycle, FormMissingForTheSecondCamKeepsItsFindingOnly) {
  InPortForm form{};
  platform.GetInPortFormList = nullptr;
  platform.GetInPortFormList.then(&form);
  EXPECT_EQ(checked().preCamPidStat, (std::vector<unsigned>{1, OLD}));
}

TEST_F(Cycle, FormMissingForAQualifyingCamAfterAnother) {
  platform.GetInPortFormList = nullptr;
  insertA(0);
  EXPECT_EQ(checked().preCamPidStat, (std::vector<unsigned>{0xFF, OLD}));
}

// --- the presence flags --------------------------------------------------------------------------

TEST_F(Cycle, PresenceFlagsAreClearedThoughNothingIsChecked) {
  card.GetCardOnline = 0;
  EXPECT_EQ(only(cycle(), {"ClrAllPreCAMPidExist"}), (Calls{"ClrAllPreCAMPidExist(2)"}));
}

TEST_F(Cycle, PresenceFlagsAreClearedAfterTheMeasurementAndBeforeTheResets) {
  card.rdDescStat = 5;
  EXPECT_EQ(only(cycle(), {"rdDescStat", "ClrAllPreCAMPidExist", "resetCAM"}),
            (Calls{"rdDescStat(2, 1)", "rdDescStat(2, 1)", "ClrAllPreCAMPidExist(2)",
                   "resetCAM(2, 0)", "resetCAM(2, 1)"}));
}

// --- the status table ----------------------------------------------------------------------------

TEST_F(Cycle, StatusOfACamThatIsNotMeasuredIsCleared) {
  cycle();
  EXPECT_EQ(DescStatus[SLOT][0].progStatus, DESC_STAT_OK);
  EXPECT_EQ(DescStatus[SLOT][1].progStatus, DESC_STAT_OK);
  insertA(0);
  cycle();
  EXPECT_EQ(DescStatus[SLOT][0].progStatus, DESC_STAT_UNKNOWN);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].status, DESC_STAT_UNKNOWN);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].pid, 0x100);
  EXPECT_EQ(DescStatus[SLOT][0].pid[0].type, DESC_PID_TYPE_AV);
  EXPECT_EQ(DescStatus[SLOT][1].progStatus, DESC_STAT_OK);
}

TEST_F(Cycle, ProgramOfBothCamsIsClearedForTheAbsentOne) {
  setTable({program(1, BOTH_CAMS, 0x100)});
  platform.ciLibGetInsertCard.when(SLOT, 1) = 0;
  EXPECT_EQ(checked().descStat, (std::vector<unsigned>{DESC_SUM_OK, UNCHECKED}));
  EXPECT_EQ(DescStatus[SLOT][0].progStatus, DESC_STAT_UNKNOWN);
}

// --- what the other parts see of the cycle -------------------------------------------------------

TEST_F(Cycle, SchedulerSeesTheSummaryOfTheCycleBefore) {
  setTable({program(1, CAM_A, 0x100)});
  platform.giveFlag(4);
  card.rdDescStat = 5;
  cycle();
  ASSERT_EQ(platform.sent.size(), 1u);
  platform.advance(20000);
  card.rdDescStat = 0;
  cycle();
  EXPECT_EQ(platform.sent.size(), 2u);
  EXPECT_EQ(pCiData[SLOT]->descStat[0], DESC_SUM_OK);
}

TEST_F(Cycle, ResetPolicySeesTheSummaryOfThisCycle) {
  card.rdDescStat.when(0x200, 1) = 5;
  EXPECT_EQ(only(cycle(), {"resetCAM"}), (Calls{"resetCAM(2, 1)"}));
}

TEST_F(Cycle, ResetPolicySeesTheControllerStateOfThisCycle) {
  card.cimax_sync_ok = 0;
  EXPECT_EQ(only(cycle(), {"resetCAM"}), (Calls{"resetCAM(2, 0)", "resetCAM(2, 1)"}));
}

TEST_F(Cycle, CaPmtOfThisCycleHoldsTheResetBack) {
  card.rdDescStat = 5;
  platform.giveFlag(4);
  EXPECT_EQ(only(cycle(), {"ciLibSendCaPmt", "resetCAM"}),
            (Calls{"ciLibSendCaPmt(2, 0, 1)", "resetCAM(2, 1)"}));
  platform.advance(10000);
  TIME_FIRST_RESET = 0;
  EXPECT_EQ(only(cycle(), {"resetCAM"}), Calls{});
}

TEST_F(Cycle, CardsAreCheckedApart) {
  for (uint8_t slot : {0, 5}) {
    registerCard(slot);
    platform.card[slot].setTable({program(7, CAM_A, 0x700)});
    platform.supports(slot, 0, {CAS});
    platform.setInPort(slot, {{CAS, ECM}});
  }
  platform.card[5].cimax_sync_ok = 0;
  platform.take();
  for (uint8_t slot : {0, 5}) {
    camStatusCheck(slot);
  }
  EXPECT_EQ(platform.take({"cimax_sync_ok", "wrDesPid", "ClrAllPreCAMPidExist"}),
            (Calls{"cimax_sync_ok(0)", "wrDesPid(0, 0x0)", "ClrAllPreCAMPidExist(0)",
                   "cimax_sync_ok(5)", "ClrAllPreCAMPidExist(5)"}));
  EXPECT_EQ(fieldsOf(0), (Fields{0, {1, 0xFF}, {1, 0xFF}, {0, 0xFF}, {0, 0xFF}}));
  EXPECT_EQ(fieldsOf(5), (Fields{1, {1, 0xFF}, {1, 0xFF}, {0xFF, 0xFF}, {0xFF, 0xFF}}));
  EXPECT_EQ(fieldsOf(SLOT).cimaxStat, OLD);
}

TEST(CycleOfNewCard, StartsFromZeroFields) {
  registerCard(SLOT);
  EXPECT_EQ(fieldsOf(SLOT), (Fields{0, {0, 0}, {0, 0}, {0, 0}, {0, 0}}));
  camStatusCheck(SLOT);
  EXPECT_EQ(fieldsOf(SLOT), NOTHING_CHECKED);
}

TEST(CycleWithoutAccessor, PresenceFlagsAreReportedAndTheCycleGoesOn) {
  registerCard(SLOT, {36});
  camStatusCheck(SLOT);
  EXPECT_EQ(anyLine(platform.take({"printf", "PllLock"})),
            (Calls{asserted("../../CiIf_fpga", "pCiData[slotNo]->ClrAllPreCAMPidExist"),
                   "PllLock(2)", "PllLock(2)"}));
}

}  // namespace
