// The exchange with a CAM in an operator's words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cilib/ApduCodec.h"

namespace chassis {

std::string caSystemsText(const std::vector<std::uint16_t> &systems);  // "CA systems 0x0500, ..."

// ca_pmt_list_management: "first", "only", ...
std::string listManagementText(std::uint8_t listManagement);

// CA_enable with its code: "no entitlement (0x71)"; 0 is "no statement".
std::string caEnableText(std::uint8_t caEnable);

// What a reply says of its program as a whole: the program's own CA_enable; without one the
// streams', the one that refuses first.
std::uint8_t verdict(const CaReply &reply);
// What a reply says of its streams: "PID 0x0101: ..., PID 0x0102: ..."; those without a statement
// are not named.
std::string streamsText(const CaReply &reply);

// The first clause, and how many more there are.
std::string firstAndMore(const std::vector<std::string> &clauses);

}  // namespace chassis
