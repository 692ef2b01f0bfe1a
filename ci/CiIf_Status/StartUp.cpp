#include "CiIf_Status/Internal.h"

using namespace ciif;

static uint8_t ciIfInitFlag;

int32_t ciIfInit(void) {
  if (ciIfInitFlag != 0) {
    return 0;
  }
  // Set before the work: a failed start is never tried again.
  ciIfInitFlag = 1;
  ciAlarmDlyTimeInit();
  return ciLibLoad();
}

void ciTskInit(void) {
  while (is_all_card_loaded != 1) {
    pauseMs(1000);
  }
  if (ciIfInit() < 0) {
    printf("***************************** \n");
    printf("create ci module thread error \n");
    printf("***************************** \n");
  }
}
