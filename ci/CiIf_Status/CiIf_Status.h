// Functions private to the source unit CiIf_Status. All run in the supervision task, ciIfInit and
// ciAlarmDlyTimeInit in the start-up task. slotNo 0..5 and camSlot 0..1 are the caller's promise.
#ifndef CIIF_STATUS_H
#define CIIF_STATUS_H

#include "CiIf.h"

extern "C" {

// Sets the alarm delays and loads the CI library; the first call only, later ones return 0.
// Returns ciLibLoad's result, negative when it failed.
int32_t ciIfInit(void);

// Sets the ten alarm delays to their defaults.
void ciAlarmDlyTimeInit(void);

// Empties the slot's rows of DescStatus: PIDs 0x1FFF, statuses DESC_STAT_UNKNOWN. Low byte counts.
void clrSlotDescPID(uint32_t slotNo);

// Sets the statuses of the CAM's programs and PIDs to DESC_STAT_UNKNOWN. Low byte of slotNo.
void clrDescStat(uint32_t slotNo, uint32_t camSlot);

// Fills PIDs and classes of the CAM's programs from the table and logs each. Low byte of slotNo.
void getDescPidInfo(uint32_t slotNo, uint32_t camSlot);

// Condenses the statuses of the CAM's PIDs into DESC_SUM_. Low byte of slotNo.
uint8_t getDescStat(uint32_t slotNo, uint32_t camSlot);

// The first CA system id, programs first to last, program-level entries before stream-level ones,
// that the inserted CAM supports; 0 when there is none or it cannot be told.
uint16_t casidMatch(uint32_t slotNo, uint32_t camSlot);

// Measures every PID of the CAM's programs into DescStatus. Low byte of slotNo.
void getFpgaDescPidSta(uint32_t slotNo, uint32_t camSlot);

// Sends a CA PMT that the library asks for, or the one query that is due.
void setCAM(uint8_t slotNo, uint8_t camSlot);

// Resets the CAM when its fault has lasted long enough and it has had time for its CA PMT.
void camReset(uint8_t slotNo, uint8_t camSlot);

}  // extern "C"

#endif
