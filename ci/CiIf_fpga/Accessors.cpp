#include "CiIf_fpga/Checked.h"

using namespace ciif;

// The hardware functions by name.

uint32_t cimax_sync_ok(uint32_t slotNo) {
  return checked::cimax_sync_ok(slotNo);
}

uint32_t cimax_pid_rate_pre(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h) {
  return checked::cimax_pid_rate_pre(slotNo, pid_l, pid_h);
}

uint32_t cimax_sys_rate_pre(uint32_t slotNo) {
  return checked::cimax_sys_rate_pre(slotNo);
}

uint32_t cimax_vld_rate_pre(uint32_t slotNo) {
  return checked::cimax_vld_rate_pre(slotNo);
}

void SetPreCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value) {
  checked::SetPreCAMCC(slotNo, pid, value);
}

uint16_t GetPreCAMCC(uint32_t slotNo, uint32_t pid) {
  return checked::GetPreCAMCC(slotNo, pid);
}

void ClrAllPreCAMPidExist(uint32_t slotNo) {
  checked::ClrAllPreCAMPidExist(slotNo);
}

uint32_t GetPreCAMPidExist(uint32_t slotNo, uint32_t pid) {
  return checked::GetPreCAMPidExist(slotNo, pid);
}

uint32_t cimax_pid_rate(uint32_t slotNo, uint32_t pid_l, uint32_t pid_h) {
  return checked::cimax_pid_rate(slotNo, pid_l, pid_h);
}

uint32_t cimax_sys_rate(uint32_t slotNo) {
  return checked::cimax_sys_rate(slotNo);
}

uint32_t cimax_vld_rate(uint32_t slotNo) {
  return checked::cimax_vld_rate(slotNo);
}

void SetCAMCC(uint32_t slotNo, uint32_t pid, uint32_t value) {
  checked::SetCAMCC(slotNo, pid, value);
}

uint16_t GetCAMCC(uint32_t slotNo, uint32_t pid) {
  return checked::GetCAMCC(slotNo, pid);
}

void ClrAllCAMPidExist(uint32_t slotNo) {
  checked::ClrAllCAMPidExist(slotNo);
}

uint32_t GetCAMPidExist(uint32_t slotNo, uint32_t pid) {
  return checked::GetCAMPidExist(slotNo, pid);
}

int32_t PllReg(uint32_t slotNo, uint32_t value) {
  return checked::PllReg(slotNo, value);
}

uint32_t PllLock(uint32_t slotNo) {
  return checked::PllLock(slotNo);
}

void SetCamFlit(uint32_t slotNo, uint32_t pid, uint32_t pass) {
  checked::SetCamFlit(slotNo, pid, pass);
}

void wrDesPid(uint32_t slotNo, uint32_t pid) {
  checked::wrDesPid(slotNo, pid);
}

uint32_t rdDescStat(uint32_t slotNo, uint32_t pidType) {
  return checked::rdDescStat(slotNo, pidType);
}
