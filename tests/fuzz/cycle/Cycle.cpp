// Supervision of one card: tables, answers, replies and time as the input has them. The module's
// state lives on from input to input; each begins by bringing its card to the same one.
#include <cstring>

#include "CiPlatform.h"
#include "Input.h"
#include "World.h"
#include "invariants/Platform.h"

using fuzz::Input;
using fuzz::Noise;
using fuzz::require;

namespace {

constexpr uint32_t second = 1000;
constexpr size_t maxSteps = 200;

// ------------------------------------------------------------------------------------------------
// Tables
// ------------------------------------------------------------------------------------------------

// Few CA systems and PIDs, so that lists, forms and replies meet.
uint16_t smallCaSystem(Noise &noise) {
  return static_cast<uint16_t>(noise.below(16) == 0 ? noise.next() : 0x500 + noise.below(10));
}

void makeList(CiDescCaList &list, uint32_t count, Noise &noise) {
  list.caNum = static_cast<uint16_t>(count);
  list.reserved = static_cast<uint16_t>(noise.next());
  std::memset(list.privData, static_cast<int>(1 + noise.below(255)), sizeof list.privData);
  for (uint32_t k = 0; k < 32; ++k) {
    list.ca[k] = {smallCaSystem(noise), static_cast<uint16_t>(noise.below(0x2000))};
    list.privLen[k] = static_cast<uint8_t>(noise.next());
    list.privOff[k] = static_cast<uint8_t>(noise.next());
  }
}

void makeProgram(CiDescProg &program, Input &input) {
  const uint8_t shape = input.byte();
  const uint32_t lists = input.below(33);
  program.prog_num = static_cast<uint16_t>(input.below(8));
  program.caLevel = shape & 3;
  program.reserved = 0xA5;  // stands behind the private data: shows when it is copied with them
  program.camMask = shape >> 2 & 3;
  program.eleNum = static_cast<uint16_t>(input.below(33));
  Noise noise(input.byte());
  makeList(program.caList, lists, noise);
  for (uint32_t e = 0; e < program.eleNum; ++e) {
    program.ele[e].streamType = static_cast<uint16_t>(noise.below(0x20));
    program.ele[e].pid = static_cast<uint16_t>(noise.below((shape & 0x10) != 0 ? 0x2000 : 64));
    makeList(program.ele[e].caList, (shape & 0x20) != 0 ? noise.below(33) : lists, noise);
  }
}

void makeForms(Noise noise) {
  inPort.caNum = static_cast<uint8_t>(noise.below(2) != 0 ? noise.below(33) : noise.next());
  for (InPortFormCa &ca : inPort.ca) {
    ca = {smallCaSystem(noise), static_cast<uint16_t>(noise.below(0x2000))};
  }
  for (uint8_t &byte : mux) {
    byte = static_cast<uint8_t>(noise.next() >> 8);
  }
  mux[110] = static_cast<uint8_t>(noise.below(65));
  mux[111] = 0;
}

void makeTable(Input &input) {
  table.descProgCnt = input.below(33);
  for (uint32_t p = 0; p < table.descProgCnt; ++p) {
    makeProgram(table.prog[p], input);
  }
  makeForms(Noise(input.byte()));
  getSlotDescPidInfo(world.slotNo);
}

// ------------------------------------------------------------------------------------------------
// Steps
// ------------------------------------------------------------------------------------------------

void cycle() {
  lean::supervise(world.slotNo, table);
}

void pass(uint32_t ms) {
  lean::now += ms;
}

void changeAnswer(Input &input) {
  Answer *const answers[] = {&world.online,  &world.busy,    &world.ready,       &world.table,
                             &world.form,    &world.sync,    &world.rate,        &world.lock,
                             &world.present, &world.errors,  &world.descrambled, &world.readable,
                             &world.added,   &world.deleted, &world.sent};
  *answers[input.below(sizeof answers / sizeof answers[0])] = static_cast<Answer>(input.below(4));
}

void changeCam(Input &input) {
  const uint8_t choice = input.byte();
  CamWorld &cam = world.cam[choice & 1];
  switch (choice >> 1 & 7) {
    case 0:
      cam.inserted = static_cast<Answer>(input.below(4));
      break;
    case 1:
      cam.masked = static_cast<Answer>(input.below(4));
      break;
    case 2:
      cam.supports = input.byte();
      break;
    case 3:
      cam.noIndex = input.flag();
      break;
    case 4:
      cam.replies = input.flag();
      break;
    default:
      lean::wantCaPmt(world.slotNo, choice & 1);
      break;
  }
}

void changeLimit(Input &input) {
  uint32_t *const limits[] = {&TIME_CAPMT, &TIME_FIRST_RESET, &TIME_RESET, &TIME_PART_RESET,
                              &TIME_NO_RESET};
  *limits[input.below(5)] = input.byte() * second;
}

void query(Input &input) {
  if (table.descProgCnt == 0) {
    return;
  }
  const uint32_t program = input.below(table.descProgCnt);
  lean::askStatus(world.slotNo, program << 16 | input.word());
}

void diagnose(Input &input) {
  switch (input.below(6)) {
    case 0:
      getCAinfo(world.slotNo);
      break;
    case 1:
      printDesSta(world.slotNo);
      break;
    case 2:
      ClrAllDescCC(world.slotNo);
      break;
    case 3:
      CheckDescCC(world.slotNo);
      break;
    case 4:
      PreCAMFilte(world.slotNo, 0);
      break;
    default:
      caPMTSend(world.slotNo, input.below(3), 0x500, static_cast<uint16_t>(input.below(8)),
                input.byte());
      break;
  }
}

void step(Input &input) {
  const uint8_t kind = input.byte();
  switch (kind & 15) {
    case 0:
      makeTable(input);
      break;
    case 1:
    case 2:
    case 3:
      changeAnswer(input);
      break;
    case 4:
    case 5:
      changeCam(input);
      break;
    case 6: {
      Noise noise(input.byte());
      randomReply(world.slotNo * MAX_CAM_NUM + (kind >> 4 & 1), noise);
      break;
    }
    case 7:
      changeLimit(input);
      break;
    case 8:
      query(input);
      break;
    case 9:
      diagnose(input);
      break;
    case 10:
    case 11:
      pass(input.word() * 16u);
      break;
    default:
      pass((kind >> 4) * second);
      cycle();
      break;
  }
}

// ------------------------------------------------------------------------------------------------
// The same beginning for every input
// ------------------------------------------------------------------------------------------------

void standardTable() {
  table.descProgCnt = 1;
  CiDescProg &program = table.prog[0];
  program.prog_num = 1;
  program.caLevel = 1;
  program.camMask = 3;
  program.eleNum = 1;
  program.ele[0].streamType = 2;
  program.ele[0].pid = 0x20;
  program.ele[0].caList.caNum = 0;
  program.caList.caNum = 1;
  program.caList.ca[0] = {0x500, 0x30};
  makeForms(Noise(0));
  getSlotDescPidInfo(world.slotNo);
}

void standardLimits() {
  TIME_CAPMT = 10 * second;
  TIME_FIRST_RESET = 30 * second;
  TIME_RESET = 300 * second;
  TIME_PART_RESET = 30 * second;
  TIME_NO_RESET = 5 * second;
}

void cycles(uint32_t count, uint32_t apart) {
  for (uint32_t i = 0; i < count; ++i) {
    pass(apart);
    cycle();
  }
}

// Alarms are cleared, a CA PMT and a query go out, resets are armed.
void settle(uint32_t slotNo) {
  world = World();
  world.slotNo = slotNo;
  rules::choose(slotNo);
  caPmtReplyInfo[slotNo * MAX_CAM_NUM] = {};
  caPmtReplyInfo[slotNo * MAX_CAM_NUM + 1] = {};
  standardLimits();
  standardTable();
  for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    lean::wantCaPmt(slotNo, camSlot);
    world.cam[camSlot].masked = Answer::bad;
  }
  rules::counts = {};
  cycles(3, 20 * second);
  world.descrambled = Answer::bad;
  cycles(3, 6 * second);
  world.descrambled = Answer::good;
  for (CamWorld &cam : world.cam) {
    cam.masked = Answer::good;
  }
  cycles(3, 20 * second);
  require(rules::counts.caPmts == 2 && rules::counts.queries == 2 && rules::counts.resets == 0,
          "the beginning differs");
  require(!rules::anyAlarm(slotNo), "an alarm outlives the beginning");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  startWorld();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  settle(input.below(MAX_BOARD_NUM));
  world.noise = Noise(input.byte());
  makeTable(input);
  for (size_t done = 0; input.left() > 0 && done < maxSteps; ++done) {
    step(input);
  }
  return 0;
}
