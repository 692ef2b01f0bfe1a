#include "Cases.h"

#include <cstring>

#include "CiIf_Status/CiIf_Status.h"

namespace {

constexpr std::uint32_t listBytes = 64 + 64 + 64 + 32 + 256;
std::uint8_t listImage[listBytes];
volatile std::uint32_t sink;

void ready() {
  const CiData *card = pCiData[0];
  sink = card->GetCardOnline(0) + card->GetCardBusy(0) + card->GetCardReady(0);
}

void readyAndIn(std::uint32_t camSlot) {
  ready();
  ciLibGetInsertCard(0, camSlot);
}

// The first entry of the table answers.
void match(std::uint32_t camSlot) {
  pCiData[0]->GetProgDesc(0);
  const std::uint32_t index = ciLibGetCardIndex(0, camSlot);
  ciLibGetInsertCard(0, camSlot);
  ciLibCaSysIdMatch(static_cast<std::uint8_t>(index), caSystem);
}

void scheduleFloor(std::uint32_t camSlot) {
  readyAndIn(camSlot);
  match(camSlot);
  readyAndIn(camSlot);
  ciLibGetCardIndex(0, camSlot);
  match(camSlot);
  semTake(nullptr, 0);
  OSTimeGet();
  get_inc_of_time(0);
}

void caPidFloor(std::uint32_t camSlot) {
  readyAndIn(camSlot);
  const InPortForm *form = GetInPortFormList(0, 0);
  for (std::uint32_t k = 0; k < listMax; ++k) {
    pCiData[0]->GetPreCAMPidExist(0, form->ca[k].pid);
  }
}

void ecmFloor(const CiDescCaList &list) {
  const CiData *card = pCiData[0];
  for (std::uint32_t k = 0; k < listMax; ++k) {
    card->GetPreCAMPidExist(0, list.ca[k].ecmPid);
    card->GetPreCAMCC(0, list.ca[k].ecmPid);
    card->SetPreCAMCC(0, list.ca[k].ecmPid, 0);
  }
}

void programFloor(const CiDescProg &program, DescProgStat &result) {
  for (std::uint32_t e = 0; e < listMax; ++e) {
    pCiData[0]->wrDesPid(0, result.pid[e].pid);
    const bool bad = pCiData[0]->rdDescStat(0, result.pid[e].type) != 0;
    if (bad) {
      ecmFloor(program.ele[e].caList);
    }
    result.pid[e].status = bad ? DESC_STAT_SCRAMBLED : DESC_STAT_OK;
  }
  result.progStatus = DESC_STAT_OK;
}

void measureFloor(std::uint32_t camSlot) {
  readyAndIn(camSlot);
  const CiDesc *table = pCiData[0]->GetProgDesc(0);
  match(camSlot);
  for (std::uint32_t p = 0; p < listMax; ++p) {
    programFloor(table->prog[p], DescStatus[0][p]);
  }
  pCiData[0]->GetProgDesc(0);
}

void resetFloor() {
  ready();
  pCiData[0]->PllLock(0);
  OSTimeGet();
  OSTimeGet();
  get_inc_of_time(0);
}

void cycleFloor() {
  pCiData[0]->GetProgDesc(0);
  scheduleFloor(0);
  scheduleFloor(1);
  readyAndIn(0);
  pCiData[0]->cimax_sync_ok(0);
  pCiData[0]->cimax_sys_rate(0);
  caPidFloor(0);
  caPidFloor(1);
  measureFloor(0);
  measureFloor(1);
  pCiData[0]->ClrAllPreCAMPidExist(0);
  resetFloor();
  resetFloor();
}

void matchAll(const CiDescCaList &list) {
  for (std::uint32_t k = 0; k < listMax; ++k) {
    ciLibCaSysIdMatch(0, list.ca[k].casid);
  }
}

void recordFloor(CaPmtProg &record, const CiDescProg &program) {
  std::memset(&record, 0, sizeof record);
  matchAll(program.caList);
  std::memcpy(record.casid, listImage, listBytes);
  for (std::uint32_t e = 0; e < listMax; ++e) {
    matchAll(program.ele[e].caList);
    std::memcpy(record.ele[e].casid, listImage, listBytes);
  }
}

void caPmtFloor() {
  const CiDesc *table = pCiData[0]->GetProgDesc(0);
  ciLibGetCardIndex(0, 0);
  benchPrintf("card %lu cam %lu capmtVerNum=%d\n", 1UL, 0UL, 1);
  semTake(CaPmtSem, -1);
  for (std::uint32_t p = 0; p < listMax; ++p) {
    recordFloor(*CaPmtInfo[p], table->prog[p]);
  }
  ciLibSendCaPmt(0, 0, CaPmtInfo, listMax);
  semGive(CaPmtSem);
}

void filterFloor() {
  const CiDesc *table = pCiData[0]->GetProgDesc(0);
  pCiData[0]->GetCardReady(0);
  for (std::uint32_t n = 0; n < listMax * listMax; ++n) {
    bbPrintf("card %lu port %lu  pid 0x%x scrFlag\n", 1UL, 1UL,
             table->prog[n / listMax].ele[n % listMax].pid);
  }
  GetMuxCardFormList(0);
  for (std::uint32_t pid = 0; pid < 0x1FFF; ++pid) {
    pCiData[0]->SetCamFlit(0, static_cast<std::uint16_t>(pid), 1);
  }
  pCiData[0]->SetCamFlit(0, 0x1FFF, 0);
  bbPrintf("pMuxCardProgCnt = %d\n", 32);
  bbPrintf("descProgCnt = %d\n", 32);
  for (std::uint32_t n = 0; n < listMax * listMax; ++n) {
    if (n / listMax % 2 != 0) {
      const std::uint16_t pid = static_cast<std::uint16_t>(0xC00 + n);
      pCiData[0]->SetCamFlit(0, pid, 0);
      bbPrintf("card %lu port %lu pre-filt pid 0x%x \n", 1UL, 1UL, pid);
    }
  }
}

void summaryFloor() {
  const CiDesc *table = pCiData[0]->GetProgDesc(0);
  std::uint32_t bad = 0;
  for (std::uint32_t p = 0; p < table->descProgCnt; ++p) {
    for (std::uint32_t e = 0; e < listMax; ++e) {
      bad += DescStatus[0][p].pid[e].status != DESC_STAT_OK;
    }
  }
  sink = bad;
}

void matchFloor() {
  const CiDesc *table = pCiData[0]->GetProgDesc(0);
  ciLibGetCardIndex(0, 0);
  ciLibGetInsertCard(0, 0);
  for (const CiDescProg &program : table->prog) {
    matchAll(program.caList);
    for (const CiDescElem &stream : program.ele) {
      matchAll(stream.caList);
    }
  }
}

void alarmFloor() {
  static volatile std::uint32_t okTime[9];
  for (volatile std::uint32_t &time : okTime) {
    pCiData[0]->CamAlarmMask(0, 0);
    pCiData[0]->CamAlarmMask(0, 1);
    time = OSTimeGet();
  }
}

constexpr Load descrambled = {};
constexpr Load scrambled = {32, 32, 32, true, true};
constexpr Load foreign = {32, 32, 32, false, false};

}  // namespace

const Case cases[caseCount] = {
    {"camStatusCheck, descrambled", descrambled, [] { camStatusCheck(0); }, cycleFloor},
    {"camStatusCheck, scrambled", scrambled, [] { camStatusCheck(0); }, cycleFloor},
    {"caPMTSend", descrambled, [] { caPMTSend(0, 0, 0, 0, 0); }, caPmtFloor},
    {"PreCAMFilte", descrambled, [] { PreCAMFilte(0, 0); }, filterFloor},
    {"getDescStat", descrambled, [] { sink = getDescStat(0, 0); }, summaryFloor},
    {"casidMatch, no match", foreign, [] { sink = casidMatch(0, 0); }, matchFloor},
    {"camAlarm", descrambled, [] { camAlarm(0); }, alarmFloor},
};
