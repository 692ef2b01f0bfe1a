#include "CiIf_Status/Internal.h"

using namespace ciif;

namespace {

constexpr uint8_t fullCaPmt = 0;
constexpr uint8_t caPmtQueryFailing = 2;

// Not TIME_NO_RESET: that one may be changed at run time, this one may not.
constexpr uint32_t steadyMs = 5000;

uint32_t ca_pmt_send_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t ca_pmt_query_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint8_t capmt_first_send[MAX_BOARD_NUM][MAX_CAM_NUM];
uint8_t dese_ok[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t not_ok_time[MAX_BOARD_NUM][MAX_CAM_NUM];
uint32_t not_err_time[MAX_BOARD_NUM][MAX_CAM_NUM];

void sendCaPmt(uint8_t slotNo, uint8_t camSlot, uint8_t index, uint16_t caSysId) {
  qm_ci_ca_pmt_clr(index, caSysId);
  pauseMs(1000);
  capmt_first_send[slotNo][camSlot] = 1;
  const int sent = caPMTSend(slotNo, camSlot, caSysId, 0, fullCaPmt);
  ca_pmt_send_time[slotNo][camSlot] = OSTimeGet();
  printf("send %d PMT to Card %d CAM %c,time %lu\n\r ", sent, slotNo + 1, camLetter(camSlot),
         lu(ca_pmt_send_time[slotNo][camSlot]));
}

void sendQuery(uint8_t slotNo, uint8_t camSlot, uint16_t caSysId) {
  const int sent = caPMTSend(slotNo, camSlot, caSysId, 0, caPmtQueryFailing);
  ca_pmt_query_time[slotNo][camSlot] = OSTimeGet();
  capmt_first_send[slotNo][camSlot] = 0;
  dese_ok[slotNo][camSlot] = 0;
  printf("second send %d PMT query to Card %d CAM %c,time %u\n\r ", sent, slotNo + 1,
         camLetter(camSlot), static_cast<unsigned>(OSTimeGet()));
}

// A query follows a full CA PMT or a clean spell, once.
bool queryDue(uint8_t slotNo, uint8_t camSlot) {
  return longerThan(steadyMs, not_err_time[slotNo][camSlot]) &&
         (capmt_first_send[slotNo][camSlot] == 1 || dese_ok[slotNo][camSlot] == 1) &&
         caPmtQuiet(slotNo, camSlot);
}

void noteClean(uint8_t slotNo, uint8_t camSlot) {
  not_err_time[slotNo][camSlot] = OSTimeGet();
  if (longerThan(steadyMs, not_ok_time[slotNo][camSlot])) {
    dese_ok[slotNo][camSlot] = 1;
  }
}

}  // namespace

bool ciif::caPmtQuiet(uint8_t slotNo, uint8_t camSlot) {
  return longerThan(TIME_CAPMT, ca_pmt_send_time[slotNo][camSlot]) &&
         longerThan(TIME_CAPMT, ca_pmt_query_time[slotNo][camSlot]);
}

void setCAM(uint8_t slotNo, uint8_t camSlot) {
  if (!ciAssert(pCiData[slotNo] != nullptr, statusUnit, __LINE__, "pCiData[slotNo]")) {
    return;
  }
  const uint8_t index = static_cast<uint8_t>(ciLibGetCardIndex(slotNo, camSlot));
  const uint16_t caSysId = casidMatch(slotNo, camSlot);
  if (caSysId == 0) {
    return;
  }
  if (semTake(CaPMTFlag[index], 0) == 0) {
    sendCaPmt(slotNo, camSlot, index, caSysId);
    return;
  }
  const uint8_t descStat = pCiData[slotNo]->descStat[camSlot];
  if (descStat == DESC_SUM_ERROR) {
    return;
  }
  if ((descStat & DESC_SUM_SCRAMBLED) == 0) {
    noteClean(slotNo, camSlot);
    return;
  }
  not_ok_time[slotNo][camSlot] = OSTimeGet();
  if (queryDue(slotNo, camSlot)) {
    sendQuery(slotNo, camSlot, caSysId);
  }
}
