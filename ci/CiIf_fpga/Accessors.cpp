#include "CiIf_fpga/CheckedCall.h"

// Functions with a result report what is missing and answer 0, PllReg alone -1; functions without
// one assert. Three of the latter trust the slot number.

namespace {

// A driver may answer with the whole register where sixteen bits count. Conventions differ in who
// cuts a result, so a compiler may take it to be cut already; what is stored is cut in any case.
uint16_t lowBits(uint16_t result) {
  volatile uint16_t stored = result;
  return stored;
}

}  // namespace

uint32_t cimax_sync_ok(uint32_t slotNo) {
  return callReported(REPORTED(cimax_sync_ok), uint32_t{0}, slotNo);
}

uint32_t cimax_pid_rate_pre(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h) {
  return callReported(REPORTED(cimax_pid_rate_pre), uint32_t{0}, slotNo, pid_l, pid_h);
}

uint32_t cimax_sys_rate_pre(uint32_t slotNo) {
  return callReported(REPORTED(cimax_sys_rate_pre), uint32_t{0}, slotNo);
}

uint32_t cimax_vld_rate_pre(uint32_t slotNo) {
  return callReported(REPORTED(cimax_vld_rate_pre), uint32_t{0}, slotNo);
}

void SetPreCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value) {
  callAsserted(ASSERTED(SetPreCAMCC), Range::vouched, slotNo, pid, value);
}

uint16_t GetPreCAMCC(uint32_t slotNo, uint32_t pid) {
  return lowBits(callReported(REPORTED(GetPreCAMCC), uint16_t{0}, slotNo, pid));
}

void ClrAllPreCAMPidExist(uint32_t slotNo) {
  callAsserted(ASSERTED(ClrAllPreCAMPidExist), Range::checked, slotNo);
}

uint32_t GetPreCAMPidExist(uint32_t slotNo, uint32_t pid) {
  return callReported(REPORTED(GetPreCAMPidExist), uint32_t{0}, slotNo, pid);
}

uint32_t cimax_pid_rate(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h) {
  return callReported(REPORTED(cimax_pid_rate), uint32_t{0}, slotNo, pid_l, pid_h);
}

uint32_t cimax_sys_rate(uint32_t slotNo) {
  return callReported(REPORTED(cimax_sys_rate), uint32_t{0}, slotNo);
}

uint32_t cimax_vld_rate(uint32_t slotNo) {
  return callReported(REPORTED(cimax_vld_rate), uint32_t{0}, slotNo);
}

void SetCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value) {
  callAsserted(ASSERTED(SetCAMCC), Range::vouched, slotNo, pid, value);
}

uint16_t GetCAMCC(uint32_t slotNo, uint32_t pid) {
  return lowBits(callReported(REPORTED(GetCAMCC), uint16_t{0}, slotNo, pid));
}

void ClrAllCAMPidExist(uint32_t slotNo) {
  callAsserted(ASSERTED(ClrAllCAMPidExist), Range::vouched, slotNo);
}

uint32_t GetCAMPidExist(uint32_t slotNo, uint32_t pid) {
  return callReported(REPORTED(GetCAMPidExist), uint32_t{0}, slotNo, pid);
}

int32_t PllReg(uint32_t slotNo, uint32_t value) {
  return callReported(REPORTED(PllReg), int32_t{-1}, slotNo, value);
}

uint32_t PllLock(uint32_t slotNo) {
  return callReported(REPORTED(PllLock), uint32_t{0}, slotNo);
}

void SetCamFlit(uint32_t slotNo, uint32_t pid, uint32_t pass) {
  callAsserted(ASSERTED(SetCamFlit), Range::checked, slotNo, pid, pass);
}

void wrDesPid(uint32_t slotNo, uint32_t pid) {
  callAsserted(ASSERTED(wrDesPid), Range::checked, slotNo, pid);
}

uint32_t rdDescStat(uint32_t slotNo, uint32_t pidType) {
  return callReported(REPORTED(rdDescStat), uint32_t{0}, slotNo, pidType);
}
