// The delay filter that all kinds of alarm share.
#ifndef ALARM_FILTER_H
#define ALARM_FILTER_H

#include "CiCommon.h"
#include "CiIf_Status/AlarmKinds.h"

namespace ciif {

// One alarm: of a CAM, or of a card in the place of its CAM A.
struct AlarmState {
  uint32_t ok_time_cnt;   // last call that saw no fault
  uint32_t err_time_cnt;  // last call that saw the fault
  int32_t alarm_index;    // as AlarmAdd gave it
  uint8_t alarm_traped;   // 1 while raised
};

// One call of a check.
struct AlarmCall {
  const AlarmKind &kind;
  uint8_t slotNo;
  uint8_t camSlot;
  AlarmState &alarm;
};

// What a call does, each with the result of camAlarmCheck: while the alarm is masked, it is cleared
// at once; while its fault is seen, it is raised when the delay has run out; while it stands and
// its fault is gone, it is cleared when the delay has.
int32_t whileMasked(const AlarmCall &call);
int32_t whileFaulty(const AlarmCall &call);
int32_t whileGone(const AlarmCall &call);

}  // namespace ciif

#endif
