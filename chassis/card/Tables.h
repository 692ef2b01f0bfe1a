// The tables that a card gives to the module and to the firmware, built from its stream's PSI.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "CiIf.h"
#include "CiPlatform.h"
#include "base/ProgramText.h"
#include "card/MuxCardForm.h"
#include "ts/Psi.h"

namespace chassis {

struct CardTables {
  CiDesc desc;
  InPortForm inPort;
  MuxCardForm mux;
};

// CAM masks by program_number; a program that is not in it has none.
using CamMasks = std::map<std::uint16_t, std::uint8_t>;

// Builders write the whole table. They return what found no place in it, one clause an item,
// with the names of programs.
using LeftOut = std::vector<std::string>;

// The programs that a CAM has, in PAT order. Private data that finds no place has length 0.
LeftOut buildDescTable(const Psi &psi, const CamMasks &masks, CiDesc &table,
                       const ProgramNames &names = nullptr);

// ECM PIDs of all PMTs in program order, program level first, then the EMM PIDs of the CAT.
LeftOut buildInPortForm(const Psi &psi, InPortForm &form);

// All programs with the PIDs of their streams, their PCR and their ECMs. ECM PIDs that a CAM needs
// are not told: who keeps a multiplex away from the CAMs by this form must leave them their ECMs.
LeftOut buildMuxForm(const Psi &psi, const CamMasks &masks, MuxCardForm &form,
                     const ProgramNames &names = nullptr);

}  // namespace chassis
