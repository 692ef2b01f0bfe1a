// Why a PID is not descrambled: the CAM's refusal or what is seen of the stream before the CAM.
#ifndef FAILURE_CAUSE_H
#define FAILURE_CAUSE_H

#include "CiPlatform.h"

namespace ciif {

// One CAM's turn in the measurement.
struct CamPass {
  uint8_t slotNo;
  uint32_t camSlot;
  uint16_t caSysId;  // the CA system that the CAM supports, 0 none
};

// The entries of a CAM's reply that may refuse a stream of a program lie from `begin` up to `end`,
// byte offsets of caPmtReplyInfo, others perhaps between them.
struct ReplyEntries {
  size_t begin = 0;
  size_t end = 0;
};

class FailureCause {
 public:
  FailureCause(const CamPass &pass, const CiDescProg &program) : pass_(pass), program_(program) {}

  // The DESC_STAT_ of the program's stream `e`, which is not descrambled. Asks for the ECM PIDs
  // before the CAM and resets their counts, unless the CAM has refused the stream.
  uint8_t ofStream(uint16_t e);

 private:
  const CamPass &pass_;
  const CiDescProg &program_;
  uint16_t searched_ = 0;  // count of the reply when it was searched: it may come meanwhile
  ReplyEntries entries_;   // empty: nothing is refused, so no PID need be looked up
};

}  // namespace ciif

#endif
