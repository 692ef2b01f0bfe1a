/* A firmware module written in C: it links only while everything has C linkage. */
#include <stdio.h>
#include <string.h>

#include "CiIf.h"
#include "CiPlatform.h"

typedef void (*Function)(void);

#define OFFERED(name) \
  { #name, (Function)(name) }
static const struct {
  const char *name;
  Function function;
} offered[] = {
    OFFERED(descIfRegist),
    OFFERED(ciTskInit),
    OFFERED(camStatusCheck),
    OFFERED(camAlarm),
    OFFERED(camAlarmCheck),
    OFFERED(PreCAMFilte),
    OFFERED(getSlotDescPidInfo),
    OFFERED(getDescStatWeb),
    OFFERED(caPMTSend),
    OFFERED(ci_Help),
    OFFERED(printCiIfVer),
    OFFERED(printCiCard),
    OFFERED(getCAinfo),
    OFFERED(printDesSta),
    OFFERED(ClrAllDescCC),
    OFFERED(CheckDescCC),
    OFFERED(testprefilter),
    OFFERED(test_bit),
    OFFERED(cimax_sync_ok),
    OFFERED(cimax_pid_rate_pre),
    OFFERED(cimax_sys_rate_pre),
    OFFERED(cimax_vld_rate_pre),
    OFFERED(SetPreCAMCC),
    OFFERED(GetPreCAMCC),
    OFFERED(ClrAllPreCAMPidExist),
    OFFERED(GetPreCAMPidExist),
    OFFERED(cimax_pid_rate),
    OFFERED(cimax_sys_rate),
    OFFERED(cimax_vld_rate),
    OFFERED(SetCAMCC),
    OFFERED(GetCAMCC),
    OFFERED(ClrAllCAMPidExist),
    OFFERED(GetCAMPidExist),
    OFFERED(PllReg),
    OFFERED(PllLock),
    OFFERED(SetCamFlit),
    OFFERED(wrDesPid),
    OFFERED(rdDescStat),
};

static int failures;

static void expect(int holds, const char *what) {
  if (!holds) {
    printf("failed: %s\n", what);
    ++failures;
  }
}
#define EXPECT(condition) expect((condition), #condition)

static int isZero(const void *data, size_t size) {
  const unsigned char *bytes = data;
  return bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0;
}

static void globalsStartAsDeclared(void) {
  EXPECT(isZero(pCiData, sizeof pCiData));
  EXPECT(isZero(DescStatus, sizeof DescStatus));
  EXPECT(sizeof DescStatus == 24960);
  EXPECT(TIME_CAPMT == 10000);
  EXPECT(TIME_FIRST_RESET == 30000);
  EXPECT(TIME_RESET == 300000);
  EXPECT(TIME_PART_RESET == 30000);
  EXPECT(TIME_NO_RESET == 5000);
  EXPECT(isZero(caPmtQuery, sizeof caPmtQuery));
  EXPECT(sizeof caPmtQuery == 48);
  EXPECT(ciProFlag == 0);
}

static uint32_t locked(uint32_t slotNo) {
  return slotNo + 40;
}

static void aCardWrittenInCIsCalled(void) {
  uint32_t (*const function)(uint32_t) = locked;
  DescIfItem item = {52, NULL};
  memcpy(&item.ptr, &function, sizeof item.ptr);
  descIfRegist(2, &item, 1);
  EXPECT(PllLock(2) == 42);
}

int main(void) {
  size_t i;
  for (i = 0; i < sizeof offered / sizeof offered[0]; ++i)
    expect(offered[i].function != NULL, offered[i].name);
  globalsStartAsDeclared();
  aCardWrittenInCIsCalled();
  return failures != 0;
}
