#include "LeanPlatform.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Rules.h"

struct semaphore {
  uint32_t index;
};

namespace {

constexpr uint16_t CAS = 0x0500;
constexpr uint16_t ECM = 0x1000;
constexpr uint32_t LOCK = 12;
constexpr uint8_t REFUSED = 0x71;
constexpr int TICKS = 100;

semaphore semaphores[LOCK + 1];
CaPmtProg records[32];
CiDesc tables[MAX_BOARD_NUM];
InPortForm forms[MAX_BOARD_NUM];
uint16_t selected[MAX_BOARD_NUM];
const char *lastText = "";

// PIDs tell program, stream and card: 0x100 + 16 * program + stream.
uint16_t pidOf(uint32_t program, uint32_t stream) {
  return static_cast<uint16_t>(0x100 + 16 * program + stream);
}

// A program on both CAMs is as its CAM A makes it.
World &worldOf(uint32_t slotNo, uint16_t pid) {
  const uint32_t program = (pid - 0x100u) / 16;
  return chassis.card[slotNo].cam[program == 1 ? 1 : 0];
}

struct Driver {
  static uint32_t online(uint32_t slotNo) { return chassis.card[slotNo].online; }
  static uint32_t ready(uint32_t slotNo) { return chassis.card[slotNo].ready; }
  static uint32_t busy(uint32_t slotNo) { return chassis.card[slotNo].busy; }
  static CiDesc *table(uint32_t slotNo) {
    return chassis.card[slotNo].table ? &tables[slotNo] : nullptr;
  }
  static uint32_t masked(uint32_t slotNo, uint32_t camSlot) {
    return chassis.card[slotNo].cam[camSlot].masked;
  }
  static uint32_t sync(uint32_t slotNo) { return chassis.card[slotNo].sync; }
  static uint32_t rate(uint32_t slotNo) { return chassis.card[slotNo].fast ? 801 : 800; }
  static uint32_t lock(uint32_t slotNo) { return chassis.card[slotNo].locked; }
  static uint32_t present(uint32_t slotNo, uint16_t ecm) {
    return chassis.card[slotNo].cam[ecm & 1].ecmPresent;
  }
  static uint16_t errors(uint32_t slotNo, uint16_t ecm) {
    return chassis.card[slotNo].cam[ecm & 1].ecmErrors;
  }
  static void setErrors(uint32_t, uint16_t, uint16_t) {}
  static void clearPresence(uint8_t) {}
  static void select(uint32_t slotNo, uint16_t pid) { selected[slotNo] = pid; }
  static uint32_t read(uint32_t slotNo, uint32_t) {
    const World &world = worldOf(slotNo, selected[slotNo]);
    const uint32_t bit = 1u << (selected[slotNo] & 7);
    ++chassis.calls;
    if ((world.unreadable & bit) != 0) {
      return 0xFF;
    }
    return (world.failing & bit) != 0 ? 5 : 0;
  }
};

template <typename F>
void *address(F *function) {
  return reinterpret_cast<void *>(function);
}

void addProgram(CiDesc &table, uint8_t camMask) {
  const uint32_t p = table.descProgCnt++;
  CiDescProg &program = table.prog[p];
  program.prog_num = static_cast<uint16_t>(p + 1);
  program.caLevel = 1;
  program.camMask = camMask;
  program.caList.caNum = 2;
  program.caList.ca[0] = {CAS, ECM};
  program.caList.ca[1] = {CAS, ECM + 1};
  program.eleNum = STREAMS;
  for (uint32_t e = 0; e < STREAMS; ++e) {
    program.ele[e].streamType = 2;
    program.ele[e].pid = pidOf(p, e);
  }
}

}  // namespace

Chassis chassis;

void registerLeanCard(uint32_t slotNo) {
  const DescIfItem items[] = {
      {11, address(Driver::online)},        {12, address(Driver::ready)},
      {13, address(Driver::table)},         {16, address(Driver::masked)},
      {21, address(Driver::busy)},          {30, address(Driver::sync)},
      {34, address(Driver::setErrors)},     {35, address(Driver::errors)},
      {36, address(Driver::clearPresence)}, {37, address(Driver::present)},
      {42, address(Driver::rate)},          {52, address(Driver::lock)},
      {54, address(Driver::select)},        {55, address(Driver::read)},
  };
  for (uint8_t camMask = 1; camMask <= PROGRAMS; ++camMask) {
    addProgram(tables[slotNo], camMask);
  }
  forms[slotNo].caNum = 2;
  forms[slotNo].ca[0] = {CAS, ECM};
  forms[slotNo].ca[1] = {CAS, ECM + 1};
  for (uint32_t i = 0; i <= LOCK; ++i) {
    semaphores[i].index = i;
  }
  for (uint32_t i = 0; i < 12; ++i) {
    CaPMTFlag[i] = &semaphores[i];
  }
  for (uint32_t k = 0; k < 32; ++k) {
    CaPmtInfo[k] = &records[k];
  }
  CaPmtSem = &semaphores[LOCK];
  descIfRegist(slotNo, items, sizeof items / sizeof items[0]);
  getSlotDescPidInfo(slotNo);
}

extern "C" {

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem;
SEM_ID CaPMTFlag[12];
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];
volatile uint32_t is_all_card_loaded = 1;

void *soakMalloc(size_t size);
int soakPrintf(const char *format, ...);

void *soakMalloc(size_t size) {
  ++chassis.allocations;
  return std::malloc(size);
}

// The reset messages tell the kinds of reset apart. They are printed through "%s".
int soakPrintf(const char *format, ...) {
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
  if (semId->index == LOCK) {
    if (timeout != -1) {
      rules::broken("lock taken with a limit", 0, 0);
    }
    rules::lockTaken();
    return 0;
  }
  if (timeout != 0) {
    rules::broken("flag waited for", semId->index / MAX_CAM_NUM, semId->index % MAX_CAM_NUM);
  }
  World &cam = chassis.card[semId->index / MAX_CAM_NUM].cam[semId->index % MAX_CAM_NUM];
  const bool given = cam.flag;
  cam.flag = false;
  return given ? 0 : -1;
}

int semGive(SEM_ID semId) {
  if (semId->index != LOCK) {
    rules::broken("flag given by the module", 0, semId->index);
  }
  rules::lockGiven();
  return 0;
}

int taskDelay(int ticks) {
  chassis.now += static_cast<uint32_t>(ticks) * 1000 / TICKS;
  return 0;
}

int sysClkRateGet(void) {
  return TICKS;
}

int32_t ciLibLoad(void) {
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  return slotNo * MAX_CAM_NUM + camSlot;
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  return chassis.card[slotNo].cam[camSlot].inserted;
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t) {
  return chassis.card[index / MAX_CAM_NUM].cam[index % MAX_CAM_NUM].declares ? 0 : 1;
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **sent, uint32_t count) {
  const bool query = count == 0 || sent[0]->cmdId == 3;
  rules::caPmtSent(slotNo, camSlot, query);
  CaPmtReply &reply = caPmtReplyInfo[slotNo * MAX_CAM_NUM + camSlot];
  if (!query) {
    reply = {};  // a fresh CA PMT, a fresh opinion
  } else if (chassis.card[slotNo].cam[camSlot].refuses) {
    reply.progNum = static_cast<uint16_t>(count);
    for (uint32_t k = 0; k < count; ++k) {
      reply.prog[k].progNum = sent[k]->progNum;
      reply.prog[k].caEnable = REFUSED;
    }
  }
  return chassis.sendFails ? -1 : static_cast<int32_t>(count);
}

void qm_ci_ca_pmt_clr(uint8_t, uint16_t) {}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  rules::camReset(slotNo, camSlot, std::strncmp(lastText, "partial", 7) == 0);
  chassis.card[slotNo].cam[camSlot].flag = true;
  return 0;
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  if (index >= MAX_BOARD_NUM * MAX_CAM_NUM) {
    rules::broken("CA systems cleared of no CAM", index, 0);
  }
}

int32_t AlarmAdd(AlarmRecord *record) {
  return rules::alarmRaised(*record);
}

int32_t AlarmDel(int32_t index, int32_t) {
  rules::alarmCleared(index);
  return chassis.delFails ? -1 : 0;
}

InPortForm *GetInPortFormList(uint32_t slotNo, uint32_t) {
  return chassis.card[slotNo].form ? &forms[slotNo] : nullptr;
}

MuxCardForm *GetMuxCardFormList(uint32_t) {
  return nullptr;
}

uint32_t OSTimeGet(void) {
  return chassis.now;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return chassis.now - stamp;
}

}  // extern "C"
