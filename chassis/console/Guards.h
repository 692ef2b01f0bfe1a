// What must hold in the chassis before the module may be called: its functions do not check it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "command/Functions.h"

namespace chassis {

// Each throws InputError with one line for a person. values[0] is a slot of the chassis.
void requireRegistered(const Values &values);    // the card has registered
void requireProgramIndex(const Values &values);  // and has the program of the query, values[1]
void requireCam(const Values &values);           // a CAM is in values[1]
void requireBit(const Values &values);           // values[0]: a set that has the bit values[1]

// "FF 00 1C": the bytes, two digits each, blanks as you like. Throws InputError.
std::vector<std::uint8_t> bytesOf(const std::string &text);

}  // namespace chassis
