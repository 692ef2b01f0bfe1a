#include "status/Findings.h"

#include <algorithm>
#include <iterator>

#include "base/Text.h"
#include "status/Words.h"

namespace chassis {
namespace {

constexpr std::uint16_t streamLevel = 2;
constexpr std::uint16_t programLevel = 1;

// The place where the module reads the answer: the stream's entry where the CA descriptors stand
// at stream level, else the program's.
std::uint8_t replyOf(const CaPmtReplyProg &reply, const CiDescProg &program, std::uint16_t pid) {
  if ((program.caLevel & streamLevel) == 0) {
    return reply.caEnable;
  }
  for (std::uint32_t e = 0; e < std::min<std::uint32_t>(reply.eleNum, 32); ++e) {
    if (reply.ele[e].pid == pid) {
      return reply.ele[e].caEnable;
    }
  }
  return 0;
}

bool cameBeforeCaPmt(const CiLibrary::History &history, std::uint16_t program) {
  const auto replied = history.repliedMs.find(program);
  return replied != history.repliedMs.end() && history.caPmt && replied->second < history.caPmtMs;
}

bool hasCam(std::uint8_t camMask, std::uint32_t camSlot) {
  return (camMask >> camSlot & 1) != 0;
}

void addReply(Chassis &chassis, std::uint32_t slot, const CiDescProg &program,
              PidFinding &finding) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    const CaPmtReply &reply = chassis.library().replies(slot, camSlot);
    const std::uint32_t count = hasCam(program.camMask, camSlot) ? reply.progNum : 0;
    for (std::uint32_t p = 0; p < std::min<std::uint32_t>(count, 32); ++p) {
      if (reply.prog[p].progNum == program.prog_num) {
        finding.reply = replyOf(reply.prog[p], program, finding.pid);
        finding.replyOld =
            cameBeforeCaPmt(chassis.library().history(slot, camSlot), program.prog_num);
        return;
      }
    }
  }
}

std::vector<EcmFinding> ecmsOf(const Card &card, const CiDescProg &program,
                               const CiDescElem &stream, std::uint64_t nowMs) {
  std::vector<EcmFinding> ecms;
  if ((program.caLevel & (streamLevel | programLevel)) == 0) {
    return ecms;
  }
  const CiDescCaList &list = (program.caLevel & streamLevel) != 0 ? stream.caList : program.caList;
  for (std::uint32_t k = 0; k < std::min<std::uint32_t>(list.caNum, 32); ++k) {
    const std::uint16_t pid = list.ca[k].ecmPid;
    const PidEvidence &evidence = card.before(pid);
    const bool present = evidence.packets > 0 && nowMs - evidence.lastSeenMs <= presenceMs;
    ecms.push_back({pid, present, evidence});
  }
  return ecms;
}

PidFinding examineStream(const Card &card, const StreamInfo &stream) {
  PidFinding finding;
  finding.pid = stream.pid;
  finding.streamType = stream.streamType;
  finding.before = card.before(stream.pid);
  finding.behind = card.behind(stream.pid);
  return finding;
}

// The module's row of a program follows a new table only with the next cycle; until then its PIDs
// tell that it is another's.
void addStatus(const DescProgStat &row, ProgramFinding &finding) {
  for (std::size_t e = 0; e < finding.pids.size(); ++e) {
    if (row.pid[e].pid != finding.pids[e].pid) {
      return;
    }
  }
  finding.status = row.progStatus;
  for (std::size_t e = 0; e < finding.pids.size(); ++e) {
    finding.pids[e].status = row.pid[e].status;
  }
}

// What a program has that the module supervises.
void addSupervision(Chassis &chassis, std::uint32_t slot, const CiDescProg &program,
                    ProgramFinding &finding) {
  const std::uint64_t nowMs = chassis.clock().elapsedMs();
  finding.camMask = program.camMask;
  finding.clear = program.camMask != 0 && (program.caLevel & (streamLevel | programLevel)) == 0;
  finding.pids.resize(std::min<std::size_t>(finding.pids.size(), program.eleNum));
  for (std::size_t e = 0; e < finding.pids.size(); ++e) {
    addReply(chassis, slot, program, finding.pids[e]);
    finding.pids[e].ecms = ecmsOf(chassis.card(slot), program, program.ele[e], nowMs);
  }
}

ProgramFinding carriedProgram(const ProgramInfo &info) {
  ProgramFinding finding;
  finding.number = info.number;
  finding.probe = info.probe;
  finding.service = info.service;
  return finding;
}

ProgramFinding examineProgram(Chassis &chassis, std::uint32_t slot, const ProgramInfo &info) {
  Card &card = chassis.card(slot);
  const CiDesc &table = *card.descTable();
  ProgramFinding finding = carriedProgram(info);
  for (const StreamInfo &stream : info.streams) {
    finding.pids.push_back(examineStream(card, stream));
  }
  for (std::uint32_t p = 0; p < table.descProgCnt; ++p) {
    if (table.prog[p].prog_num != info.number) {
      continue;
    }
    addSupervision(chassis, slot, table.prog[p], finding);
    addStatus(DescStatus[slot][p], finding);
  }
  return finding;
}

CaPmtAgeMs caPmtAge(const CiLibrary::History &history, std::uint64_t nowMs) {
  return history.caPmt ? CaPmtAgeMs(nowMs - std::min(nowMs, history.caPmtMs)) : std::nullopt;
}

CamFinding examineCam(Chassis &chassis, std::uint32_t slot, std::uint32_t camSlot) {
  const CiData &record = *pCiData[slot];
  CamFinding finding;
  finding.caPmtAgeMs =
      caPmtAge(chassis.library().history(slot, camSlot), chassis.clock().elapsedMs());
  finding.insert = record.camInsert[camSlot];
  finding.casid = record.casidStat[camSlot];
  finding.caPids = record.preCamPidStat[camSlot];
  finding.descrambling = record.descStat[camSlot];
  return finding;
}

// What a program and the CAMs that have it tell of each other.
void relate(ProgramFinding &program, std::array<CamFinding, MAX_CAM_NUM> &cams) {
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    CamFinding &cam = cams[camSlot];
    if (!hasCam(program.camMask, camSlot)) {
      continue;
    }
    if (cam.caPmtAgeMs) {
      program.caPmtAgeMs = std::min(*cam.caPmtAgeMs, program.caPmtAgeMs.value_or(*cam.caPmtAgeMs));
    }
    cam.clearPrograms += program.clear ? 1 : 0;
    ++cam.programs;
  }
}

void addStreams(const Card &card, CardFinding &finding) {
  finding.input = {card.streamName(), card.live(), card.silent(), card.counters()};
  if (card.probing()) {
    finding.countersBehind = card.countersBehind();
    finding.behindName = card.behindName();
    finding.unmatchedStreams = card.unmatchedStreams();
    finding.unaligned = card.unaligned();
  }
  finding.output = card.output();
}

}  // namespace

CardFinding examine(Chassis &chassis, std::uint32_t slot) {
  CardFinding finding;
  finding.slot = slot;
  finding.takenMs = chassis.clock().elapsedMs();
  Card &card = chassis.card(slot);
  if (pCiData[slot] == nullptr || card.descTable() == nullptr) {
    return finding;
  }
  finding.checked = true;
  addStreams(card, finding);
  finding.bitrate = card.bitrate();
  finding.transportErrors = card.transportErrors();
  finding.controller = pCiData[slot]->cimaxStat;
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    finding.cams[camSlot] = examineCam(chassis, slot, camSlot);
  }
  for (const ProgramInfo &info : card.programs()) {
    finding.programs.push_back(examineProgram(chassis, slot, info));
    relate(finding.programs.back(), finding.cams);
  }
  return finding;
}

CardFinding uncheckedFinding(const Card &card, std::uint32_t slot) {
  CardFinding finding;
  finding.slot = slot;
  addStreams(card, finding);
  std::transform(card.programs().begin(), card.programs().end(),
                 std::back_inserter(finding.programs), carriedProgram);
  return finding;
}

std::string ecmText(const EcmFinding &ecm, std::uint64_t nowMs) {
  const std::string name = "ECM PID " + hexText(ecm.pid);
  if (ecm.evidence.packets == 0) {
    return name + " never seen";
  }
  if (!ecm.present) {
    return name + " absent for " + secondsText(nowMs - ecm.evidence.lastSeenMs);
  }
  return name + " present, " +
         countText(ecm.evidence.ccErrors, "continuity error", "continuity errors");
}

std::string replyText(std::uint8_t reply, bool old) {
  return "CAM replied " + hexText(reply) + (old ? " before the last CA PMT" : "");
}

std::string evidenceText(const PidFinding &pid, std::uint64_t nowMs) {
  std::vector<std::string> parts;
  if (pid.reply != 0) {
    parts.push_back(replyText(pid.reply, pid.replyOld));
  }
  for (const EcmFinding &ecm : pid.ecms) {
    parts.push_back(ecmText(ecm, nowMs));
  }
  return joined(parts, "; ");
}

}  // namespace chassis
