// Puts CA descriptors into PMT and CAT sections (ISO/IEC 13818-1) and leaves the rest as it is.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "ts/Section.h"

namespace tsscramble {

constexpr std::uint8_t patTable = 0x00;
constexpr std::uint8_t catTable = 0x01;
constexpr std::uint8_t pmtTable = 0x02;

using Descriptors = std::vector<std::uint8_t>;

Descriptors caDescriptor(std::uint16_t casid, std::uint16_t pid);

// What is put behind the descriptors that a PMT has already.
struct PmtEdit {
  Descriptors program;
  std::map<std::uint16_t, Descriptors> streams;  // by elementary_PID
};

bool isTable(const chassis::Section &section, std::uint8_t table);  // a sound long section of it
std::uint16_t tableExtension(const chassis::Section &section);      // program_number of a PMT

// Both return the section sealed anew, or as it was when the lengths inside do not fit. Throw
// InputError when it would grow beyond the 1024 bytes that a PSI section may have.
chassis::Section editPmt(const chassis::Section &pmt, const PmtEdit &edit);
chassis::Section editCat(const chassis::Section &cat, const Descriptors &added);

chassis::Section newCat(const Descriptors &descriptors);

// The PIDs that a PAT section names: of PMTs, and of the network information.
std::vector<std::uint16_t> patPids(const chassis::Section &pat);

}  // namespace tsscramble
