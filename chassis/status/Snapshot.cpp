#include "status/Snapshot.h"

namespace chassis {

CardCams camsOf(const CiLibrary &library, std::uint32_t slot) {
  CardCams cams;
  for (std::uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
    cams[camSlot] = {library.insertStatus(slot, camSlot) != 0, library.caSystems(slot, camSlot),
                     library.history(slot, camSlot)};
  }
  return cams;
}

}  // namespace chassis
