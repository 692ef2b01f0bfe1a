// What ts-scramble decides before it writes anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "PsiEdit.h"
#include "Request.h"
#include "Survey.h"
#include "cam/LabCa.h"

namespace tsscramble {

struct EcmStream {
  std::uint16_t pid = 0;
  std::uint16_t program = 0;        // also the tier
  std::vector<std::uint16_t> pids;  // the streams that have their words from here
};

struct Plan {
  std::vector<EcmStream> ecms;
  std::map<std::uint16_t, PmtEdit> pmts;          // by program_number
  std::map<std::uint16_t, std::size_t> ecmOfPid;  // index into ecms by scrambled PID
  std::uint16_t emmPid = 0;
  std::set<std::uint16_t> leftClear;  // streams of more than one program
  std::uint64_t packets = 0;          // of the input
  std::uint32_t periods = 0;          // even, so that parity alternates where the file loops

  // The crypto period of an input packet.
  std::uint32_t periodAt(std::uint64_t index) const;
};

// Throws chassis::InputError: an unknown program, one without anything to scramble, a stream that
// is scrambled already, a PID in use or none left, a file too short for the crypto period.
Plan makePlan(const Request &request, const Survey &survey);

// The word of an ECM stream for a period; period `periods` has that of period 0.
chassis::labca::ControlWord controlWord(const Request &request, const Plan &plan, std::size_t ecm,
                                        std::uint32_t period);

// The ECM of a period: its own word and, for the other parity, that of the next period.
chassis::labca::Ecm ecmOf(const Request &request, const Plan &plan, std::size_t ecm,
                          std::uint32_t period);

}  // namespace tsscramble
