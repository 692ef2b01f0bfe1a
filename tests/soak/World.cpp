#include "World.h"

World world;
CiDesc table;

namespace {

constexpr uint16_t cas = 0x0500;
constexpr uint16_t ecm = 0x1000;  // of CAM A; CAM B's is the next
constexpr uint16_t firstPid = 0x100;
constexpr uint16_t programPids = 16;
constexpr uint32_t streams = 2;
constexpr uint8_t refused = 0x71;

InPortForm inPortForm;

// A program on both CAMs is as its CAM A makes it.
const CamWorld &camOf(uint32_t slotNo, uint16_t pid) {
  const uint32_t program = (pid - firstPid) / programPids;
  return world.card[slotNo].cam[program == 1 ? 1 : 0];
}

void refuse(CaPmtReply &reply, CaPmtProg **records, uint32_t count) {
  reply.progNum = static_cast<uint16_t>(count);
  for (uint32_t k = 0; k < count; ++k) {
    reply.prog[k].progNum = records[k]->progNum;
    reply.prog[k].caEnable = refused;
  }
}

class WorldAnswers : public Answers {
 public:
  uint32_t online(uint32_t slotNo) override { return world.card[slotNo].online; }
  uint32_t busy(uint32_t slotNo) override { return world.card[slotNo].busy; }
  uint32_t ready(uint32_t slotNo) override { return world.card[slotNo].ready; }
  CiDesc *table(uint32_t slotNo) override { return world.card[slotNo].table ? &::table : nullptr; }
  uint32_t masked(uint32_t slotNo, uint32_t camSlot) override {
    return world.card[slotNo].cam[camSlot].masked;
  }
  uint32_t sync(uint32_t slotNo) override { return world.card[slotNo].sync; }
  uint32_t rate(uint32_t slotNo) override { return world.card[slotNo].fast ? 801 : 800; }
  uint32_t lock(uint32_t slotNo) override { return world.card[slotNo].locked; }
  uint32_t present(uint32_t slotNo, uint16_t pid) override {
    return world.card[slotNo].cam[pid & 1].ecmPresent;
  }
  uint16_t errors(uint32_t slotNo, uint16_t pid) override {
    return world.card[slotNo].cam[pid & 1].ecmErrors;
  }
  uint32_t descState(uint32_t slotNo, uint16_t pid) override {
    const CamWorld &cam = camOf(slotNo, pid);
    const uint32_t bit = 1u << (pid & 7);
    if ((cam.unreadable & bit) != 0) {
      return 0xFF;
    }
    return (cam.failing & bit) != 0 ? 5 : 0;
  }
  uint32_t inserted(uint32_t slotNo, uint32_t camSlot) override {
    return world.card[slotNo].cam[camSlot].inserted;
  }
  bool supports(uint32_t slotNo, uint32_t camSlot, uint16_t) override {
    return world.card[slotNo].cam[camSlot].declares;
  }
  int32_t sent(uint32_t slotNo, uint32_t camSlot, CaPmtProg **records, uint32_t count,
               bool query) override {
    CaPmtReply &reply = caPmtReplyInfo[slotNo * MAX_CAM_NUM + camSlot];
    if (!query) {
      reply = {};  // a fresh CA PMT, a fresh opinion
    } else if (world.card[slotNo].cam[camSlot].refuses) {
      refuse(reply, records, count);
    }
    return world.sendFails ? -1 : static_cast<int32_t>(count);
  }
  bool addFails() override { return world.addFails; }
  bool deleteFails() override { return world.deleteFails; }
  InPortForm *inPort(uint32_t slotNo) override {
    return world.card[slotNo].form ? &inPortForm : nullptr;
  }
};

WorldAnswers answers;

void addProgram(uint8_t camMask) {
  const uint32_t p = table.descProgCnt++;
  CiDescProg &program = table.prog[p];
  program.prog_num = static_cast<uint16_t>(p + 1);
  program.caLevel = 1;
  program.camMask = camMask;
  program.caList.caNum = 2;
  program.caList.ca[0] = {cas, ecm};
  program.caList.ca[1] = {cas, ecm + 1};
  program.eleNum = streams;
  for (uint32_t e = 0; e < streams; ++e) {
    program.ele[e].streamType = 2;
    program.ele[e].pid = static_cast<uint16_t>(firstPid + programPids * p + e);
  }
}

}  // namespace

void startWorld(rules::Complaint complaint) {
  for (uint8_t camMask = 1; camMask <= 3; ++camMask) {
    addProgram(camMask);
  }
  inPortForm.caNum = 2;
  inPortForm.ca[0] = {cas, ecm};
  inPortForm.ca[1] = {cas, ecm + 1};
  lean::start(answers, complaint);
  for (uint32_t slotNo = 0; slotNo < MAX_BOARD_NUM; ++slotNo) {
    rules::choose(slotNo);
    getSlotDescPidInfo(slotNo);
  }
}
