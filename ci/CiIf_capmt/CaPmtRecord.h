// Fills one CA PMT program record from a program of the card's table.
#ifndef CA_PMT_RECORD_H
#define CA_PMT_RECORD_H

#include "CiPlatform.h"

namespace ciif {

// EN 50221 ca_pmt_cmd_id.
enum CaPmtCmdId : uint8_t { okDescrambling = 1, query = 3 };

// Clears and fills a record, but for its command id, which is ok_descrambling, and its list
// management, which is 0. Only CA descriptors that the CAM at `index` supports are taken; a stream
// that has any gets `streamCmdId`. Calls ciLibCaSysIdMatch for the program's descriptors, then for
// each stream's.
void fillCaPmtRecord(CaPmtProg &record, const CiDescProg &program, uint8_t index, uint8_t version,
                     CaPmtCmdId streamCmdId);

}  // namespace ciif

#endif
