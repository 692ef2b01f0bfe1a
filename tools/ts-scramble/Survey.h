// What ts-scramble finds out about its input before it decides anything.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "ts/Psi.h"
#include "ts/Section.h"
#include "ts/TsFile.h"

namespace tsscramble {

struct Survey {
  std::string path;
  std::uint64_t packets = 0;
  double packetsPerSecond = 0;

  // Every program whose PMT was seen, with every stream that it ever had.
  std::vector<chassis::PsiProgram> programs;

  // The sections that a receiver needs first, as they first appear: of PAT, PMTs and CAT.
  std::vector<chassis::Section> pat;
  std::vector<chassis::Section> pmts;
  std::vector<chassis::Section> cat;

  std::set<std::uint16_t> usedPids;       // by packets, or named by PSI
  std::set<std::uint16_t> psiPids;        // of PAT, CAT, PMTs and network information
  std::set<std::uint16_t> scrambledPids;  // with packets that are scrambled already

  double seconds() const { return static_cast<double>(packets) / packetsPerSecond; }
  const chassis::PsiProgram *program(std::uint16_t number) const;  // null when there is none
};

// Reads the whole file from its beginning. bitrate in bit/s, 0: from the PCRs. Throws
// chassis::InputError that names the file: no PAT, no PMT, neither PCR nor bitrate.
Survey survey(chassis::TsFile &file, const std::string &path, std::uint64_t bitrate);

}  // namespace tsscramble
