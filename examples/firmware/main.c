/*
 * A firmware around the module, as small as one can be: it registers a card, starts the module and
 * supervises the card for a few seconds while its CAM is pulled and put back.
 */
#include <stdio.h>

#include "CiIf.h"
#include "card.h"
#include "platform.h"

static void show(unsigned cycle) {
  const CiData *card = pCiData[CARD_SLOT];
  printf("cycle %u: CAM A inserted 0x%02x, CA system 0x%02x, summary 0x%02x; video 0x%02x\n", cycle,
         (unsigned)card->camInsert[0], (unsigned)card->casidStat[0], (unsigned)card->descStat[0],
         (unsigned)getDescStatWeb(CARD_SLOT, VIDEO_PID));
}

static void supervise(unsigned cycle) {
  camStatusCheck(CARD_SLOT);
  camAlarm(CARD_SLOT);
  show(cycle);
  taskDelay(sysClkRateGet());
}

int main(void) {
  unsigned cycle;
  platformStart();

  cardLoad();
  printCiCard(CARD_SLOT);
  is_all_card_loaded = 1;
  ciTskInit();

  getSlotDescPidInfo(CARD_SLOT);
  PreCAMFilte(CARD_SLOT, 0);

  platformInsertCam(1);
  for (cycle = 1; cycle <= 8; ++cycle) {
    if (cycle == 4)
      platformInsertCam(0);
    if (cycle == 7)
      platformInsertCam(1);
    supervise(cycle);
  }
  return 0;
}
