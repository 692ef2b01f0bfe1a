#include "Card.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Platform.h"
#include "Record.h"

namespace {

Card &cardIn(uint32_t slotNo) {
  static Card nowhere;
  if (slotNo < MAX_BOARD_NUM) {
    return platform.card[slotNo];
  }
  ADD_FAILURE() << "a card function was called for slot " << slotNo;
  return nowhere;
}

struct Driver {
  static uint32_t GetCardOnline(uint32_t slotNo) {
    record("GetCardOnline", slotNo);
    return cardIn(slotNo).GetCardOnline();
  }

  static uint32_t GetCardReady(uint32_t slotNo) {
    record("GetCardReady", slotNo);
    return cardIn(slotNo).GetCardReady();
  }

  static CiDesc *GetProgDesc(uint32_t slotNo) {
    record("GetProgDesc", slotNo);
    return cardIn(slotNo).GetProgDesc();
  }

  static void CardFn14() { record("CardFn14"); }

  static void CardFn15() { record("CardFn15"); }

  static uint32_t CamAlarmMask(uint32_t slotNo, uint32_t camSlot) {
    record("CamAlarmMask", slotNo, camSlot);
    return cardIn(slotNo).CamAlarmMask(camSlot);
  }

  static uint32_t GetCardBusy(uint32_t slotNo) {
    record("GetCardBusy", slotNo);
    return cardIn(slotNo).GetCardBusy();
  }

  static uint32_t cimax_sync_ok(uint32_t slotNo) {
    record("cimax_sync_ok", slotNo);
    return cardIn(slotNo).cimax_sync_ok();
  }

  static uint32_t cimax_pid_rate_pre(uint32_t slotNo, uint16_t pid_l, uint16_t pid_h) {
    record("cimax_pid_rate_pre", slotNo, Hex{pid_l}, Hex{pid_h});
    return cardIn(slotNo).cimax_pid_rate_pre(pid_l, pid_h);
  }

  static uint32_t cimax_sys_rate_pre(uint32_t slotNo) {
    record("cimax_sys_rate_pre", slotNo);
    return cardIn(slotNo).cimax_sys_rate_pre();
  }

  static uint32_t cimax_vld_rate_pre(uint32_t slotNo) {
    record("cimax_vld_rate_pre", slotNo);
    return cardIn(slotNo).cimax_vld_rate_pre();
  }

  static void SetPreCAMCC(uint32_t slotNo, uint16_t pid, uint16_t value) {
    record("SetPreCAMCC", slotNo, Hex{pid}, value);
  }

  static uint16_t GetPreCAMCC(uint32_t slotNo, uint16_t pid) {
    record("GetPreCAMCC", slotNo, Hex{pid});
    return cardIn(slotNo).GetPreCAMCC(pid);
  }

  static void ClrAllPreCAMPidExist(uint8_t slotNo) {
    record("ClrAllPreCAMPidExist", static_cast<uint32_t>(slotNo));
  }

  static uint32_t GetPreCAMPidExist(uint32_t slotNo, uint16_t pid) {
    record("GetPreCAMPidExist", slotNo, Hex{pid});
    return cardIn(slotNo).GetPreCAMPidExist(pid);
  }

  static uint32_t cimax_pid_rate(uint32_t slotNo, uint16_t pid_l, uint16_t pid_h) {
    record("cimax_pid_rate", slotNo, Hex{pid_l}, Hex{pid_h});
    return cardIn(slotNo).cimax_pid_rate(pid_l, pid_h);
  }

  static uint32_t cimax_sys_rate(uint32_t slotNo) {
    record("cimax_sys_rate", slotNo);
    return cardIn(slotNo).cimax_sys_rate();
  }

  static uint32_t cimax_vld_rate(uint32_t slotNo) {
    record("cimax_vld_rate", slotNo);
    return cardIn(slotNo).cimax_vld_rate();
  }

  static void SetCAMCC(uint32_t slotNo, uint16_t pid, uint16_t value) {
    record("SetCAMCC", slotNo, Hex{pid}, value);
  }

  static uint16_t GetCAMCC(uint32_t slotNo, uint16_t pid) {
    record("GetCAMCC", slotNo, Hex{pid});
    return cardIn(slotNo).GetCAMCC(pid);
  }

  static void ClrAllCAMPidExist(uint32_t slotNo) { record("ClrAllCAMPidExist", slotNo); }

  static uint32_t GetCAMPidExist(uint32_t slotNo, uint16_t pid) {
    record("GetCAMPidExist", slotNo, Hex{pid});
    return cardIn(slotNo).GetCAMPidExist(pid);
  }

  static int32_t PllReg(uint32_t slotNo, uint32_t value) {
    record("PllReg", slotNo, Hex{value});
    return cardIn(slotNo).PllReg(value);
  }

  static uint32_t PllLock(uint32_t slotNo) {
    record("PllLock", slotNo);
    return cardIn(slotNo).PllLock();
  }

  static void SetCamFlit(uint32_t slotNo, uint16_t pid, uint32_t pass) {
    record("SetCamFlit", slotNo, Hex{pid}, pass);
  }

  static void wrDesPid(uint32_t slotNo, uint16_t pid) {
    record("wrDesPid", slotNo, Hex{pid});
    cardIn(slotNo).selectedPid = pid;
  }

  static uint32_t rdDescStat(uint32_t slotNo, uint32_t pidType) {
    record("rdDescStat", slotNo, pidType);
    Card &card = cardIn(slotNo);
    return card.rdDescStat(card.selectedPid, pidType);
  }
};

template <typename F>
void *address(F *function) {
  return reinterpret_cast<void *>(function);
}

void *nameOf(uint32_t slotNo) {
  return const_cast<char *>(platform.card[slotNo].name);
}

}  // namespace

const std::vector<CardFunction> &cardFunctions() {
  static const std::vector<CardFunction> functions = {
      {1, "pCardName", nameOf(0)},
      {11, "GetCardOnline", address(Driver::GetCardOnline)},
      {12, "GetCardReady", address(Driver::GetCardReady)},
      {13, "GetProgDesc", address(Driver::GetProgDesc)},
      {14, "CardFn14", address(Driver::CardFn14)},
      {15, "CardFn15", address(Driver::CardFn15)},
      {16, "CamAlarmMask", address(Driver::CamAlarmMask)},
      {21, "GetCardBusy", address(Driver::GetCardBusy)},
      {30, "cimax_sync_ok", address(Driver::cimax_sync_ok)},
      {31, "cimax_pid_rate_pre", address(Driver::cimax_pid_rate_pre)},
      {32, "cimax_sys_rate_pre", address(Driver::cimax_sys_rate_pre)},
      {33, "cimax_vld_rate_pre", address(Driver::cimax_vld_rate_pre)},
      {34, "SetPreCAMCC", address(Driver::SetPreCAMCC)},
      {35, "GetPreCAMCC", address(Driver::GetPreCAMCC)},
      {36, "ClrAllPreCAMPidExist", address(Driver::ClrAllPreCAMPidExist)},
      {37, "GetPreCAMPidExist", address(Driver::GetPreCAMPidExist)},
      {41, "cimax_pid_rate", address(Driver::cimax_pid_rate)},
      {42, "cimax_sys_rate", address(Driver::cimax_sys_rate)},
      {43, "cimax_vld_rate", address(Driver::cimax_vld_rate)},
      {44, "SetCAMCC", address(Driver::SetCAMCC)},
      {45, "GetCAMCC", address(Driver::GetCAMCC)},
      {46, "ClrAllCAMPidExist", address(Driver::ClrAllCAMPidExist)},
      {47, "GetCAMPidExist", address(Driver::GetCAMPidExist)},
      {51, "PllReg", address(Driver::PllReg)},
      {52, "PllLock", address(Driver::PllLock)},
      {53, "SetCamFlit", address(Driver::SetCamFlit)},
      {54, "wrDesPid", address(Driver::wrDesPid)},
      {55, "rdDescStat", address(Driver::rdDescStat)},
  };
  return functions;
}

std::vector<DescIfItem> cardItems(uint32_t slotNo, std::initializer_list<uint32_t> without) {
  std::vector<DescIfItem> items;
  for (const CardFunction &function : cardFunctions()) {
    if (std::find(without.begin(), without.end(), function.vid) == without.end()) {
      items.push_back({function.vid, function.vid == 1 ? nameOf(slotNo) : function.ptr});
    }
  }
  return items;
}

void registerCard(uint32_t slotNo, std::initializer_list<uint32_t> without) {
  const size_t before = platform.transcript.size();
  const std::vector<DescIfItem> items = cardItems(slotNo, without);
  descIfRegist(slotNo, items.data(), static_cast<uint32_t>(items.size()));
  platform.transcript.shrink(before);
}
