#include "CiIf_capmt/CaDescriptors.h"

namespace ciif {

template <typename Level>
PrivateRun writeCa(Level &level, const CiDescCaList &list, uint8_t index) {
  PrivateRun run;
  uint32_t n = 0;
  const uint32_t count = list.caNum;
  for (uint32_t k = 0; k < count && n < listSize; ++k) {
    if (ciLikely(ciLibCaSysIdMatch(index, list.ca[k].casid) == 0)) {
      level.casid[n] = list.ca[k].casid;
      level.caPid[n] = list.ca[k].ecmPid;
      const uint8_t len = list.privLen[k];
      const uint8_t off = list.privOff[k];
      level.privLen[n] = len;
      level.privOff[n] = off;
      run.add(off, len);
      ++n;
    }
  }
  level.caNum = static_cast<uint8_t>(n);
  return run;
}

template PrivateRun writeCa(CaPmtProg &level, const CiDescCaList &list, uint8_t index);
template PrivateRun writeCa(CaPmtElem &level, const CiDescCaList &list, uint8_t index);

}  // namespace ciif
