// The CA descriptors of one level of a CA PMT: of a program or of a stream.
#ifndef CA_DESCRIPTORS_H
#define CA_DESCRIPTORS_H

#include "CiCommon.h"
#include "CiPlatform.h"

namespace ciif {

constexpr uint8_t listSize = 32;
constexpr uint32_t privSize = 256;

// The private bytes of a list's descriptors as they are collected. In most tables they lie end to
// end from the start of the pool, and can then be copied at once.
struct PrivateRun {
  uint32_t end = 0;
  uint32_t lengths = 0;  // at least the greatest length less one

  void add(uint8_t off, uint8_t len) {
    end = ciLikely(off == end) ? end + len : noRun;
    lengths |= len - 1u;
  }
  // Only if all lie end to end within the pool, none of them empty or longer than `room`; not
  // always when they do.
  bool whole(uint32_t room) const { return end <= privSize && lengths < room; }

  static constexpr uint32_t noRun = 0x10000;
};

// Writes the CA descriptors of a list that the CAM at `index` supports, but for their private
// bytes. The program and its streams hold them in fields of the same names. Calls ciLibCaSysIdMatch
// for each of the list.
template <typename Level>
PrivateRun writeCa(Level &level, const CiDescCaList &list, uint8_t index);

}  // namespace ciif

#endif
