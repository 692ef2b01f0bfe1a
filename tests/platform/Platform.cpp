#include "Platform.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "Record.h"

struct semaphore {
  std::string name;
  bool free;
};

namespace {

constexpr uint8_t GARBAGE = 0xA5;
constexpr int FOREVER = -1;
constexpr int NOT_TAKEN = -1;
constexpr size_t MUX_PROGRAM_COUNT = 110;
constexpr size_t MUX_PID_COUNT = 128;
constexpr size_t MUX_FIRST_PID = 206;
constexpr size_t MUX_PROGRAM_SIZE = 236;
constexpr size_t MUX_PID_SIZE = 4;

semaphore caPmtSemaphore{"CaPmtSem", true};
semaphore flags[12];
CaPmtProg caPmtRecords[32];

std::string formatted(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

std::string pairsOf(const AlarmRecord &alarm) {
  std::ostringstream text;
  for (int i = 0; i < alarm.pairCount && i < 5; ++i) {
    text << (i == 0 ? "(" : ", (") << Hex{alarm.pairs[i].id} << ", " << alarm.pairs[i].instance
         << ")";
  }
  return text.str();
}

}  // namespace

Platform platform;

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem = &caPmtSemaphore;
SEM_ID CaPMTFlag[12];

// The replies, with refusals behind them that a walk past their end would take for the CAM's. The
// address sanitizer finds such a walk itself, and would take the alias's end for that of the area.
#ifdef __SANITIZE_ADDRESS__
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];
#else
struct ReplyArea {
  CaPmtReply replies[MAX_BOARD_NUM * MAX_CAM_NUM];
  uint8_t behind[0x1000];
};
extern "C" {
extern ReplyArea replyArea;
ReplyArea replyArea = [] {
  ReplyArea area{};
  std::memset(area.behind, 0x73, sizeof area.behind);
  return area;
}();
extern CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM] __attribute__((alias("replyArea")));
}
#endif
volatile uint32_t is_all_card_loaded;

void recordLine(std::string line) {
  platform.transcript.add(std::move(line));
}

MuxForm::MuxForm() : bytes_(0x10000, GARBAGE) {
  put16(MUX_PROGRAM_COUNT, 0);
}

MuxForm &MuxForm::program(const std::vector<uint16_t> &pids) {
  const size_t offset = MUX_PROGRAM_SIZE * programs_;
  bytes_[MUX_PID_COUNT + offset] = static_cast<uint8_t>(pids.size());
  for (size_t j = 0; j < pids.size(); ++j) {
    put16(MUX_FIRST_PID + offset + MUX_PID_SIZE * j, pids[j]);
  }
  put16(MUX_PROGRAM_COUNT, ++programs_);
  return *this;
}

void MuxForm::put16(size_t offset, uint16_t value) {
  std::memcpy(bytes_.data() + offset, &value, sizeof value);
}

Platform::Platform() {
  for (uint32_t i = 0; i < 12; ++i) {
    flags[i] = {"CaPMTFlag[" + std::to_string(i) + "]", false};
    CaPMTFlag[i] = &flags[i];
  }
  std::memset(caPmtRecords, GARBAGE, sizeof caPmtRecords);
  for (size_t k = 0; k < 32; ++k) {
    CaPmtInfo[k] = &caPmtRecords[k];
  }
  for (Card &each : card) {
    each.setTable({});
  }
  ciLibGetCardIndex.does([](uint32_t slotNo, uint32_t camSlot) { return slotNo * 2 + camSlot; });
  ciLibSendCaPmt.does(
      [](uint32_t, uint32_t, uint32_t count) { return static_cast<int32_t>(count); });
}

void Platform::giveFlag(uint32_t index) {
  CaPMTFlag[index]->free = true;
}

bool Platform::isFree(SEM_ID semId) const {
  return semId->free;
}

void Platform::supports(uint32_t slotNo, uint32_t camSlot,
                        std::initializer_list<uint16_t> caSysIDs) {
  for (uint16_t caSysID : caSysIDs) {
    ciLibCaSysIdMatch.when(static_cast<uint8_t>(slotNo * 2 + camSlot), caSysID) = 0;
  }
}

InPortForm &Platform::setInPort(uint32_t slotNo, std::initializer_list<InPortFormCa> entries) {
  InPortForm &form = inPort_[slotNo];
  std::memset(&form, GARBAGE, sizeof form);
  form.caNum = 0;
  for (const InPortFormCa &entry : entries) {
    form.ca[form.caNum++] = entry;
  }
  GetInPortFormList.when(slotNo, 0) = &form;
  return form;
}

extern "C" {

int platformPrintf(const char *format, ...);
void *platformMalloc(size_t size);

int platformPrintf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  platform.printText.push_back(text);
  recordLine(printed(text));
  return platform.printfResult.value_or(static_cast<int>(text.size()));
}

int bbPrintf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  recordLine(bbPrinted(text));
  return static_cast<int>(text.size());
}

void *platformMalloc(size_t size) {
  record("malloc", size);
  void *memory = platform.mallocWorks(size) ? std::malloc(size) : nullptr;
  if (memory != nullptr) {
    std::memset(memory, GARBAGE, size);
  }
  platform.allocated.push_back(memory);
  return memory;
}

int semTake(SEM_ID semId, int timeout) {
  record("semTake", semId->name, timeout);
  if (platform.onSemTake) {
    return platform.onSemTake(semId->name, timeout);
  }
  if (!semId->free && timeout == FOREVER) {
    ADD_FAILURE() << "waits forever for " << semId->name;
  }
  return std::exchange(semId->free, false) ? 0 : NOT_TAKEN;
}

int semGive(SEM_ID semId) {
  record("semGive", semId->name);
  semId->free = true;
  return 0;
}

int taskDelay(int ticks) {
  static size_t delays = 0;
  record("taskDelay", ticks);
  const int rate = platform.sysClkRateGet();
  platform.advance(static_cast<uint32_t>(static_cast<int64_t>(ticks) * 1000 / rate));
  if (platform.onTaskDelay) {
    platform.onTaskDelay(ticks);
  }
  if (++delays >= platform.delayLimit) {
    std::fprintf(stderr, "the module delays for ever\n");
    std::abort();
  }
  return 0;
}

int sysClkRateGet(void) {
  record("sysClkRateGet");
  return platform.sysClkRateGet();
}

int32_t ciLibLoad(void) {
  record("ciLibLoad");
  return platform.ciLibLoad();
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  record("ciLibGetCardIndex", slotNo, camSlot);
  return platform.ciLibGetCardIndex(slotNo, camSlot);
}

uint32_t ciLibGetInsertCard(uint32_t slotNo, uint32_t camSlot) {
  record("ciLibGetInsertCard", slotNo, camSlot);
  return platform.ciLibGetInsertCard(slotNo, camSlot);
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  record("ciLibCaSysIdMatch", static_cast<uint32_t>(index), Hex{caSysID});
  return platform.ciLibCaSysIdMatch(index, caSysID);
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **records, uint32_t count) {
  record("ciLibSendCaPmt", slotNo, camSlot, count);
  SentCaPmt sent{slotNo, camSlot, records, {}};
  for (uint32_t k = 0; k < count && k < 32; ++k) {
    sent.records.push_back(*records[k]);
  }
  platform.sent.push_back(std::move(sent));
  if (platform.onSendCaPmt) {
    platform.onSendCaPmt();
  }
  return platform.ciLibSendCaPmt(slotNo, camSlot, count);
}

void qm_ci_ca_pmt_clr(uint8_t index, uint16_t caSysID) {
  record("qm_ci_ca_pmt_clr", static_cast<uint32_t>(index), Hex{caSysID});
}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  record("resetCAM", slotNo, camSlot);
  return platform.resetCAM(slotNo, camSlot);
}

void EXT_Clear_Ca_Sys_Id(uint8_t index) {
  record("EXT_Clear_Ca_Sys_Id", static_cast<uint32_t>(index));
}

int32_t AlarmAdd(AlarmRecord *alarm) {
  record("AlarmAdd", pairsOf(*alarm));
  platform.alarms.push_back(*alarm);
  return platform.AlarmAdd();
}

int32_t AlarmDel(int32_t index, int32_t reserved) {
  record("AlarmDel", index, reserved);
  return platform.AlarmDel(index);
}

InPortForm *GetInPortFormList(uint32_t slotNo, uint32_t port) {
  record("GetInPortFormList", slotNo, port);
  return platform.GetInPortFormList(slotNo, port);
}

MuxCardForm *GetMuxCardFormList(uint32_t slotNo) {
  record("GetMuxCardFormList", slotNo);
  return platform.GetMuxCardFormList(slotNo);
}

uint32_t OSTimeGet(void) {
  record("OSTimeGet");
  const uint32_t now = platform.now;
  platform.advance(platform.clockStep);
  return now;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  record("get_inc_of_time", stamp);
  return platform.now - stamp;
}

}  // extern "C"
