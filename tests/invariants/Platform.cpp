#include "Platform.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

struct semaphore {
  uint32_t index;
  bool given;
};

namespace {

constexpr uint32_t flagCount = MAX_BOARD_NUM * MAX_CAM_NUM;
constexpr uint32_t lockIndex = flagCount;
constexpr int ticksPerSecond = 100;

Answers *answers;
Answers ofNobody;  // for a card or a CAM that there is not
semaphore semaphores[lockIndex + 1];
CaPmtProg records[32];
uint16_t selected[MAX_BOARD_NUM];
const char *lastText = "";

Answers &of(uint32_t slotNo) {
  return rules::asked(slotNo) ? *answers : ofNobody;
}

Answers &of(uint32_t slotNo, uint32_t camSlot) {
  return rules::asked(slotNo, camSlot) ? *answers : ofNobody;
}

struct Driver {
  static uint32_t online(uint32_t slotNo) {
    rules::onlineAsked();
    return of(slotNo).online(slotNo);
  }
  static uint32_t busy(uint32_t slotNo) { return of(slotNo).busy(slotNo); }
  static uint32_t ready(uint32_t slotNo) { return of(slotNo).ready(slotNo); }
  static CiDesc *table(uint32_t slotNo) { return of(slotNo).table(slotNo); }
  static uint32_t masked(uint32_t slotNo, uint32_t camSlot) {
    return of(slotNo, camSlot).masked(slotNo, camSlot);
  }
  static uint32_t sync(uint32_t slotNo) { return of(slotNo).sync(slotNo); }
  static uint32_t rate(uint32_t slotNo) { return of(slotNo).rate(slotNo); }
  static uint32_t lock(uint32_t slotNo) {
    const uint32_t value = of(slotNo).lock(slotNo);
    rules::clockRead(slotNo, value);
    return value;
  }
  static uint32_t present(uint32_t slotNo, uint16_t pid) { return of(slotNo).present(slotNo, pid); }
  static uint16_t errors(uint32_t slotNo, uint16_t pid) { return of(slotNo).errors(slotNo, pid); }
  static void setErrors(uint32_t slotNo, uint16_t, uint16_t) { of(slotNo); }
  static void clearPresence(uint8_t slotNo) {
    of(slotNo);
    rules::presenceCleared();
  }
  static void pass(uint32_t slotNo, uint16_t, uint32_t) { of(slotNo); }
  static void select(uint32_t slotNo, uint16_t pid) {
    if (rules::asked(slotNo)) {
      selected[slotNo] = pid;
    }
  }
  static uint32_t read(uint32_t slotNo, uint32_t) {
    rules::pidRead();
    return rules::asked(slotNo) ? answers->descState(slotNo, selected[slotNo]) : 0;
  }
};

template <typename F>
void *address(F *function) {
  return reinterpret_cast<void *>(function);
}

void registerCard(uint32_t slotNo) {
  const DescIfItem items[] = {
      {11, address(Driver::online)},        {12, address(Driver::ready)},
      {13, address(Driver::table)},         {16, address(Driver::masked)},
      {21, address(Driver::busy)},          {30, address(Driver::sync)},
      {34, address(Driver::setErrors)},     {35, address(Driver::errors)},
      {36, address(Driver::clearPresence)}, {37, address(Driver::present)},
      {42, address(Driver::rate)},          {44, address(Driver::setErrors)},
      {45, address(Driver::errors)},        {52, address(Driver::lock)},
      {53, address(Driver::pass)},          {54, address(Driver::select)},
      {55, address(Driver::read)},
  };
  rules::registrationBegins();
  descIfRegist(slotNo, items, sizeof items / sizeof items[0]);
  rules::registrationEnds();
}

void connectLibrary() {
  for (uint32_t i = 0; i <= lockIndex; ++i) {
    semaphores[i] = {i, false};
  }
  for (uint32_t i = 0; i < flagCount; ++i) {
    CaPMTFlag[i] = &semaphores[i];
  }
  for (uint32_t k = 0; k < 32; ++k) {
    records[k] = {};
    CaPmtInfo[k] = &records[k];
  }
  CaPmtSem = &semaphores[lockIndex];
}

}  // namespace

namespace lean {

uint32_t now;

void start(Answers &all, rules::Complaint complaint) {
  answers = &all;
  rules::begin(complaint);
  connectLibrary();
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
  }
  ciTskInit();
}

void wantCaPmt(uint32_t slotNo, uint32_t camSlot) {
  semaphores[slotNo * MAX_CAM_NUM + camSlot].given = true;
}

void supervise(uint32_t slotNo, const CiDesc &table) {
  rules::cycleBegins(slotNo);
  camStatusCheck(static_cast<uint8_t>(slotNo));
  rules::cycleEnded(slotNo, table);
  rules::checkAlarmAnswer(camAlarm(slotNo));
}

void askStatus(uint32_t slotNo, uint32_t query) {
  rules::choose(slotNo);
  rules::checkStatus(getDescStatWeb(slotNo, query));
}

}  // namespace lean

extern "C" {

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem;
SEM_ID CaPMTFlag[flagCount];
CaPmtReply caPmtReplyInfo[flagCount];
volatile uint32_t is_all_card_loaded = 1;

void *leanMalloc(size_t size) {
  rules::memoryTaken(size);
  return std::malloc(size);
}

// The texts of the resets tell their kinds apart; some are printed through "%s".
int leanPrintf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  lastText = std::strcmp(format, "%s") == 0 ? va_arg(arguments, const char *) : format;
  va_end(arguments);
  return 0;
}

int bbPrintf(const char *, ...) {
  return 0;
}

int semTake(SEM_ID semId, int timeout) {
  if (semId->index == lockIndex) {
    rules::lockTaken(timeout);
    return 0;
  }
  rules::flagTaken(semId->index, timeout);
  const bool given = semId->given;
  semId->given = false;
  return given ? 0 : -1;
}

int semGive(SEM_ID semId) {
  if (semId->index == lockIndex) {
    rules::lockGiven();
  } else {
    rules::flagGiven(semId->index);
  }
  return 0;
}

int taskDelay(int ticks) {
  lean::now += static_cast<uint32_t>(ticks) * 1000 / ticksPerSecond;
  return 0;
}

int sysClkRateGet(void) {
  return ticksPerSecond;
}

int32_t ciLibLoad(void) {
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  const uint32_t index = of(slotNo, camSlot).index(slotNo, camSlot);
  rules::indexGiven(slotNo, camSlot, index);
  return index;
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  return of(slotNo, camSlot).inserted(slotNo, camSlot);
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  rules::indexUsed(index);
  return answers->supports(index / MAX_CAM_NUM, index % MAX_CAM_NUM, caSysID) ? 0 : 1;
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **sent, uint32_t count) {
  const bool query = count == 0 || sent[0]->cmdId == 3;
  Answers &asked = of(slotNo, camSlot);
  rules::caPmtSent(slotNo, camSlot, sent, count, query);
  return asked.sent(slotNo, camSlot, sent, count, query);
}

void qm_ci_ca_pmt_clr(uint8_t index, uint16_t) {
  rules::indexUsed(index);
}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  if (!rules::asked(slotNo, camSlot)) {
    return -1;
  }
  rules::camReset(slotNo, camSlot, lastText);
  lastText = "";
  lean::wantCaPmt(slotNo, camSlot);
  return 0;
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  rules::indexUsed(index);
}

int32_t AlarmAdd(AlarmRecord *record) {
  return rules::alarmRaised(*record, answers->addFails());
}

int32_t AlarmDel(int32_t index, int32_t) {
  const bool fails = answers->deleteFails();
  rules::alarmCleared(index, fails);
  return fails ? -1 : 0;
}

InPortForm *GetInPortFormList(uint32_t slotNo, uint32_t) {
  return of(slotNo).inPort(slotNo);
}

MuxCardForm *GetMuxCardFormList(uint32_t slotNo) {
  return of(slotNo).mux(slotNo);
}

uint32_t OSTimeGet(void) {
  return lean::now;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return lean::now - stamp;
}

}  // extern "C"
