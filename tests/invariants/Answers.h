// How the hardware, the library and the alarm service of a chassis answer: here always well. Who
// runs the module under the rules overrides what is to go wrong.
#ifndef TESTS_INVARIANTS_ANSWERS_H
#define TESTS_INVARIANTS_ANSWERS_H

#include <cstdint>

#include "CiPlatform.h"

class Answers {
 public:
  virtual ~Answers() = default;

  // The card driver.
  virtual uint32_t online(uint32_t) { return 1; }
  virtual uint32_t busy(uint32_t) { return 0; }
  virtual uint32_t ready(uint32_t) { return 1; }
  virtual CiDesc *table(uint32_t) { return nullptr; }
  virtual uint32_t masked(uint32_t, uint32_t /*camSlot*/) { return 0; }
  virtual uint32_t sync(uint32_t) { return 1; }
  virtual uint32_t rate(uint32_t) { return 801; }
  virtual uint32_t lock(uint32_t) { return 1; }
  virtual uint32_t present(uint32_t, uint16_t /*pid*/) { return 1; }
  virtual uint16_t errors(uint32_t, uint16_t /*pid*/) { return 0; }
  virtual uint32_t descState(uint32_t, uint16_t /*pid*/) { return 0; }

  // The CI library.
  virtual uint32_t index(uint32_t slotNo, uint32_t camSlot) {
    return slotNo * MAX_CAM_NUM + camSlot;
  }
  virtual uint32_t inserted(uint32_t, uint32_t /*camSlot*/) { return 1; }
  virtual bool supports(uint32_t, uint32_t /*camSlot*/, uint16_t /*caSysId*/) { return true; }
  virtual int32_t sent(uint32_t, uint32_t /*camSlot*/, CaPmtProg **, uint32_t count,
                       bool /*query*/) {
    return static_cast<int32_t>(count);
  }

  // The firmware.
  virtual bool addFails() { return false; }
  virtual bool deleteFails() { return false; }
  virtual InPortForm *inPort(uint32_t) { return nullptr; }
  virtual MuxCardForm *mux(uint32_t) { return nullptr; }
};

#endif
