#include "card.h"

#include <stdio.h>
#include <string.h>

/* The module keeps a reference to the table: it lives as long as the program. */
static CiDesc desc;
static int descrambledNow;

static uint32_t online(uint32_t slotNo) {
  (void)slotNo;
  return 1;
}

static uint32_t ready(uint32_t slotNo) {
  (void)slotNo;
  return 1;
}

static uint32_t busy(uint32_t slotNo) {
  (void)slotNo;
  return 0;
}

static CiDesc *progDesc(uint32_t slotNo) {
  (void)slotNo;
  return &desc;
}

static uint32_t alarmMask(uint32_t slotNo, uint32_t camSlot) {
  (void)slotNo;
  (void)camSlot;
  return 0;
}

static uint32_t inSync(uint32_t slotNo) {
  (void)slotNo;
  return 1;
}

static uint32_t systemRate(uint32_t slotNo) {
  (void)slotNo;
  return 2000;
}

static void setCounter(uint32_t slotNo, uint16_t pid, uint16_t value) {
  (void)slotNo;
  (void)pid;
  (void)value;
}

static uint16_t counter(uint32_t slotNo, uint16_t pid) {
  (void)slotNo;
  (void)pid;
  return 0;
}

static void clearPresence(uint8_t slotNo) {
  (void)slotNo;
}

static uint32_t present(uint32_t slotNo, uint16_t pid) {
  (void)slotNo;
  return pid == ECM_PID;
}

static uint32_t locked(uint32_t slotNo) {
  (void)slotNo;
  return 1;
}

/* Real hardware has a bit per PID; here only the last state of a few is worth showing. */
static void passPid(uint32_t slotNo, uint16_t pid, uint32_t pass) {
  if (pid >= 0x200 && pid <= 0x202) {
    printf("  hardware: card %u PID 0x%x %s\n", (unsigned)slotNo, (unsigned)pid,
           pass != 0 ? "passes" : "is kept from the CAM");
  }
}

static void selectPid(uint32_t slotNo, uint16_t pid) {
  (void)slotNo;
  (void)pid;
}

static uint32_t scrambled(uint32_t slotNo, uint32_t pidType) {
  (void)slotNo;
  (void)pidType;
  return descrambledNow ? 0 : 1;
}

void cardSetDescrambled(int descrambled) {
  descrambledNow = descrambled;
}

static void fillTable(void) {
  CiDescProg *program = &desc.prog[0];
  desc.descProgCnt = 1;
  program->prog_num = 1;
  program->caLevel = 1;
  program->camMask = 1;
  program->caList.caNum = 1;
  program->caList.ca[0].casid = CA_SYSTEM;
  program->caList.ca[0].ecmPid = ECM_PID;
  program->eleNum = 2;
  program->ele[0].streamType = 0x1B;
  program->ele[0].pid = VIDEO_PID;
  program->ele[1].streamType = 0x04;
  program->ele[1].pid = AUDIO_PID;
}

/* ISO C has no conversion from a function to void *; the two have one size wherever the module
   runs, and the module copies the bytes back. */
#define FUNCTION_ITEM(id, function)                               \
  do {                                                            \
    void (*const address)(void) = (void (*)(void))(function);     \
    items[count].vid = (id);                                      \
    memcpy(&items[count].ptr, &address, sizeof items[count].ptr); \
    ++count;                                                      \
  } while (0)

/* Ids that the module calls unchecked (11, 12, 13, 16, 21) must be there. This card leaves out the
   rest of the counters: their accessors would report them missing. */
void cardLoad(void) {
  static char name[] = "example card";
  DescIfItem items[20];
  uint32_t count = 0;
  fillTable();
  items[count].vid = 1;
  items[count].ptr = name;
  ++count;
  FUNCTION_ITEM(11, online);
  FUNCTION_ITEM(12, ready);
  FUNCTION_ITEM(13, progDesc);
  FUNCTION_ITEM(16, alarmMask);
  FUNCTION_ITEM(21, busy);
  FUNCTION_ITEM(30, inSync);
  FUNCTION_ITEM(34, setCounter);
  FUNCTION_ITEM(35, counter);
  FUNCTION_ITEM(36, clearPresence);
  FUNCTION_ITEM(37, present);
  FUNCTION_ITEM(42, systemRate);
  FUNCTION_ITEM(52, locked);
  FUNCTION_ITEM(53, passPid);
  FUNCTION_ITEM(54, selectPid);
  FUNCTION_ITEM(55, scrambled);
  descIfRegist(CARD_SLOT, items, count);
}
