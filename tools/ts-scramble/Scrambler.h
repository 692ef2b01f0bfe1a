// Writes the scrambled stream.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "Plan.h"
#include "Request.h"
#include "Survey.h"
#include "ts/TsFile.h"

namespace tsscramble {

struct Result {
  Survey survey;
  Plan plan;
  std::uint64_t packetsWritten = 0;
};

// Reads `in`, writes `out`. Nothing is left of `out` when it fails. Throws chassis::InputError:
// what Request, TsFile, survey and makePlan throw, and an output that cannot be written or is the
// input; and chassis::OutputLost. goOn: as for TsFile. Packets with transport_error_indicator come
// out as they are.
Result scramble(const Request &request, const std::string &in, const std::string &out,
                const chassis::GoOn &goOn = nullptr);

}  // namespace tsscramble
