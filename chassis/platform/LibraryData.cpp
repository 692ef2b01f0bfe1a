#include "platform/LibraryData.h"

#include "CiPlatform.h"
#include "kernel/Semaphore.h"
#include "platform/Binding.h"

using chassis::Binding;
using chassis::CiLibrary;

namespace {

CaPmtProg records[32];
semaphore recordsLock{1};
semaphore needsCaPmt[CiLibrary::camCount];

}  // namespace

extern "C" {

CaPmtProg *CaPmtInfo[32] = {&records[0],  &records[1],  &records[2],  &records[3],  &records[4],
                            &records[5],  &records[6],  &records[7],  &records[8],  &records[9],
                            &records[10], &records[11], &records[12], &records[13], &records[14],
                            &records[15], &records[16], &records[17], &records[18], &records[19],
                            &records[20], &records[21], &records[22], &records[23], &records[24],
                            &records[25], &records[26], &records[27], &records[28], &records[29],
                            &records[30], &records[31]};
SEM_ID CaPmtSem = &recordsLock;
SEM_ID CaPMTFlag[12] = {&needsCaPmt[0], &needsCaPmt[1], &needsCaPmt[2],  &needsCaPmt[3],
                        &needsCaPmt[4], &needsCaPmt[5], &needsCaPmt[6],  &needsCaPmt[7],
                        &needsCaPmt[8], &needsCaPmt[9], &needsCaPmt[10], &needsCaPmt[11]};
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];

int32_t ciLibLoad(void) {
  auto *library = Binding::parts().library;
  if (library == nullptr) {
    return -1;
  }
  library->load();
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  return CiLibrary::indexOf(slotNo, camSlot);
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  const auto *library = Binding::parts().library;
  return library != nullptr ? library->insertStatus(slotNo, camSlot) : 0;
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  const auto *library = Binding::parts().library;
  return library != nullptr && library->supports(index, caSysID) ? 0 : 1;
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **programs, uint32_t count) {
  auto *library = Binding::parts().library;
  return library != nullptr ? library->send(slotNo, camSlot, programs, count) : 0;
}

void qm_ci_ca_pmt_clr(uint8_t index, uint16_t caSysID) {
  if (auto *library = Binding::parts().library) {
    library->forgetCaPmt(index, caSysID);
  }
}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  auto *library = Binding::parts().library;
  return library != nullptr && library->reset(slotNo, camSlot) ? 0 : -1;
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  if (auto *library = Binding::parts().library) {
    library->forgetCaSystems(index);
  }
}

}  // extern "C"

namespace chassis {

CiLibrary::SharedData libraryData() {
  return {needsCaPmt, caPmtReplyInfo};
}

}  // namespace chassis
