// A programmable platform for unit tests of the module: it records every call, answers as told and
// keeps a time of its own. Each test case runs in a process of its own, so there is one platform,
// as new in every case.
//
//   registerCard(2);                                       all 28 functions, see Card.h
//   platform.card[2].setTable({Program(1).stream(0x1B, 0x100)});
//   platform.ciLibGetInsertCard.when(2, 1) = 0;            no CAM B
//   platform.card[2].GetCardReady.then(1).then(0);         ready once only
//   camStatusCheck(2);
//   EXPECT_EQ(platform.take({"printf"}), (Calls{printed("...\n")}));
#ifndef TESTS_PLATFORM_PLATFORM_H
#define TESTS_PLATFORM_PLATFORM_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "Answer.h"
#include "Card.h"
#include "CiIf.h"
#include "CiPlatform.h"
#include "Program.h"
#include "Transcript.h"

// A multiplexer form as the chassis keeps it: only what the module reads is set, all other bytes
// are garbage.
class MuxForm {
 public:
  MuxForm();
  MuxForm &program(const std::vector<uint16_t> &pids);
  MuxCardForm *get() { return reinterpret_cast<MuxCardForm *>(bytes_.data()); }

 private:
  void put16(size_t offset, uint16_t value);
  std::vector<uint8_t> bytes_;
  uint16_t programs_ = 0;
};

// The records of one ciLibSendCaPmt call, copied.
struct SentCaPmt {
  uint32_t slotNo;
  uint32_t camSlot;
  CaPmtProg **table;  // as handed over
  std::vector<CaPmtProg> records;
};

struct Platform {
  Platform();
  Platform(const Platform &) = delete;
  Platform &operator=(const Platform &) = delete;

  // --- what was called ---------------------------------------------------------------------------

  Transcript transcript;
  Calls take() { return transcript.take(); }
  Calls take(std::initializer_list<const char *> names) { return transcript.take(names); }
  size_t count(const char *name) const { return transcript.count(name); }

  std::vector<SentCaPmt> sent;         // ciLibSendCaPmt
  std::vector<AlarmRecord> alarms;     // AlarmAdd: copies of the records
  std::vector<void *> allocated;       // malloc: the results
  std::vector<std::string> printText;  // printf: the formatted texts

  // --- cards -------------------------------------------------------------------------------------

  Card card[MAX_BOARD_NUM];

  // --- kernel ------------------------------------------------------------------------------------

  Answer<int()> sysClkRateGet{60};
  // The time of the chassis, in milliseconds modulo 2^32. taskDelay moves it by its ticks.
  uint32_t now = 1000000;
  void advance(uint32_t milliseconds) { now += milliseconds; }
  // OSTimeGet moves the time by this, behind its answer.
  uint32_t clockStep = 0;
  // Runs in each taskDelay, after the time has moved.
  std::function<void(int ticks)> onTaskDelay;
  // The case fails at this many delays: the module waits for something that never comes.
  size_t delayLimit = 10000;

  // Semaphores have the names "CaPmtSem" and "CaPMTFlag[0]" to "CaPMTFlag[11]". CaPmtSem is free at
  // first, the flags are not given. An endless wait for a taken semaphore fails the case.
  void giveFlag(uint32_t index);
  bool isFree(SEM_ID semId) const;
  // When set, it alone says what semTake returns.
  std::function<int(const std::string &name, int timeout)> onSemTake;

  // False: malloc returns null. The memory is full of garbage.
  Answer<bool(size_t)> mallocWorks{true};
  // What printf returns; the number of bytes when not set.
  std::optional<int> printfResult;

  // --- CI library --------------------------------------------------------------------------------

  Answer<int32_t()> ciLibLoad{0};
  Answer<uint32_t(uint32_t slotNo, uint32_t camSlot)> ciLibGetCardIndex;  // slotNo * 2 + camSlot
  Answer<uint32_t(uint32_t slotNo, uint32_t camSlot)> ciLibGetInsertCard{1};
  Answer<uint32_t(uint8_t index, uint16_t caSysID)> ciLibCaSysIdMatch{1};  // supports nothing
  // Declares CA systems of the CAM in a slot.
  void supports(uint32_t slotNo, uint32_t camSlot, std::initializer_list<uint16_t> caSysIDs);
  Answer<int32_t(uint32_t slotNo, uint32_t camSlot, uint32_t count)> ciLibSendCaPmt;  // the count
  // Runs in each ciLibSendCaPmt, while the records are still the library's.
  std::function<void()> onSendCaPmt;
  Answer<int32_t(uint32_t slotNo, uint32_t camSlot)> resetCAM{0};

  // --- chassis firmware --------------------------------------------------------------------------

  Answer<int32_t()> AlarmAdd{1};  // the index
  Answer<int32_t(int32_t index)> AlarmDel{0};
  Answer<InPortForm *(uint32_t slotNo, uint32_t port)> GetInPortFormList{nullptr};
  // Makes the form of port 0 of a slot.
  InPortForm &setInPort(uint32_t slotNo, std::initializer_list<InPortFormCa> entries);
  Answer<MuxCardForm *(uint32_t slotNo)> GetMuxCardFormList{nullptr};
  // is_all_card_loaded is the variable itself, 0 at first.

 private:
  InPortForm inPort_[MAX_BOARD_NUM]{};
};

extern Platform platform;

#endif
