// Every call that can fail fails: once at its first, second, third ... call, and from then on for
// ever. What the module reports and keeps, and that the next good cycle is as good as ever.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "AlarmKinds.h"
#include "CiIf_Status/CiIf_Status.h"
#include "platform/Names.h"
#include "platform/Platform.h"

namespace {

constexpr uint8_t SLOT = 2;
constexpr uint16_t CAS = 0x0500;
constexpr uint16_t ECM = 0x1001;
constexpr uint8_t OK = DESC_STAT_OK;
constexpr uint8_t UNKNOWN = DESC_STAT_UNKNOWN;
constexpr int NOT_TAKEN = -1;
constexpr char STATUS_UNIT[] = "../../CiIf_Status";
constexpr char FPGA_UNIT[] = "../../CiIf_fpga";

// Which calls of a function fail.
struct Fault {
  uint32_t call;
  bool lasting;

  // Counts a call and says whether it fails.
  bool strikes(uint32_t &calls) const {
    ++calls;
    return lasting ? calls >= call : calls == call;
  }
};

std::ostream &operator<<(std::ostream &out, const Fault &fault) {
  return out << "call " << fault.call << (fault.lasting ? " and on" : " only");
}

struct FaultName {
  std::string operator()(const testing::TestParamInfo<Fault> &each) const {
    return std::to_string(each.param.call) + (each.param.lasting ? "andOn" : "only");
  }
};

std::vector<Fault> faultsUpTo(uint32_t calls) {
  std::vector<Fault> faults;
  for (uint32_t call = 1; call <= calls; ++call) {
    faults.push_back({call, false});
    faults.push_back({call, true});
  }
  return faults;
}

// The findings of a cycle: insertion, CA system, controller, CA PID and summary of both CAMs, then
// the status of the four PIDs and the two programs.
using Findings = std::vector<int>;

constexpr size_t CASID_A = 2, CASID_B = 3, CIMAX = 4, CA_PID_A = 5, CA_PID_B = 6;
constexpr size_t SUM_A = 7, SUM_B = 8, STATUS_A = 9, STATUS_B = 12;
constexpr size_t PROGRAM_A = 13, PROGRAM_B = 14;

const Findings HEALTHY{1, 1, 1, 1, 0, 0, 0, 0, 0, OK, OK, OK, OK, OK, OK};

Findings findings() {
  const CiData &card = *pCiData[SLOT];
  Findings all;
  for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
    all.push_back(card.camInsert[cam]);
  }
  for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
    all.push_back(card.casidStat[cam]);
  }
  all.push_back(card.cimaxStat);
  for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
    all.push_back(card.preCamPidStat[cam]);
  }
  for (int cam = 0; cam < MAX_CAM_NUM; ++cam) {
    all.push_back(card.descStat[cam]);
  }
  for (int e = 0; e < 3; ++e) {
    all.push_back(DescStatus[SLOT][0].pid[e].status);
  }
  all.push_back(DescStatus[SLOT][1].pid[0].status);
  all.push_back(DescStatus[SLOT][0].progStatus);
  all.push_back(DescStatus[SLOT][1].progStatus);
  return all;
}

// One card, a program of three streams on CAM A and one of one stream on CAM B.
class FaultyPlatform : public testing::Test {
 protected:
  void prepare(std::initializer_list<uint32_t> without = {}) {
    registerCard(SLOT, without);
    platform.supports(SLOT, 0, {CAS});
    platform.supports(SLOT, 1, {CAS});
    platform.setInPort(SLOT, {{CAS, ECM}});
    Program onA(0x12);
    Program onB(0x13);
    onA.ca(CAS, ECM).streams(0x02, 0x100, 3);
    onB.cams(CAM_B).ca(CAS, ECM).stream(0x02, 0x200);
    card.setTable({onA, onB});
    getSlotDescPidInfo(SLOT);
    platform.take();
  }

  void prepareHealthy() {
    prepare();
    EXPECT_EQ(cycle(), Calls{});
    EXPECT_EQ(findings(), HEALTHY);
  }

  // One cycle; what it printed and reset.
  Calls cycle() {
    platform.advance(1000);
    platform.take();
    camStatusCheck(SLOT);
    transcript = platform.take();
    return only(transcript, {"printf", "bbPrintf", "resetCAM"});
  }

  // The driver registers the card once more, now with all its functions.
  static void registerAll() {
    CiData *const abandoned = pCiData[SLOT];
    registerCard(SLOT);
    std::free(abandoned);
  }

  void expectRecovery() {
    EXPECT_EQ(cycle(), Calls{});
    EXPECT_EQ(findings(), HEALTHY);
  }

  uint32_t calls = 0;
  Calls transcript;
  Card &card = platform.card[SLOT];
};

class Faulty : public FaultyPlatform, public testing::WithParamInterface<Fault> {};

// --- malloc --------------------------------------------------------------------------------------

class FailingMalloc : public Faulty {};

// Six cards register; a call that fails is repeated until it succeeds.
TEST_P(FailingMalloc, IsRepeatedEveryThreeSeconds) {
  const uint32_t failing = GetParam().call;
  platform.mallocWorks.does([this, failing](size_t) { return ++calls != failing; });
  for (uint32_t slot = 0; slot < MAX_BOARD_NUM; ++slot) {
    descIfRegist(slot, nullptr, 0);
    ASSERT_NE(pCiData[slot], nullptr);
    EXPECT_EQ(pCiData[slot]->camInsert[0], 0);
  }
  EXPECT_EQ(platform.take({"printf", "taskDelay"}),
            (Calls{printed("malloc pCiData[" + std::to_string(failing - 1) + "] error!! \n"),
                   "taskDelay(180)"}));
  EXPECT_EQ(platform.allocated.size(), MAX_BOARD_NUM + 1u);
}

INSTANTIATE_TEST_SUITE_P(Once, FailingMalloc,
                         testing::Values(Fault{1, false}, Fault{2, false}, Fault{3, false},
                                         Fault{6, false}),
                         FaultName());

class MallocOutage : public Faulty {};

TEST_P(MallocOutage, EndsWithTheFirstSuccess) {
  const uint32_t failures = GetParam().call;
  platform.mallocWorks.does([this, failures](size_t) { return ++calls > failures; });
  prepare();
  EXPECT_EQ(platform.allocated.size(), failures + 1u);
  EXPECT_EQ(platform.now, 1000000u + failures * 3000u);
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Long, MallocOutage,
                         testing::Values(Fault{1, false}, Fault{2, false}, Fault{3, false},
                                         Fault{100, false}),
                         FaultName());

using FailingMallocDeathTest = FaultyPlatform;

TEST_F(FailingMallocDeathTest, ForEverIsRepeatedForEver) {
  platform.mallocWorks = false;
  platform.delayLimit = 500;
  EXPECT_DEATH(registerCard(SLOT), "the module delays for ever");
}

// --- semTake -------------------------------------------------------------------------------------

class FailingPoll : public Faulty {};

// A request that cannot be seen stays with the library and is served when it can.
TEST_P(FailingPoll, OnlyDelaysTheCaPmt) {
  prepareHealthy();
  platform.onSemTake = [this](const std::string &name, int) {
    return name == "CaPMTFlag[4]" && !GetParam().strikes(calls) ? 0 : NOT_TAKEN;
  };
  for (uint32_t n = 1; n <= 5; ++n) {
    const bool fails = GetParam().lasting ? n >= GetParam().call : n == GetParam().call;
    EXPECT_EQ(cycle().size(), fails ? 0u : 2u) << "cycle " << n;
    EXPECT_EQ(findings(), HEALTHY);
  }
  platform.onSemTake = nullptr;
  platform.giveFlag(4);
  const size_t sent = platform.sent.size();
  EXPECT_EQ(cycle().size(), 2u);
  EXPECT_EQ(platform.sent.size(), sent + 1);
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Polls, FailingPoll, testing::ValuesIn(faultsUpTo(4)), FaultName());

class FailingLock : public Faulty {};

// The lock's result is not looked at: the records are sent, and the lock is given back.
TEST_P(FailingLock, DoesNotKeepTheCaPmtBack) {
  prepareHealthy();
  for (int n = 1; n <= 4; ++n) {
    platform.onSemTake = [this](const std::string &name, int timeout) {
      if (name == "CaPMTFlag[4]") {
        return 0;
      }
      EXPECT_EQ(timeout, name == "CaPmtSem" ? -1 : 0);
      return name == "CaPmtSem" && !GetParam().strikes(calls) ? 0 : NOT_TAKEN;
    };
    const Calls report = cycle();
    EXPECT_EQ(report, (Calls{printed("card 3 cam 0 capmtVerNum=" + std::to_string(n) + "\n"),
                             printed("send 1 PMT to Card 3 CAM A,time " +
                                     std::to_string(platform.now) + "\n\r ")}));
    EXPECT_EQ(only(transcript, {"semGive", "ciLibSendCaPmt"}),
              (Calls{"ciLibSendCaPmt(2, 0, 1)", "semGive(CaPmtSem)"}));
    EXPECT_EQ(findings(), HEALTHY);
  }
  platform.onSemTake = nullptr;
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Locks, FailingLock, testing::ValuesIn(faultsUpTo(3)), FaultName());

// --- ciLibLoad -----------------------------------------------------------------------------------

class FailingLoad : public Faulty {};

// Only the first start loads the library, so only a failure of the first call can be seen.
TEST_P(FailingLoad, IsReportedAndNotRepeated) {
  is_all_card_loaded = 1;
  platform.ciLibLoad.does([this] { return GetParam().strikes(calls) ? -1 : 0; });
  const std::string stars = printed("***************************** \n");
  const Calls report{stars, printed("create ci module thread error \n"), stars};
  for (int start = 1; start <= 4; ++start) {
    ciTskInit();
    EXPECT_EQ(platform.take({"printf"}), start == 1 && GetParam().call == 1 ? report : Calls{});
  }
  EXPECT_EQ(calls, 1u);
  prepareHealthy();
}

INSTANTIATE_TEST_SUITE_P(Starts, FailingLoad, testing::ValuesIn(faultsUpTo(3)), FaultName());

// --- ciLibSendCaPmt ------------------------------------------------------------------------------

class FailingSend : public Faulty {};

// A failed sending is printed with the library's result and counts like any other.
TEST_P(FailingSend, IsPrintedAndNotRepeated) {
  prepareHealthy();
  platform.ciLibSendCaPmt.does(
      [this](uint32_t, uint32_t, uint32_t) { return GetParam().strikes(calls) ? -7 : 1; });
  for (uint32_t n = 1; n <= 4; ++n) {
    const bool fails = GetParam().lasting ? n >= GetParam().call : n == GetParam().call;
    platform.giveFlag(4);
    const Calls report = cycle();
    EXPECT_EQ(
        report,
        (Calls{printed("card 3 cam 0 capmtVerNum=" + std::to_string(n) + "\n"),
               printed(std::string("send ") + (fails ? "-7" : "1") + " PMT to Card 3 CAM A,time " +
                       std::to_string(platform.now) + "\n\r ")}));
    EXPECT_TRUE(platform.isFree(CaPmtSem));
    EXPECT_EQ(findings(), HEALTHY);
    EXPECT_EQ(cycle(), Calls{});
  }
  EXPECT_EQ(calls, 4u);
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Sendings, FailingSend, testing::ValuesIn(faultsUpTo(4)), FaultName());

// Both CAMs are asked once; then CAM A's CA PMT, stamped at the end of its second, and its query
// keep that CAM's reset back.
TEST_F(FaultyPlatform, FailedCaPmtAndQueryHoldResetsBackLikeAnyOther) {
  prepareHealthy();
  card.rdDescStat = 5;
  platform.ciLibSendCaPmt = -1;
  std::vector<std::pair<uint32_t, std::string>> events;
  for (uint32_t n = 1; n <= 48; ++n) {
    if (n == 25) {
      platform.giveFlag(4);
    }
    cycle();
    for (const std::string &line : only(transcript, {"resetCAM", "ciLibSendCaPmt"})) {
      events.emplace_back(platform.now, line);
    }
  }
  EXPECT_EQ(events, (decltype(events){{1008000, "ciLibSendCaPmt(2, 0, 1)"},
                                      {1008000, "ciLibSendCaPmt(2, 1, 1)"},
                                      {1027000, "ciLibSendCaPmt(2, 0, 1)"},
                                      {1032000, "resetCAM(2, 1)"},
                                      {1038000, "ciLibSendCaPmt(2, 0, 1)"},
                                      {1049000, "resetCAM(2, 0)"}}));
}

// --- AlarmAdd and AlarmDel -----------------------------------------------------------------------

struct AlarmFault {
  uint32_t kind;
  Fault fault;
};

std::ostream &operator<<(std::ostream &out, const AlarmFault &fault) {
  return out << alarmKind(fault.kind) << ", " << fault.fault;
}

struct AlarmFaultName {
  std::string operator()(const testing::TestParamInfo<AlarmFault> &each) const {
    return hexName(each.param.kind) +
           FaultName()(testing::TestParamInfo<Fault>(each.param.fault, each.index));
  }
};

std::vector<AlarmFault> alarmFaultsUpTo(uint32_t calls) {
  std::vector<AlarmFault> faults;
  for (const AlarmKind &kind : alarmKinds) {
    for (const Fault &fault : faultsUpTo(calls)) {
      faults.push_back({kind.code, fault});
    }
  }
  return faults;
}

// One alarm of CAM B that a fault raises and its end clears, three times over.
class FailingAlarms : public FaultyPlatform, public testing::WithParamInterface<AlarmFault> {
 protected:
  FailingAlarms() {
    ciAlarmDlyTimeInit();
    prepareHealthy();
    alarm.markOk();
  }

  int32_t checkAfter(uint32_t milliseconds) {
    platform.advance(milliseconds);
    platform.take();
    const int32_t result = alarm.check();
    transcript = service(platform.take());
    return result;
  }

  static Calls service(const Calls &all) {
    return only(all, {"EXT_Clear_Ca_Sys_Id", "AlarmAdd", "AlarmDel", "bbPrintf"});
  }

  // The delay runs out with the next millisecond.
  void faultForItsDelay() {
    alarm.noFault();
    checkAfter(1);
    alarm.fault();
    EXPECT_EQ(checkAfter(kind.delays.raise), 0);
    EXPECT_EQ(transcript, Calls{});
  }

  // A few checks that each call the service until a call succeeds; then one that need not.
  template <typename Check>
  void tryUntilDone(const Check &failing, const Calls &done, int32_t result) {
    for (int tries = 0; tries < 3; ++tries) {
      const uint32_t attempt = calls + 1;
      const bool fails = GetParam().fault.lasting ? attempt >= GetParam().fault.call
                                                  : attempt == GetParam().fault.call;
      const int32_t answer = checkAfter(1);
      EXPECT_EQ(calls, attempt);
      if (!fails) {
        EXPECT_EQ(answer, result);
        EXPECT_EQ(transcript, done);
        EXPECT_EQ(checkAfter(1), result);
        EXPECT_EQ(transcript, Calls{});
        return;
      }
      EXPECT_EQ(answer, -1);
      EXPECT_EQ(transcript, joined({done, {failing()}}));
    }
  }

  const AlarmKind &kind = alarmKind(GetParam().kind);
  const Alarm alarm{kind, SLOT, 1};
};

using FailingAlarmAdd = FailingAlarms;

TEST_P(FailingAlarmAdd, IsTriedAgainAtTheNextCheck) {
  platform.AlarmAdd.does([this] { return GetParam().fault.strikes(calls) ? -1 : 9; });
  for (int episode = 0; episode < 3; ++episode) {
    faultForItsDelay();
    tryUntilDone([this] { return alarm.message(kind.failures.raise); }, service(alarm.raising()),
                 kind.delays.answerPast);
    const bool raised = transcript.empty();
    alarm.noFault();
    EXPECT_EQ(checkAfter(kind.delays.clear + 1), 0);
    EXPECT_EQ(transcript, raised ? Calls{alarmDel(9)} : Calls{});
  }
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingAlarmAdd, testing::ValuesIn(alarmFaultsUpTo(5)),
                         AlarmFaultName());

using FailingAlarmDel = FailingAlarms;

TEST_P(FailingAlarmDel, IsTriedAgainAtTheNextCheck) {
  platform.AlarmDel.does([this](int32_t) { return GetParam().fault.strikes(calls) ? -1 : 0; });
  bool stands = false;
  for (const bool masked : {false, true, false}) {
    if (stands) {
      alarm.fault();
      EXPECT_EQ(checkAfter(kind.delays.raise), 0);
    } else {
      faultForItsDelay();
    }
    EXPECT_EQ(checkAfter(1), kind.delays.answerPast);
    EXPECT_EQ(transcript, stands ? Calls{} : service(alarm.raising()));
    alarm.noFault();
    if (masked) {
      alarm.mask();
    } else {
      EXPECT_EQ(checkAfter(kind.delays.clear), 0);
      EXPECT_EQ(transcript, Calls{});
    }
    const char *format = masked ? kind.failures.maskedClear : kind.failures.clear;
    tryUntilDone([this, format] { return alarm.message(format); }, {alarmDel(1)}, 0);
    stands = !transcript.empty();
    alarm.unmask();
  }
  platform.AlarmDel = 0;
  alarm.noFault();
  checkAfter(kind.delays.clear + 1);
  faultForItsDelay();
  EXPECT_EQ(checkAfter(1), kind.delays.answerPast);
  EXPECT_EQ(transcript, service(alarm.raising()));
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingAlarmDel, testing::ValuesIn(alarmFaultsUpTo(5)),
                         AlarmFaultName());

// --- GetInPortFormList ---------------------------------------------------------------------------

class FailingInPort : public Faulty {};

// Asked for CAM A, then for CAM B; a failure leaves the CAM and those behind it as they were.
TEST_P(FailingInPort, KeepsTheLastStatus) {
  prepareHealthy();
  InPortForm *const form = platform.GetInPortFormList(SLOT, 0);
  platform.GetInPortFormList = nullptr;
  platform.GetInPortFormList.does(
      [this, form](uint32_t, uint32_t) { return GetParam().strikes(calls) ? nullptr : form; });
  card.GetPreCAMPidExist = 0;
  Findings expected = HEALTHY;
  uint32_t asked = 0;
  for (int n = 1; n <= 4; ++n) {
    Calls report;
    for (const size_t presence : {CA_PID_A, CA_PID_B}) {
      if (GetParam().strikes(asked)) {
        report = {printed("camStatusCheck GetInPortFormList error! \n")};
        break;
      }
      expected[presence] = 1;
    }
    EXPECT_EQ(cycle(), report);
    EXPECT_EQ(calls, asked);
    EXPECT_EQ(findings(), expected) << "cycle " << n;
    EXPECT_EQ(only(transcript, {"ClrAllPreCAMPidExist"}), Calls{"ClrAllPreCAMPidExist(2)"});
  }
  platform.GetInPortFormList = form;
  card.GetPreCAMPidExist = 1;
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingInPort, testing::ValuesIn(faultsUpTo(6)), FaultName());

// --- GetMuxCardFormList --------------------------------------------------------------------------

class FailingMuxForm : public Faulty {};

TEST_P(FailingMuxForm, LeavesTheSwitchAsItIs) {
  prepareHealthy();
  MuxForm form;
  form.program({0x100, 0x300});
  platform.GetMuxCardFormList.does([this, &form](uint32_t) -> MuxCardForm * {
    return GetParam().strikes(calls) ? nullptr : form.get();
  });
  for (uint32_t n = 1; n <= 4; ++n) {
    platform.take();
    PreCAMFilte(SLOT, 0);
    const bool fails = GetParam().lasting ? n >= GetParam().call : n == GetParam().call;
    const Calls all = platform.take();
    EXPECT_EQ(only(all, {"SetCamFlit"}).size(), fails ? 0u : 0x2001u);
    EXPECT_EQ(
        only(all, {"printf"}),
        fails ? Calls{printed("card 3 port 1 set PreCAMFilte can not find pMuxCard\n")} : Calls{});
    EXPECT_EQ(only(all, {"bbPrintf"}).size(), fails ? 4u : 7u);
  }
  EXPECT_EQ(findings(), HEALTHY);
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingMuxForm, testing::ValuesIn(faultsUpTo(3)), FaultName());

// --- GetProgDesc ---------------------------------------------------------------------------------

const std::string NO_MATCH_TABLE = printed("casidMatch pdesc==NULL! \n");
const std::string NO_SUMMARY_TABLE = printed("getDescStat pdesc==NULL! \n");
const std::string NO_CYCLE_TABLE = asserted(STATUS_UNIT, "pdesc");
const std::string NO_CLEAR_TABLE = asserted(STATUS_UNIT, 192, "pdesc");
const std::string NO_MEASURE_TABLE = asserted(STATUS_UNIT, 460, "pdesc");

// A cycle asks for the table eleven times: itself, for the CA system of each CAM and for its CA
// PMT, then for the measurement, its CA system and the summary of each CAM.
struct LostTable {
  Fault fault;
  Calls report;
  // What differs from a healthy card.
  std::vector<std::pair<size_t, int>> changes;
};

std::ostream &operator<<(std::ostream &out, const LostTable &lost) {
  return out << lost.fault;
}

class FailingTable : public FaultyPlatform, public testing::WithParamInterface<LostTable> {};

TEST_P(FailingTable, IsReportedWhereItIsMissed) {
  prepareHealthy();
  card.GetProgDesc.does(
      [this]() -> CiDesc * { return GetParam().fault.strikes(calls) ? nullptr : &card.desc; });
  Calls report = cycle();
  if (GetParam().fault.call == 1) {
    report = anyLine(report);
  }
  EXPECT_EQ(report, GetParam().report);
  Findings expected = HEALTHY;
  for (const auto &[index, value] : GetParam().changes) {
    expected[index] = value;
  }
  EXPECT_EQ(findings(), expected);
  card.GetProgDesc = &card.desc;
  expectRecovery();
}

const std::vector<std::pair<size_t, int>> NO_CA_SYSTEM_A{
    {CASID_A, 0},        {CA_PID_A, 0xFF},        {SUM_A, 0xFF},
    {STATUS_A, UNKNOWN}, {STATUS_A + 1, UNKNOWN}, {STATUS_A + 2, UNKNOWN},
    {PROGRAM_A, UNKNOWN}};
const std::vector<std::pair<size_t, int>> NO_CA_SYSTEM_B{
    {CASID_B, 0}, {CA_PID_B, 0xFF}, {SUM_B, 0xFF}, {STATUS_B, UNKNOWN}, {PROGRAM_B, UNKNOWN}};

INSTANTIATE_TEST_SUITE_P(Once, FailingTable,
                         testing::Values(LostTable{{1, false}, {NO_CYCLE_TABLE}, {}},
                                         LostTable{{2, false}, {NO_MATCH_TABLE}, NO_CA_SYSTEM_A},
                                         LostTable{{3, false}, {NO_MATCH_TABLE}, {}},
                                         LostTable{{4, false}, {NO_MATCH_TABLE}, NO_CA_SYSTEM_B},
                                         LostTable{{5, false}, {NO_MATCH_TABLE}, {}},
                                         LostTable{{6, false}, {NO_MEASURE_TABLE}, {}},
                                         LostTable{{7, false}, {NO_MATCH_TABLE}, {}},
                                         LostTable{{8, false}, {NO_SUMMARY_TABLE}, {{SUM_A, 0xFF}}},
                                         LostTable{{9, false}, {NO_MEASURE_TABLE}, {}},
                                         LostTable{{10, false}, {NO_MATCH_TABLE}, {}},
                                         LostTable{
                                             {11, false}, {NO_SUMMARY_TABLE}, {{SUM_B, 0xFF}}},
                                         LostTable{{12, false}, {}, {}}));

INSTANTIATE_TEST_SUITE_P(
    ForEver, FailingTable,
    testing::Values(
        LostTable{{1, true}, {NO_CYCLE_TABLE}, {}},
        LostTable{{2, true},
                  {NO_MATCH_TABLE, NO_MATCH_TABLE, NO_MATCH_TABLE, NO_MATCH_TABLE, NO_CLEAR_TABLE,
                   NO_CLEAR_TABLE},
                  {{CASID_A, 0},
                   {CASID_B, 0},
                   {CA_PID_A, 0xFF},
                   {CA_PID_B, 0xFF},
                   {SUM_A, 0xFF},
                   {SUM_B, 0xFF}}},
        LostTable{{3, true},
                  {NO_MATCH_TABLE, NO_MATCH_TABLE, NO_MATCH_TABLE, NO_MEASURE_TABLE,
                   NO_SUMMARY_TABLE, NO_CLEAR_TABLE},
                  {{CASID_B, 0}, {CA_PID_B, 0xFF}, {SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{
            {4, true},
            {NO_MATCH_TABLE, NO_MATCH_TABLE, NO_MEASURE_TABLE, NO_SUMMARY_TABLE, NO_CLEAR_TABLE},
            {{CASID_B, 0}, {CA_PID_B, 0xFF}, {SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{{5, true},
                  {NO_MATCH_TABLE, NO_MEASURE_TABLE, NO_SUMMARY_TABLE, NO_MEASURE_TABLE,
                   NO_SUMMARY_TABLE},
                  {{SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{{6, true},
                  {NO_MEASURE_TABLE, NO_SUMMARY_TABLE, NO_MEASURE_TABLE, NO_SUMMARY_TABLE},
                  {{SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{{7, true},
                  {NO_MATCH_TABLE, NO_SUMMARY_TABLE, NO_MEASURE_TABLE, NO_SUMMARY_TABLE},
                  {{SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{{8, true},
                  {NO_SUMMARY_TABLE, NO_MEASURE_TABLE, NO_SUMMARY_TABLE},
                  {{SUM_A, 0xFF}, {SUM_B, 0xFF}}},
        LostTable{{9, true}, {NO_MEASURE_TABLE, NO_SUMMARY_TABLE}, {{SUM_B, 0xFF}}},
        LostTable{{10, true}, {NO_MATCH_TABLE, NO_SUMMARY_TABLE}, {{SUM_B, 0xFF}}},
        LostTable{{11, true}, {NO_SUMMARY_TABLE}, {{SUM_B, 0xFF}}}));

// The table is gone just when the CA PMT is built.
TEST_F(FaultyPlatform, CaPmtWithoutATableSendsNothing) {
  prepareHealthy();
  platform.giveFlag(4);
  card.GetProgDesc.does([this]() -> CiDesc * { return ++calls == 4 ? nullptr : &card.desc; });
  const Calls report = anyLine(cycle());
  EXPECT_EQ(report, (Calls{printed("file[../../CiIf_capmt] line[N] pdesc == NULL!! \n"),
                           printed("send 0 PMT to Card 3 CAM A,time " +
                                   std::to_string(platform.now) + "\n\r ")}));
  EXPECT_EQ(only(transcript, {"semGive", "ciLibSendCaPmt"}), Calls{});
  EXPECT_EQ(findings(), HEALTHY);
  expectRecovery();
}

// --- the FPGA ------------------------------------------------------------------------------------

class FailingRead : public Faulty {};

// Four PIDs are read in a cycle.
TEST_P(FailingRead, LeavesThePidUnknown) {
  prepareHealthy();
  card.rdDescStat.does(
      [this](uint16_t, uint32_t) { return GetParam().strikes(calls) ? 0xFFu : 0u; });
  const std::array<const char *, 4> pids{"100", "101", "102", "200"};
  Calls report;
  Findings expected = HEALTHY;
  size_t failedOnA = 0;
  for (uint32_t n = 1; n <= 4; ++n) {
    if (GetParam().lasting ? n >= GetParam().call : n == GetParam().call) {
      const bool onA = n <= 3;
      report.push_back(
          printed("read pid:0x" + std::string(pids[n - 1]) + " desc status error!!\n"));
      expected[STATUS_A + n - 1] = UNKNOWN;
      expected[onA ? PROGRAM_A : PROGRAM_B] = UNKNOWN;
      failedOnA += onA;
      expected[SUM_B] = onA ? expected[SUM_B] : DESC_SUM_ALL;
    }
  }
  expected[SUM_A] = failedOnA == 0 ? DESC_SUM_OK : failedOnA < 3 ? DESC_SUM_PART : DESC_SUM_ALL;
  EXPECT_EQ(cycle(), report);
  EXPECT_EQ(findings(), expected);
  card.rdDescStat = 0;
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Reads, FailingRead, testing::ValuesIn(faultsUpTo(4)), FaultName());

TEST_F(FaultyPlatform, UnreadableFpgaNeverResetsACam) {
  prepareHealthy();
  card.rdDescStat = 0xFF;
  for (int second = 0; second < 1000; ++second) {
    cycle();
    ASSERT_EQ(only(transcript, {"resetCAM", "ciLibSendCaPmt"}), Calls{});
  }
  card.rdDescStat = 0;
  expectRecovery();
}

// --- card functions that are not there -----------------------------------------------------------

struct Missing {
  const char *name;
  uint32_t vid;
  Calls report;
  std::vector<std::pair<size_t, int>> changes;
};

std::ostream &operator<<(std::ostream &out, const Missing &missing) {
  return out << missing.name;
}

Calls repeated(const std::string &line, size_t count) {
  return Calls(count, line);
}

std::string reported(const std::string &name) {
  return printed("pcidata[2]->" + name + " == NULL!! \n");
}

std::string assertedField(const std::string &name) {
  return asserted(FPGA_UNIT, "pCiData[slotNo]->" + name);
}

const std::vector<std::pair<size_t, int>> CONTROLLER_FAULT{
    {CIMAX, 1},          {CA_PID_A, 0xFF},     {CA_PID_B, 0xFF},        {SUM_A, 0xFF},
    {SUM_B, 0xFF},       {STATUS_A, UNKNOWN},  {STATUS_A + 1, UNKNOWN}, {STATUS_A + 2, UNKNOWN},
    {STATUS_B, UNKNOWN}, {PROGRAM_A, UNKNOWN}, {PROGRAM_B, UNKNOWN}};

class MissingFunction : public FaultyPlatform, public testing::WithParamInterface<Missing> {};

TEST_P(MissingFunction, IsReportedAndReadsAsItsNeutralResult) {
  prepare({GetParam().vid});
  platform.now = 20000;  // too early for any reset
  for (int n = 0; n < 3; ++n) {
    EXPECT_EQ(anyLine(cycle()), GetParam().report);
    Findings expected = HEALTHY;
    for (const auto &[index, value] : GetParam().changes) {
      expected[index] = value;
    }
    EXPECT_EQ(findings(), expected);
  }
  registerAll();
  expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(
    UsedByTheCycle, MissingFunction,
    testing::Values(Missing{"cimax_sync_ok", 30, {reported("cimax_sync_ok")}, CONTROLLER_FAULT},
                    Missing{"cimax_sys_rate", 42, {reported("cimax_sys_rate")}, CONTROLLER_FAULT},
                    Missing{
                        "ClrAllPreCAMPidExist", 36, {assertedField("ClrAllPreCAMPidExist")}, {}},
                    Missing{"GetPreCAMPidExist",
                            37,
                            repeated(reported("GetPreCAMPidExist"), 2),
                            {{CA_PID_A, 1}, {CA_PID_B, 1}}},
                    Missing{"PllLock", 52, repeated(reported("PllLock"), 2), {}},
                    Missing{"wrDesPid", 54, repeated(assertedField("wrDesPid"), 4), {}},
                    // a missing reader answers 0: descrambled
                    Missing{"rdDescStat", 55, repeated(reported("rdDescStat"), 4), {}}),
    ItsName());

INSTANTIATE_TEST_SUITE_P(
    NotUsedByTheCycle, MissingFunction,
    testing::Values(Missing{"pCardName", 1, {}, {}}, Missing{"CardFn14", 14, {}, {}},
                    Missing{"CardFn15", 15, {}, {}}, Missing{"cimax_pid_rate_pre", 31, {}, {}},
                    Missing{"cimax_sys_rate_pre", 32, {}, {}},
                    Missing{"cimax_vld_rate_pre", 33, {}, {}}, Missing{"SetPreCAMCC", 34, {}, {}},
                    Missing{"GetPreCAMCC", 35, {}, {}}, Missing{"cimax_pid_rate", 41, {}, {}},
                    Missing{"cimax_vld_rate", 43, {}, {}}, Missing{"SetCAMCC", 44, {}, {}},
                    Missing{"GetCAMCC", 45, {}, {}}, Missing{"ClrAllCAMPidExist", 46, {}, {}},
                    Missing{"GetCAMPidExist", 47, {}, {}}, Missing{"PllReg", 51, {}, {}},
                    Missing{"SetCamFlit", 53, {}, {}}),
    ItsName());

// Only a scrambled PID asks for the counts of its ECM PIDs.
TEST_F(FaultyPlatform, MissingCountersReadAsNoErrors) {
  prepare({34, 35});
  platform.now = 20000;  // too early for any reset
  card.rdDescStat = 5;
  const Calls each{reported("GetPreCAMCC"), assertedField("SetPreCAMCC")};
  EXPECT_EQ(anyLine(cycle()), joined({each, each, each, each}));
  EXPECT_EQ(DescStatus[SLOT][0].progStatus, DESC_STAT_SCRAMBLED);
  card.rdDescStat = 0;
  registerAll();
  expectRecovery();
}

TEST_F(FaultyPlatform, MissingLockResetsBothCamsOfAReadyCard) {
  prepare({52});
  EXPECT_EQ(cycle(), (Calls{reported("PllLock"), printed("all programs error, first reset! \n"),
                            "resetCAM(2, 0)", reported("PllLock"),
                            printed("all programs error, first reset! \n"), "resetCAM(2, 1)"}));
  EXPECT_EQ(findings(), HEALTHY);
  registerAll();
  expectRecovery();
}

TEST_F(FaultyPlatform, MissingSwitchIsReportedForEveryPid) {
  prepare({53});
  MuxForm form;
  platform.GetMuxCardFormList = form.get();
  PreCAMFilte(SLOT, 0);
  EXPECT_EQ(anyLine(platform.take({"printf", "SetCamFlit"})),
            repeated(assertedField("SetCamFlit"), 0x2000));
}

}  // namespace
