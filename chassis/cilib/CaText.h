// How what is exchanged with a CAM is read.
#pragma once

#include <cstdint>
#include <string>

#include "cilib/ApduCodec.h"

namespace chassis {

// ca_pmt_list_management: "first", "only", ...
std::string listManagementText(std::uint8_t listManagement);

// What a reply says of its program as a whole: the program's own CA_enable; without one the
// streams', the one that refuses first.
std::uint8_t verdict(const CaReply &reply);

}  // namespace chassis
