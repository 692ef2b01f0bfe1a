#include "CiIf_Status/Internal.h"
#include "CiIf_fpga/Checked.h"

using namespace ciif;

namespace {

constexpr uint8_t notChecked = 0xFF;
constexpr uint32_t lowSystemRate = 800;

// One call's working data.
struct Cycle {
  uint8_t slotNo;
  CiData *card;
  const CiDesc *pdesc;
  uint32_t programs[MAX_CAM_NUM];  // assigned to each CAM
  uint16_t caSysId[MAX_CAM_NUM];   // matched for each CAM
};

uint32_t countPrograms(const CiDesc *pdesc, uint8_t camSlot) {
  uint32_t count = 0;
  for (uint32_t p = 0; p < pdesc->descProgCnt; ++p) {
    count += onCam(pdesc->prog[p], camSlot);
  }
  return count;
}

void checkInsertion(Cycle &cycle, uint8_t camSlot) {
  cycle.programs[camSlot] = countPrograms(cycle.pdesc, camSlot);
  cycle.card->camInsert[camSlot] = cardReady(cycle.slotNo) && cycle.programs[camSlot] != 0
                                       ? insertStatus(cycle.slotNo, camSlot)
                                       : notChecked;
}

// A CAM counts here only with the insert status 1; later tests of a cycle take any but 0.
void checkCaSystem(Cycle &cycle, uint8_t camSlot) {
  cycle.caSysId[camSlot] = casidMatch(cycle.slotNo, camSlot);
  uint16_t status = notChecked;
  if (cardReady(cycle.slotNo) && insertStatus(cycle.slotNo, camSlot) == 1 &&
      cycle.programs[camSlot] != 0) {
    status = cycle.caSysId[camSlot] != 0;
  }
  cycle.card->casidStat[camSlot] = status;
}

void checkController(Cycle &cycle) {
  const uint8_t slotNo = cycle.slotNo;
  cycle.card->cimaxStat = notChecked;
  if (cardReady(slotNo) && cycle.pdesc->descProgCnt != 0 &&
      (insertStatus(slotNo, 0) != 0 || insertStatus(slotNo, 1) != 0)) {
    const uint32_t sync = checked::cimax_sync_ok(slotNo);
    const uint32_t rate = checked::cimax_sys_rate(slotNo);
    cycle.card->cimaxStat = sync != 0 && rate > lowSystemRate ? 0 : 1;
  }
}

bool measurable(const Cycle &cycle, uint8_t camSlot) {
  return cardReady(cycle.slotNo) && insertStatus(cycle.slotNo, camSlot) != 0 &&
         cycle.card->cimaxStat == 0 && cycle.programs[camSlot] != 0 &&
         cycle.card->casidStat[camSlot] == 1;
}

struct CaPids {
  uint16_t pid[32] = {};
  uint8_t count = 0;
};

void collectCaPids(const InPortForm &form, uint16_t caSysId, CaPids &caPids) {
  for (uint8_t i = 0; i < form.caNum && i < 32; ++i) {
    if (form.ca[i].casid == caSysId) {
      caPids.pid[caPids.count++] = form.ca[i].pid;
    }
  }
}

// Sets preCamPidStat of a measurable CAM; false when the input-port form cannot be had.
bool checkCaPids(Cycle &cycle, uint8_t camSlot) {
  CaPids caPids;
  const InPortForm *form = GetInPortFormList(cycle.slotNo, 0);
  if (form == nullptr) {
    printf("camStatusCheck GetInPortFormList error! \n");
    return false;
  }
  collectCaPids(*form, cycle.caSysId[camSlot], caPids);
  uint32_t existence = 0;
  for (uint8_t k = 0; k < caPids.count; ++k) {
    existence += checked::GetPreCAMPidExist(cycle.slotNo, caPids.pid[k]);
  }
  cycle.card->preCamPidStat[camSlot] = existence != 0 ? 0 : 1;
  return true;
}

// Without the form this step ends at once: the CAMs not yet checked keep their last status.
void checkPreCam(Cycle &cycle) {
  for (uint8_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    if (!measurable(cycle, camSlot)) {
      cycle.card->preCamPidStat[camSlot] = notChecked;
    } else if (!checkCaPids(cycle, camSlot)) {
      return;
    }
  }
}

void measure(Cycle &cycle, uint8_t camSlot) {
  if (measurable(cycle, camSlot)) {
    getFpgaDescPidSta(cycle.slotNo, camSlot);
    cycle.card->descStat[camSlot] = getDescStat(cycle.slotNo, camSlot);
  } else {
    clrDescStat(cycle.slotNo, camSlot);
    cycle.card->descStat[camSlot] = notChecked;
  }
}

}  // namespace

void camStatusCheck(uint8_t slotNo) {
  const CiDesc *pdesc = guardedDesc(statusUnit, slotNo, __LINE__, __LINE__);
  if (pdesc == nullptr) {
    return;
  }
  Cycle cycle = {slotNo, pCiData[slotNo], pdesc, {}, {}};
  for (uint8_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    checkInsertion(cycle, camSlot);
    checkCaSystem(cycle, camSlot);
    setCAM(slotNo, camSlot);
  }
  checkController(cycle);
  checkPreCam(cycle);
  for (uint8_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    measure(cycle, camSlot);
  }
  checked::ClrAllPreCAMPidExist(slotNo);
  for (uint8_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    camReset(slotNo, camSlot);
  }
}
