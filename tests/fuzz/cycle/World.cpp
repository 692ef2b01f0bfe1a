#include "World.h"

#include <cstdarg>
#include <cstring>

#include "Rules.h"

struct semaphore {
  uint32_t index;
};

World world;
CiDesc table;
InPortForm inPort;
uint8_t mux[sizeof mux];

namespace {

constexpr uint32_t lockIndex = 12;
constexpr int ticksPerSecond = 100;

semaphore semaphores[lockIndex + 1];
CaPmtProg records[32];
const char *lastText = "";
bool resetting;        // behind the measurements of a cycle
uint32_t readyChecks;  // since then: one for each CAM

uint32_t answer(Answer how, uint32_t good, uint32_t bad) {
  switch (how) {
    case Answer::good:
      return good;
    case Answer::bad:
      return bad;
    case Answer::either:
      return world.noise.below(2) != 0 ? good : bad;
    default:
      return world.noise.next();
  }
}

bool well(Answer how) {
  return answer(how == Answer::any ? Answer::either : how, 1, 0) != 0;
}

struct Driver {
  static uint32_t online(uint32_t) {
    readyChecks += resetting;
    return answer(world.online, 1, 0);
  }
  static uint32_t busy(uint32_t) { return answer(world.busy, 0, 1); }
  static uint32_t ready(uint32_t) { return answer(world.ready, 1, 0); }
  static CiDesc *programs(uint32_t) { return well(world.table) ? &table : nullptr; }
  static uint32_t masked(uint32_t, uint32_t camSlot) {
    return answer(world.cam[camSlot].masked, 0, 1);
  }
  static uint32_t sync(uint32_t) { return answer(world.sync, 1, 0); }
  static uint32_t rate(uint32_t) { return answer(world.rate, 801, 800); }
  static uint32_t lock(uint32_t slotNo) {
    const uint32_t value = answer(world.lock, 1, 0);
    if ((value & 0xFF) == 0) {
      rules::pllLost(slotNo, readyChecks - 1);
    }
    return value;
  }
  static uint32_t present(uint32_t, uint16_t) { return answer(world.present, 1, 0); }
  static uint16_t errors(uint32_t, uint16_t) {
    return static_cast<uint16_t>(answer(world.errors, 0, 1));
  }
  static void setErrors(uint32_t, uint16_t, uint16_t) {}
  static void clearBefore(uint8_t) {
    resetting = true;
    readyChecks = 0;
  }
  static void select(uint32_t, uint16_t) {}
  static uint32_t read(uint32_t, uint32_t) {
    return well(world.readable) ? answer(world.descrambled, 0, 5) : 0xFF;
  }
  static void pass(uint32_t, uint16_t, uint32_t) {}
};

// Reserved fields stand behind the private data: they tell when it leaves its area.
void checkRecord(const CaPmtProg &record) {
  bool sound = record.mark == 1 && record.version >= 1 && record.version <= 30 &&
               record.caNum <= 32 && record.eleNum <= 32 && record.listMgmt <= 4;
  for (const uint8_t reserved : record.reserved2) {
    sound = sound && reserved == 0;
  }
  for (const CaPmtElem &stream : record.ele) {
    sound = sound && stream.caNum <= 32 && stream.reserved == 0;
  }
  fuzz::require(sound, "record of a CA PMT out of its limits");
}

template <typename F>
void *address(F *function) {
  return reinterpret_cast<void *>(function);
}

void registerCard(uint32_t slotNo) {
  const DescIfItem items[] = {
      {11, address(Driver::online)},      {12, address(Driver::ready)},
      {13, address(Driver::programs)},    {16, address(Driver::masked)},
      {21, address(Driver::busy)},        {30, address(Driver::sync)},
      {34, address(Driver::setErrors)},   {35, address(Driver::errors)},
      {36, address(Driver::clearBefore)}, {37, address(Driver::present)},
      {42, address(Driver::rate)},        {44, address(Driver::setErrors)},
      {45, address(Driver::errors)},      {52, address(Driver::lock)},
      {53, address(Driver::pass)},        {54, address(Driver::select)},
      {55, address(Driver::read)},
  };
  descIfRegist(slotNo, items, sizeof items / sizeof items[0]);
}

}  // namespace

void startPlatform() {
  for (uint32_t i = 0; i <= lockIndex; ++i) {
    semaphores[i].index = i;
  }
  for (uint32_t i = 0; i < lockIndex; ++i) {
    CaPMTFlag[i] = &semaphores[i];
  }
  for (uint32_t k = 0; k < 32; ++k) {
    CaPmtInfo[k] = &records[k];
  }
  CaPmtSem = &semaphores[lockIndex];
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    registerCard(slotNo);
  }
  ciTskInit();
}

bool wentThrough() {
  const bool through = resetting;
  resetting = false;
  return through;
}

void randomReply(uint32_t record, fuzz::Noise &noise) {
  CaPmtReply &reply = caPmtReplyInfo[record];
  auto *bytes = reinterpret_cast<uint8_t *>(&reply);
  for (size_t i = 0; i < sizeof reply; ++i) {
    const uint32_t kind = noise.below(4);
    bytes[i] = static_cast<uint8_t>(kind == 0 ? 0x71 + 2 * noise.below(2) : noise.below(8));
  }
  const uint16_t counts[] = {0, 1, 32, 33, 255, 0xFFFF};
  reply.progNum = counts[noise.below(6)];
  for (CaPmtReplyProg &program : reply.prog) {
    program.progNum = static_cast<uint16_t>(noise.below(8));
    program.eleNum = static_cast<uint8_t>(counts[noise.below(6)]);
    for (CaPmtReplyElem &stream : program.ele) {
      stream.pid = static_cast<uint16_t>(noise.below(64));
    }
  }
}

extern "C" {

CaPmtProg *CaPmtInfo[32];
SEM_ID CaPmtSem;
SEM_ID CaPMTFlag[12];
CaPmtReply caPmtReplyInfo[MAX_BOARD_NUM * MAX_CAM_NUM];
volatile uint32_t is_all_card_loaded = 1;

int fuzzPrintf(const char *format, ...);

// The texts of the resets tell their kinds apart; some are printed through "%s".
int fuzzPrintf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  lastText = std::strcmp(format, "%s") == 0 ? va_arg(arguments, const char *) : format;
  va_end(arguments);
  return 0;
}

int bbPrintf(const char *, ...) {
  return 0;
}

int semTake(SEM_ID semId, int timeout) {
  if (semId->index == lockIndex) {
    fuzz::require(timeout == -1, "lock taken with a limit");
    rules::lockTaken();
    return 0;
  }
  fuzz::require(timeout == 0, "flag waited for");
  fuzz::require(semId->index / MAX_CAM_NUM == world.slotNo, "flag of another card taken");
  CamWorld &cam = world.cam[semId->index % MAX_CAM_NUM];
  const bool given = cam.flag;
  cam.flag = false;
  return given ? 0 : -1;
}

int semGive(SEM_ID semId) {
  fuzz::require(semId->index == lockIndex, "flag given by the module");
  rules::lockGiven();
  return 0;
}

int taskDelay(int ticks) {
  world.now += static_cast<uint32_t>(ticks) * 1000 / ticksPerSecond;
  return 0;
}

int sysClkRateGet(void) {
  return ticksPerSecond;
}

int32_t ciLibLoad(void) {
  return 0;
}

uint32_t ciLibGetCardIndex(uint32_t slotNo, uint32_t camSlot) {
  return world.cam[camSlot].noIndex ? 0xFF : slotNo * MAX_CAM_NUM + camSlot;
}

uint32_t ciLibGetInsertCard(uint32_t, uint32_t camSlot) {
  return answer(world.cam[camSlot].inserted, 1, 0);
}

uint32_t ciLibCaSysIdMatch(uint8_t index, uint16_t caSysID) {
  fuzz::require(index / MAX_CAM_NUM == world.slotNo, "CA systems of another card asked for");
  return (world.cam[index % MAX_CAM_NUM].supports >> (caSysID & 7) & 1) == 0;
}

int32_t ciLibSendCaPmt(uint32_t slotNo, uint32_t camSlot, CaPmtProg **sent, uint32_t count) {
  fuzz::require(count <= 32, "more records than there are");
  for (uint32_t k = 0; k < count; ++k) {
    checkRecord(*sent[k]);
  }
  const bool query = count == 0 || sent[0]->cmdId == 3;
  rules::caPmtSent(slotNo, camSlot, query);
  if (query && world.cam[camSlot].replies) {
    randomReply(slotNo * MAX_CAM_NUM + camSlot, world.noise);
  }
  return static_cast<int32_t>(answer(world.sent, count, 0xFFFFFFFF));
}

void qm_ci_ca_pmt_clr(uint8_t, uint16_t) {}

int32_t resetCAM(uint32_t slotNo, uint32_t camSlot) {
  rules::camReset(slotNo, camSlot, std::strncmp(lastText, "partial", 7) == 0);
  world.cam[camSlot].flag = true;
  return 0;
}

void EXT_Clear_Ca_Sys_Id(uint8_t) {}

int32_t AlarmAdd(AlarmRecord *record) {
  return rules::alarmRaised(*record, !well(world.added));
}

int32_t AlarmDel(int32_t index, int32_t) {
  const bool fails = !well(world.deleted);
  rules::alarmCleared(index, fails);
  return fails ? -1 : 0;
}

InPortForm *GetInPortFormList(uint32_t, uint32_t) {
  return well(world.form) ? &inPort : nullptr;
}

MuxCardForm *GetMuxCardFormList(uint32_t) {
  return well(world.form) ? reinterpret_cast<MuxCardForm *>(mux) : nullptr;
}

uint32_t OSTimeGet(void) {
  return world.now;
}

uint32_t get_inc_of_time(uint32_t stamp) {
  return world.now - stamp;
}

}  // extern "C"
