#include "report/Findings.h"

#include <algorithm>

#include "CiPlatform.h"
#include "report/Words.h"

namespace chassis {
namespace {

constexpr std::uint16_t streamLevel = 2;
constexpr std::uint16_t programLevel = 1;

// The place where the module reads the answer: the stream's entry where the CA descriptors stand
// at stream level, else the program's.
std::uint8_t replyOf(const CaPmtReplyProg &reply, const CiDescProg &program, std::uint16_t pid) {
  if ((program.caLevel & streamLevel) == 0)
    return reply.caEnable;
  for (std::uint32_t e = 0; e < std::min<std::uint32_t>(reply.eleNum, 32); ++e)
    if (reply.ele[e].pid == pid)
      return reply.ele[e].caEnable;
  return 0;
}

std::uint8_t replyOf(std::uint32_t slot, const CiDescProg &program, std::uint16_t pid) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    const CaPmtReply &reply = caPmtReplyInfo[slot * MAX_CAM_NUM + camSlot];
    const std::uint32_t count = (program.camMask >> camSlot & 1) != 0 ? reply.progNum : 0;
    for (std::uint32_t p = 0; p < std::min<std::uint32_t>(count, 32); ++p)
      if (reply.prog[p].progNum == program.prog_num)
        return replyOf(reply.prog[p], program, pid);
  }
  return 0;
}

std::vector<EcmFinding> ecmsOf(const Card &card, const CiDescProg &program,
                               const CiDescElem &stream, std::uint64_t nowMs) {
  std::vector<EcmFinding> ecms;
  if ((program.caLevel & (streamLevel | programLevel)) == 0)
    return ecms;
  const CiDescCaList &list = (program.caLevel & streamLevel) != 0 ? stream.caList : program.caList;
  for (std::uint32_t k = 0; k < std::min<std::uint32_t>(list.caNum, 32); ++k) {
    const std::uint16_t pid = list.ca[k].ecmPid;
    const PidEvidence &evidence = card.before(pid);
    const bool present = evidence.packets > 0 && nowMs - evidence.lastSeenMs <= presenceMs;
    ecms.push_back({pid, present, evidence});
  }
  return ecms;
}

PidFinding examinePid(Chassis &chassis, std::uint32_t slot, std::uint32_t p, std::uint32_t e) {
  Card &card = chassis.card(slot);
  const CiDescProg &program = card.descTable()->prog[p];
  const CiDescElem &stream = program.ele[e];
  PidFinding finding;
  finding.pid = stream.pid;
  finding.streamType = stream.streamType;
  finding.status = DescStatus[slot][p].pid[e].status;
  finding.reply = replyOf(slot, program, stream.pid);
  finding.ecms = ecmsOf(card, program, stream, chassis.clock().elapsedMs());
  finding.before = card.before(stream.pid);
  finding.behind = card.behind(stream.pid);
  return finding;
}

ProgramFinding examineProgram(Chassis &chassis, std::uint32_t slot, std::uint32_t p) {
  const CiDescProg &program = chassis.card(slot).descTable()->prog[p];
  ProgramFinding finding;
  finding.number = program.prog_num;
  finding.camMask = program.camMask;
  finding.status = DescStatus[slot][p].progStatus;
  for (std::uint32_t e = 0; e < program.eleNum; ++e)
    finding.pids.push_back(examinePid(chassis, slot, p, e));
  return finding;
}

CamFinding examineCam(const CiData &record, std::uint32_t camSlot) {
  CamFinding finding;
  finding.insert = record.camInsert[camSlot];
  finding.casid = record.casidStat[camSlot];
  finding.caPids = record.preCamPidStat[camSlot];
  finding.descrambling = record.descStat[camSlot];
  return finding;
}

}  // namespace

CardFinding examine(Chassis &chassis, std::uint32_t slot) {
  CardFinding finding;
  finding.slot = slot;
  finding.takenMs = chassis.clock().elapsedMs();
  Card &card = chassis.card(slot);
  if (pCiData[slot] == nullptr || card.descTable() == nullptr)
    return finding;
  finding.bitrate = card.bitrate();
  finding.controller = pCiData[slot]->cimaxStat;
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot)
    finding.cams[camSlot] = examineCam(*pCiData[slot], camSlot);
  for (std::uint32_t p = 0; p < card.descTable()->descProgCnt; ++p)
    finding.programs.push_back(examineProgram(chassis, slot, p));
  return finding;
}

std::string ecmText(const EcmFinding &ecm, std::uint64_t nowMs) {
  const std::string name = "ECM PID " + hexText(ecm.pid);
  if (ecm.evidence.packets == 0)
    return name + " never seen";
  if (!ecm.present)
    return name + " absent for " + secondsText(nowMs - ecm.evidence.lastSeenMs);
  return name + " present, " +
         countText(ecm.evidence.ccErrors, "continuity error", "continuity errors");
}

std::string replyText(std::uint8_t reply) {
  return "CAM replied " + hexText(reply);
}

std::string evidenceText(const PidFinding &pid, std::uint64_t nowMs) {
  std::vector<std::string> parts;
  if (pid.reply != 0)
    parts.push_back(replyText(pid.reply));
  for (const EcmFinding &ecm : pid.ecms)
    parts.push_back(ecmText(ecm, nowMs));
  return joined(parts, "; ");
}

}  // namespace chassis
