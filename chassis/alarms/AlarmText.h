// An alarm record in words.
#pragma once

#include <string>
#include <vector>

#include "CiPlatform.h"
#include "event/Event.h"

namespace chassis {

// Where the alarm belongs: the card of identifier 1 (instance: the card, from 1), the CAM of
// identifier 0x705 or 0x706.
Place alarmPlace(const AlarmRecord &record);

std::vector<std::string> alarmFaults();              // all that are known
std::string alarmFault(const AlarmRecord &record);   // "CAM absent"; else the identifiers
std::string alarmObject(const AlarmRecord &record);  // "slot 0, CAM 1"; neither: "chassis"

// Every identifier of the record, with its instance where it has one: "1 (1), 0x705, 0x703".
std::string alarmIdentifiers(const AlarmRecord &record);

}  // namespace chassis
