#include "AlarmKinds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace {

void setCamInsert(CiData &record, uint32_t camSlot, uint32_t value) {
  record.camInsert[camSlot] = static_cast<uint8_t>(value);
}

void setPreCamPidStat(CiData &record, uint32_t camSlot, uint32_t value) {
  record.preCamPidStat[camSlot] = static_cast<uint8_t>(value);
}

void setCasidStat(CiData &record, uint32_t camSlot, uint32_t value) {
  record.casidStat[camSlot] = static_cast<uint16_t>(value);
}

void setCimaxStat(CiData &record, uint32_t, uint32_t value) {
  record.cimaxStat = static_cast<uint8_t>(value);
}

void setDescStat(CiData &record, uint32_t camSlot, uint32_t value) {
  record.descStat[camSlot] = static_cast<uint8_t>(value);
}

constexpr bool PER_CAM = false;
constexpr bool PER_CARD = true;

constexpr const char *CAM_ADD = "Card%d CAM%d AlarmAdd failed\r\n";
constexpr const char *CAM_DEL = "Card%d Cam%d AlarmDel failed\r\n";
constexpr const char *UPPER_CAM_DEL = "Card%d CAM%d AlarmDel failed\r\n";
constexpr const char *PORT_DEL = "Card%d port%d AlarmDel failed\r\n";
constexpr const char *PORT_DEL_JOINED = "Card%d port%dAlarmDel failed\r\n";

std::string formatted(const char *format, int first, int second) {
  char text[100];
  std::snprintf(text, sizeof text, format, first, second);
  return text;
}

}  // namespace

const std::vector<AlarmKind> alarmKinds = {
    {
        "CamAbsent",
        0xA01,
        PER_CAM,
        AlarmKind::Delays{1000, 1000, 1},
        setCamInsert,
        AlarmKind::Values{{0}, {1, 2, 0x7F, 0x80, 0xFE, 0xFF}},
        AlarmKind::Failures{CAM_DEL, CAM_ADD, PORT_DEL_JOINED},
        AlarmKind::Ids{{0x705, 0x706}, {0x703}},
    },
    {
        "CaPidAbsent",
        0xA02,
        PER_CAM,
        AlarmKind::Delays{60000, 1000, 0},
        setPreCamPidStat,
        AlarmKind::Values{{1}, {0, 2, 0x11, 0x81, 0xFE, 0xFF}},
        AlarmKind::Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
        AlarmKind::Ids{{0x705, 0x706}, {0x708}},
    },
    {
        "CaSysMismatch",
        0xA03,
        PER_CAM,
        AlarmKind::Delays{3000, 3000, 1},
        setCasidStat,
        AlarmKind::Values{{0}, {1, 2, 0xFF, 0x100, 0xFF00, 0xFFFF}},
        AlarmKind::Failures{CAM_DEL, CAM_ADD, CAM_DEL},
        AlarmKind::Ids{{0x705, 0x706}, {0x707}},
    },
    {
        "CiInput",
        0xA04,
        PER_CARD,
        AlarmKind::Delays{3000, 3000, 0},
        setCimaxStat,
        AlarmKind::Values{{1}, {0, 2, 0x11, 0x81, 0xFE, 0xFF}},
        AlarmKind::Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
        AlarmKind::Ids{{0x701, 0x701}, {0x111}},
    },
    {
        "Descramble",
        0xA05,
        PER_CAM,
        AlarmKind::Delays{12000, 3000, 1},
        setDescStat,
        AlarmKind::Values{{0x10, 0x11, 0x20, 0x21, 0x01, 0x02, 0x7F, 0x80, 0xEE, 0xFE}, {0, 0xFF}},
        AlarmKind::Failures{PORT_DEL, CAM_ADD, UPPER_CAM_DEL},
        AlarmKind::Ids{{0x705, 0x706}, {0x702, 0x142, 0x714}},
    },
};

const AlarmKind &alarmKind(uint32_t code) {
  return *std::find_if(alarmKinds.begin(), alarmKinds.end(),
                       [code](const AlarmKind &kind) { return kind.code == code; });
}

const std::string TIME = "OSTimeGet()";

std::string since(uint32_t stamp) {
  return "get_inc_of_time(" + std::to_string(stamp) + ")";
}

std::string alarmDel(int32_t index) {
  return "AlarmDel(" + std::to_string(index) + ", 0)";
}

void Alarm::masks(uint32_t camA, uint32_t camB) const {
  platform.card[slotNo_].CamAlarmMask.when(0) = camA;
  platform.card[slotNo_].CamAlarmMask.when(1) = camB;
}

uint32_t Alarm::markOk() const {
  noFault();
  EXPECT_EQ(check(), 0);
  platform.take();
  return platform.now;
}

uint32_t Alarm::raise(int32_t index) const {
  markOk();
  platform.advance(kind_->delays.raise + 1);
  fault();
  platform.AlarmAdd = index;
  check();
  EXPECT_EQ(platform.count("AlarmAdd"), 1u);
  platform.take();
  return platform.now;
}

void Alarm::clear() const {
  mask();
  check();
  unmask();
  platform.take();
}

Calls Alarm::front() const {
  const std::string slot = std::to_string(slotNo_);
  return {"CamAlarmMask(" + slot + ", 0)", "CamAlarmMask(" + slot + ", 1)"};
}

Calls Alarm::raising() const {
  std::ostringstream add;
  add << "AlarmAdd((0x1, " << slotNo_ + 1 << "), (0x" << std::hex << kind_->ids.objects[camSlot_]
      << ", -1)";
  for (uint32_t reason : kind_->ids.reasons) {
    add << ", (0x" << reason << ", -1)";
  }
  add << ")";
  if (kind_->code != ALARM_KIND_CAM_ABSENT) {
    return {add.str()};
  }
  const std::string cam = std::to_string(slotNo_) + ", " + std::to_string(camSlot_);
  return {"ciLibGetCardIndex(" + cam + ")",
          "EXT_Clear_Ca_Sys_Id(" + std::to_string(slotNo_ * 2 + camSlot_) + ")",
          printed("clear ca sys id, slotNo " + std::to_string(slotNo_ + 1) + ",CAM " +
                  "AB"[camSlot_] + "! \n"),
          add.str()};
}

std::string Alarm::message(const char *format) const {
  return bbPrinted(formatted(format, static_cast<int>(slotNo_),
                             kind_->perCard ? 0 : static_cast<int>(camSlot_)));
}
