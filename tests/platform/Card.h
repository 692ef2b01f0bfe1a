// A software card: every function of a card record, recording and programmable.
#ifndef TESTS_PLATFORM_CARD_H
#define TESTS_PLATFORM_CARD_H

#include <cstdint>
#include <initializer_list>
#include <map>
#include <vector>

#include "Answer.h"
#include "CiIf.h"
#include "Program.h"

// The answers of one card. Arguments leave the slot out: every card slot has its own Card. A new
// card is online, ready, not busy, masks no alarm, has an empty table, is in sync at rate 801,
// locked, and sees every PID, descrambled, with no continuity error.
struct Card {
  const char *name = "software card";

  Answer<uint32_t()> GetCardOnline{1};
  Answer<uint32_t()> GetCardReady{1};
  Answer<uint32_t()> GetCardBusy{0};
  Answer<CiDesc *()> GetProgDesc{&desc};
  Answer<uint32_t(uint32_t camSlot)> CamAlarmMask{0};

  Answer<uint32_t()> cimax_sync_ok{1};
  Answer<uint32_t(uint16_t, uint16_t)> cimax_pid_rate_pre{0};
  Answer<uint32_t()> cimax_sys_rate_pre{801};
  Answer<uint32_t()> cimax_vld_rate_pre{801};
  Answer<uint16_t(uint16_t pid)> GetPreCAMCC{0};
  Answer<uint32_t(uint16_t pid)> GetPreCAMPidExist{1};
  Answer<uint32_t(uint16_t, uint16_t)> cimax_pid_rate{0};
  Answer<uint32_t()> cimax_sys_rate{801};
  Answer<uint32_t()> cimax_vld_rate{801};
  Answer<uint16_t(uint16_t pid)> GetCAMCC{0};
  Answer<uint32_t(uint16_t pid)> GetCAMPidExist{1};
  Answer<int32_t(uint32_t value)> PllReg{0};
  Answer<uint32_t()> PllLock{1};
  // By the PID that wrDesPid selected last, and the PID type.
  Answer<uint32_t(uint16_t pid, uint32_t pidType)> rdDescStat{0};
  uint16_t selectedPid = 0;

  // What GetProgDesc answers unless told otherwise.
  CiDesc desc{};

  void setTable(std::initializer_list<Program> programs) { fillTable(desc, programs); }
  void setTable(const std::vector<Program> &programs) { fillTable(desc, programs); }

  Card() = default;
  Card(const Card &) = delete;
  Card &operator=(const Card &) = delete;
};

// One function of a card: its registration id, its name (as in the transcript), its address. Id 1
// is the card's name, "pCardName".
struct CardFunction {
  uint32_t vid;
  const char *name;
  void *ptr;
};

// All 28, by ascending id. The functions serve every slot, by their first argument; the address of
// id 1 is the name of the card in slot 0.
const std::vector<CardFunction> &cardFunctions();

// Registration items of the card in a slot, by ascending id, some left out.
std::vector<DescIfItem> cardItems(uint32_t slotNo, std::initializer_list<uint32_t> without = {});

// Registers the card in a slot with descIfRegist and drops what that call recorded.
void registerCard(uint32_t slotNo, std::initializer_list<uint32_t> without = {});

#endif
