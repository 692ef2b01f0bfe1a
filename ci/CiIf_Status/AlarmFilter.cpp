#include "CiIf_Status/AlarmFilter.h"

#include "CiIf_Status/Internal.h"

namespace ciif {

namespace {

// Set aside for resets on alarm by the kinds that answer 1, and by descrambling; nothing uses them.
[[maybe_unused]] uint32_t rst_cam_time_cnt[3][MAX_BOARD_NUM][MAX_CAM_NUM];
[[maybe_unused]] uint8_t first_rst[MAX_BOARD_NUM][MAX_CAM_NUM];

AlarmRecord makeRecord(const AlarmKind &kind, uint8_t slotNo, uint8_t camSlot) {
  AlarmRecord record = {};
  record.head = 1;
  record.pairCount = static_cast<uint8_t>(2 + kind.faultIds.count);
  record.pairs[0] = {1, slotNo + 1};
  record.pairs[1] = {kind.objects.byCam[camSlot], -1};
  for (uint8_t i = 0; i < kind.faultIds.count; ++i) {
    record.pairs[2 + i] = {kind.faultIds.id[i], -1};
  }
  return record;
}

int32_t failed(const AlarmCall &call, const char *message) {
  bbPrintf(message, call.slotNo, call.camSlot);
  return -1;
}

int32_t raise(const AlarmCall &call) {
  call.kind.raiseAction(call.slotNo, call.camSlot);
  AlarmRecord record = makeRecord(call.kind, call.slotNo, call.camSlot);
  const int32_t index = AlarmAdd(&record);
  if (index < 0) {
    return failed(call, call.kind.failures.raise);
  }
  call.alarm.alarm_index = index;
  call.alarm.alarm_traped = 1;
  return call.kind.delay.answersStanding;
}

int32_t clear(const AlarmCall &call, const char *failure) {
  if (AlarmDel(call.alarm.alarm_index, 0) < 0) {
    return failed(call, failure);
  }
  call.alarm.alarm_traped = 0;
  return 0;
}

}  // namespace

void clearCaSysIds(uint8_t slotNo, uint8_t camSlot) {
  EXT_Clear_Ca_Sys_Id(static_cast<uint8_t>(ciLibGetCardIndex(slotNo, camSlot)));
  printf("clear ca sys id, slotNo %d,CAM %c! \n", slotNo + 1, camLetter(camSlot));
}

void nothing(uint8_t, uint8_t) {}

int32_t whileMasked(const AlarmCall &call) {
  call.alarm.ok_time_cnt = OSTimeGet();
  return call.alarm.alarm_traped == 1 ? clear(call, call.kind.failures.maskClear) : 0;
}

int32_t whileFaulty(const AlarmCall &call) {
  call.alarm.err_time_cnt = OSTimeGet();
  if (!longerThan(alarmRaiseDelay(call.kind.delay.pair), call.alarm.ok_time_cnt)) {
    return 0;
  }
  return call.alarm.alarm_traped == 0 ? raise(call) : call.kind.delay.answersStanding;
}

int32_t whileGone(const AlarmCall &call) {
  call.alarm.ok_time_cnt = OSTimeGet();
  const bool due = longerThan(alarmClearDelay(call.kind.delay.pair), call.alarm.err_time_cnt);
  return due ? clear(call, call.kind.failures.clear) : 0;
}

}  // namespace ciif
