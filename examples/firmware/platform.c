/*
 * The least that the module needs around it, on one task: semaphores that only count, a clock that
 * moves when someone waits, and a CI library with one CAM that needs no protocol.
 */
#include "platform.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "card.h"

enum { TICKS_PER_SECOND = 100, CAM_INDEX = 0 };

/* --- kernel ---------------------------------------------------------------------------------- */

struct semaphore {
  int available;
};

static uint32_t nowMs;

/* One task: nobody could give what is taken, so a wait would never end. */
int semTake(SEM_ID semId, int timeout) {
  (void)timeout;
  if (semId->available == 0) {
    return -1;
  }
  semId->available = 0;
  return 0;
}

int semGive(SEM_ID semId) {
  semId->available = 1;
  return 0;
}

int taskDelay(int ticks) {
  nowMs += (uint32_t)ticks * 1000 / TICKS_PER_SECOND;
  return 0;
}

int sysClkRateGet(void) {
  return TICKS_PER_SECOND;
}

/* --- CI library ------------------------------------------------------------------------------ */

static CaPmtProg records[32];
static struct semaphore recordsGuard = {1};
static struct semaphore flags[12];
static int camInserted;

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem = &recordsGuard;
SEM_ID CaPMTFlag[12];
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];

void platformStart(void) {
  int i;
  for (i = 0; i < 32; ++i)
    CaPmtInfo[i] = &records[i];
  for (i = 0; i < 12; ++i)
    CaPMTFlag[i] = &flags[i];
}

/* A CAM that comes up asks for a CA PMT; one that is gone descrambles nothing. */
void platformInsertCam(int inserted) {
  camInserted = inserted;
  if (inserted)
    semGive(CaPMTFlag[CAM_INDEX]);
  else
    cardSetDescrambled(0);
}

int32_t ciLibLoad(void) {
  printf("  library: loaded\n");
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  return slotNo * MAX_CAM_NUM + camSlot;
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  return camInserted && ciLibGetCardIndex(slotNo, camSlot) == CAM_INDEX;
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  return index == CAM_INDEX && caSysID == CA_SYSTEM ? 0 : 1;
}

/* A real library would encode the records here; this CAM descrambles whatever it is asked to. */
int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **programs, uint32_t count) {
  uint32_t i;
  for (i = 0; i < count; ++i) {
    printf(
        "  library: CA PMT to card %u CAM %u: program %u version %u, %u streams, CA system 0x%x\n",
        (unsigned)slotNo, (unsigned)camSlot, (unsigned)programs[i]->progNum,
        (unsigned)programs[i]->version, (unsigned)programs[i]->eleNum,
        (unsigned)programs[i]->casid[0]);
  }
  cardSetDescrambled(1);
  return (int32_t)count;
}

void qm_ci_ca_pmt_clr(uint8_t index, uint16_t caSysID) {
  printf("  library: CA PMT state of CAM %u CA system 0x%x discarded\n", (unsigned)index,
         (unsigned)caSysID);
}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  printf("  library: reset of card %u CAM %u\n", (unsigned)slotNo, (unsigned)camSlot);
  return 0;
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  printf("  library: CA system ids of CAM %u forgotten\n", (unsigned)index);
}

/* --- chassis firmware ------------------------------------------------------------------------ */

volatile uint32_t is_all_card_loaded;

int32_t AlarmAdd(AlarmRecord *record) {
  static int32_t lastIndex;
  printf("  alarms: raised %d, card %d, fault 0x%x\n", (int)++lastIndex,
         (int)record->pairs[0].instance, (unsigned)record->pairs[2].id);
  return lastIndex;
}

int32_t AlarmDel(int32_t index, int32_t reserved) {
  (void)reserved;
  printf("  alarms: cleared %d\n", (int)index);
  return 0;
}

InPortForm *GetInPortFormList(uint32_t slotNo, uint32_t port) {
  static InPortForm form = {1, {{CA_SYSTEM, ECM_PID}}};
  return slotNo == CARD_SLOT && port == 0 ? &form : NULL;
}

/* One program with four PIDs, two of which the CAM need not see. */
MuxCardForm *GetMuxCardFormList(uint32_t slotNo) {
  static const uint16_t pids[] = {VIDEO_PID, AUDIO_PID, 0x200, 0x201};
  static const uint16_t programs = 1;
  static uint8_t form[512];
  size_t j;
  memcpy(form + 110, &programs, sizeof programs);
  form[128] = sizeof pids / sizeof pids[0];
  for (j = 0; j < sizeof pids / sizeof pids[0]; ++j)
    memcpy(form + 206 + 4 * j, &pids[j], sizeof pids[j]);
  return slotNo == CARD_SLOT ? (MuxCardForm *)(void *)form : NULL;
}

uint32_t OSTimeGet(void) {
  return nowMs;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return nowMs - stamp;
}

int bbPrintf(const char *format, ...) {
  va_list arguments;
  int length;
  va_start(arguments, format);
  printf("  log: ");
  length = vprintf(format, arguments);
  va_end(arguments);
  return length;
}
