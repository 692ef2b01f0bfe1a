#include "World.h"

#include "invariants/Platform.h"

World world;
CiDesc table;
InPortForm inPort;
uint8_t mux[sizeof mux];

namespace {

uint32_t answer(Answer how, uint32_t good, uint32_t bad) {
  switch (how) {
    case Answer::good:
      return good;
    case Answer::bad:
      return bad;
    case Answer::either:
      return world.noise.below(2) != 0 ? good : bad;
    default:
      return world.noise.next();
  }
}

bool well(Answer how) {
  return answer(how == Answer::any ? Answer::either : how, 1, 0) != 0;
}

class InputAnswers : public Answers {
 public:
  uint32_t online(uint32_t) override { return answer(world.online, 1, 0); }
  uint32_t busy(uint32_t) override { return answer(world.busy, 0, 1); }
  uint32_t ready(uint32_t) override { return answer(world.ready, 1, 0); }
  CiDesc *table(uint32_t) override { return well(world.table) ? &::table : nullptr; }
  uint32_t masked(uint32_t, uint32_t camSlot) override {
    return answer(world.cam[camSlot].masked, 0, 1);
  }
  uint32_t sync(uint32_t) override { return answer(world.sync, 1, 0); }
  uint32_t rate(uint32_t) override { return answer(world.rate, 801, 800); }
  uint32_t lock(uint32_t) override { return answer(world.lock, 1, 0); }
  uint32_t present(uint32_t, uint16_t) override { return answer(world.present, 1, 0); }
  uint16_t errors(uint32_t, uint16_t) override {
    return static_cast<uint16_t>(answer(world.errors, 0, 1));
  }
  uint32_t descState(uint32_t, uint16_t) override {
    return well(world.readable) ? answer(world.descrambled, 0, 5) : 0xFF;
  }
  uint32_t index(uint32_t slotNo, uint32_t camSlot) override {
    return world.cam[camSlot].noIndex ? 0xFF : Answers::index(slotNo, camSlot);
  }
  uint32_t inserted(uint32_t, uint32_t camSlot) override {
    return answer(world.cam[camSlot].inserted, 1, 0);
  }
  bool supports(uint32_t, uint32_t camSlot, uint16_t caSysId) override {
    return (world.cam[camSlot].supports >> (caSysId & 7) & 1) != 0;
  }
  int32_t sent(uint32_t slotNo, uint32_t camSlot, CaPmtProg **, uint32_t count,
               bool query) override {
    if (query && world.cam[camSlot].replies) {
      randomReply(slotNo * MAX_CAM_NUM + camSlot, world.noise);
    }
    return static_cast<int32_t>(answer(world.sent, count, 0xFFFFFFFF));
  }
  bool addFails() override { return !well(world.added); }
  bool deleteFails() override { return !well(world.deleted); }
  InPortForm *inPort(uint32_t) override { return well(world.form) ? &::inPort : nullptr; }
  MuxCardForm *mux(uint32_t) override {
    return well(world.form) ? reinterpret_cast<MuxCardForm *>(::mux) : nullptr;
  }
};

InputAnswers answers;

void finding(rules::Rule rule, uint32_t, uint32_t) {
  fuzz::broken(rules::text(rule));
}

}  // namespace

void startWorld() {
  lean::start(answers, finding);
}

void randomReply(uint32_t record, fuzz::Noise &noise) {
  CaPmtReply &reply = caPmtReplyInfo[record];
  auto *bytes = reinterpret_cast<uint8_t *>(&reply);
  for (size_t i = 0; i < sizeof reply; ++i) {
    const uint32_t kind = noise.below(4);
    bytes[i] = static_cast<uint8_t>(kind == 0 ? 0x71 + 2 * noise.below(2) : noise.below(8));
  }
  const uint16_t counts[] = {0, 1, 32, 33, 255, 0xFFFF};
  reply.progNum = counts[noise.below(6)];
  for (CaPmtReplyProg &program : reply.prog) {
    program.progNum = static_cast<uint16_t>(noise.below(8));
    program.eleNum = static_cast<uint8_t>(counts[noise.below(6)]);
    for (CaPmtReplyElem &stream : program.ele) {
      stream.pid = static_cast<uint16_t>(noise.below(64));
    }
  }
}
