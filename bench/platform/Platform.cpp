#include "Platform.h"

#include <cstring>

#include "Told.h"

namespace {

struct Answers {
  std::uint32_t descState = 0;
  std::uint32_t mismatch = 0;
} answers;

CiDesc tables[MAX_BOARD_NUM];
InPortForm inPort;
std::uint8_t muxForm[110 + 18 + 236 * listMax];
CaPmtProg records[listMax];

template <typename Value>
void put(std::uint32_t offset, Value value) {
  std::memcpy(muxForm + offset, &value, sizeof value);
}

std::uint16_t pidOf(std::uint32_t program, std::uint32_t stream) {
  return static_cast<std::uint16_t>(0x400 + program * listMax + stream);
}

void fillList(CiDescCaList &list, std::uint32_t count) {
  list.caNum = static_cast<std::uint16_t>(count);
  for (std::uint32_t k = 0; k < count; ++k) {
    list.ca[k] = {caSystem, static_cast<std::uint16_t>(0x1800 + k)};
    list.privLen[k] = 8;
    list.privOff[k] = static_cast<std::uint8_t>(8 * k);
  }
}

void fillProgram(CiDescProg &program, std::uint32_t p, const Load &load) {
  program.prog_num = static_cast<std::uint16_t>(p + 1);
  program.caLevel = 3;
  program.camMask = 3;
  program.eleNum = static_cast<std::uint16_t>(load.streams);
  fillList(program.caList, load.caEntries);
  for (std::uint32_t e = 0; e < load.streams; ++e) {
    program.ele[e].streamType = 0x1B;
    program.ele[e].pid = pidOf(p, e);
    fillList(program.ele[e].caList, load.caEntries);
  }
}

// Every second program of the form is one of the card's table.
void fillMuxForm() {
  put(110, static_cast<std::uint16_t>(listMax));
  for (std::uint32_t i = 0; i < listMax; ++i) {
    put(128 + 236 * i, static_cast<std::uint8_t>(listMax));
    for (std::uint32_t j = 0; j < listMax; ++j) {
      const std::uint32_t clear = i % 2 == 0 ? 0 : 0x800;
      put(206 + 236 * i + 4 * j, static_cast<std::uint16_t>(pidOf(i, j) + clear));
    }
  }
}

void fillReply(CaPmtReply &reply, const CiDesc &table) {
  reply.progNum = static_cast<std::uint16_t>(table.descProgCnt);
  for (std::uint32_t p = 0; p < table.descProgCnt; ++p) {
    reply.prog[p].progNum = table.prog[p].prog_num;
    reply.prog[p].caEnable = 1;
    reply.prog[p].eleNum = static_cast<std::uint8_t>(table.prog[p].eleNum);
    for (std::uint32_t e = 0; e < table.prog[p].eleNum; ++e) {
      reply.prog[p].ele[e] = {table.prog[p].ele[e].pid, 0, 1};
    }
  }
}

std::uint32_t one(std::uint32_t) {
  told("online or ready");
  return 1;
}
std::uint32_t busy(std::uint32_t) {
  told("busy");
  return 0;
}
CiDesc *progDesc(std::uint32_t slotNo) {
  told("GetProgDesc", slotNo);
  return &tables[slotNo];
}
std::uint32_t alarmMask(std::uint32_t slotNo, std::uint32_t camSlot) {
  told("CamAlarmMask", slotNo, camSlot);
  return 0;
}
std::uint32_t rate(std::uint32_t slotNo) {
  told("cimax", slotNo);
  return 40000;
}
void setCounter(std::uint32_t slotNo, std::uint16_t pid, std::uint16_t value) {
  told("SetPreCAMCC", slotNo, pid, value);
}
std::uint16_t counter(std::uint32_t slotNo, std::uint16_t pid) {
  told("GetPreCAMCC", slotNo, pid);
  return 0;
}
void clearExist(std::uint8_t slotNo) {
  told("ClrAllPreCAMPidExist", slotNo);
}
std::uint32_t exists(std::uint32_t slotNo, std::uint16_t pid) {
  told("GetPreCAMPidExist", slotNo, pid);
  return 1;
}
std::uint32_t locked(std::uint32_t slotNo) {
  told("PllLock", slotNo);
  return 1;
}
void flit(std::uint32_t slotNo, std::uint16_t pid, std::uint32_t pass) {
  told("SetCamFlit", slotNo, pid, pass);
}
void selectPid(std::uint32_t slotNo, std::uint16_t pid) {
  told("wrDesPid", slotNo, pid);
}
std::uint32_t descState(std::uint32_t slotNo, std::uint32_t type) {
  told("rdDescStat", slotNo, type);
  return answers.descState;
}

template <typename Function>
DescIfItem item(std::uint32_t vid, Function function) {
  return {vid, reinterpret_cast<void *>(function)};
}

void registerCard(std::uint32_t slotNo) {
  const DescIfItem items[] = {item(11, one),        item(12, one),        item(13, progDesc),
                              item(16, alarmMask),  item(21, busy),       item(30, rate),
                              item(42, rate),       item(34, setCounter), item(35, counter),
                              item(36, clearExist), item(37, exists),     item(52, locked),
                              item(53, flit),       item(54, selectPid),  item(55, descState)};
  descIfRegist(slotNo, items, sizeof items / sizeof items[0]);
}

void fillShared() {
  inPort.caNum = listMax;
  for (std::uint32_t k = 0; k < listMax; ++k) {
    inPort.ca[k] = {caSystem, static_cast<std::uint16_t>(0x1900 + k)};
    CaPmtInfo[k] = &records[k];
  }
  fillMuxForm();
}

}  // namespace

void loadCard(std::uint32_t slotNo, const Load &load) {
  if (pCiData[slotNo] == nullptr) {
    registerCard(slotNo);
  }
  CiDesc &table = tables[slotNo];
  std::memset(&table, 0, sizeof table);
  table.descProgCnt = load.programs;
  for (std::uint32_t p = 0; p < load.programs; ++p) {
    fillProgram(table.prog[p], p, load);
  }
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    fillReply(caPmtReplyInfo[slotNo * MAX_CAM_NUM + camSlot], table);
  }
  fillShared();
  answers = {load.scrambled, !load.supported};
  getSlotDescPidInfo(slotNo);
}

extern "C" {

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem;
SEM_ID CaPMTFlag[12];
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];
volatile std::uint32_t is_all_card_loaded = 1;

int semTake(SEM_ID, int timeout) {
  told("semTake");
  return timeout == 0 ? -1 : 0;
}
int semGive(SEM_ID) {
  told("semGive");
  return 0;
}
int taskDelay(int) {
  told("taskDelay");
  return 0;
}
int sysClkRateGet(void) {
  told("sysClkRateGet");
  return 100;
}
std::int32_t ciLibLoad(void) {
  told("ciLibLoad");
  return 0;
}
std::uint32_t ciLibGetCardIndex(std::uint32_t slotNo, std::uint32_t camSlot) {
  told("ciLibGetCardIndex", slotNo, camSlot);
  return slotNo * MAX_CAM_NUM + camSlot;
}
std::uint32_t ciLibGetInsertCard(std::uint32_t slotNo, std::uint32_t camSlot) {
  told("ciLibGetInsertCard", slotNo, camSlot);
  return 1;
}
std::uint32_t ciLibCaSysIdMatch(std::uint8_t index, std::uint16_t caSysID) {
  told("ciLibCaSysIdMatch", index, caSysID);
  return answers.mismatch;
}
std::int32_t ciLibSendCaPmt(std::uint32_t slotNo, std::uint32_t camSlot, CaPmtProg **,
                            std::uint32_t count) {
  told("ciLibSendCaPmt", slotNo, camSlot, count);
  return static_cast<std::int32_t>(count);
}
void qm_ci_ca_pmt_clr(std::uint8_t index, std::uint16_t caSysID) {
  told("qm_ci_ca_pmt_clr", index, caSysID);
}
std::int32_t resetCAM(std::uint32_t slotNo, std::uint32_t camSlot) {
  told("resetCAM", slotNo, camSlot);
  return 0;
}
void EXT_Clear_Ca_Sys_Id(std::uint8_t index) {
  told("EXT_Clear_Ca_Sys_Id", index);
}
std::int32_t AlarmAdd(AlarmRecord *) {
  told("AlarmAdd");
  return 0;
}
std::int32_t AlarmDel(std::int32_t, std::int32_t) {
  told("AlarmDel");
  return 0;
}
InPortForm *GetInPortFormList(std::uint32_t slotNo, std::uint32_t port) {
  told("GetInPortFormList", slotNo, port);
  return &inPort;
}
MuxCardForm *GetMuxCardFormList(std::uint32_t slotNo) {
  told("GetMuxCardFormList", slotNo);
  return reinterpret_cast<MuxCardForm *>(muxForm);
}
std::uint32_t OSTimeGet(void) {
  told("OSTimeGet");
  return 0;
}
std::uint32_t get_inc_of_time(std::uint32_t) {
  told("get_inc_of_time");
  return 0;
}
int bbPrintf(const char *, ...) {
  told("bbPrintf");
  return 0;
}
int benchPrintf(const char *, ...) {
  told("printf");
  return 0;
}
}
