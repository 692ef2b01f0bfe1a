// What a check by a monitoring system tells of a receiver that is judged: one line with its
// figures, and the status of the convention of monitoring plugins.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "status/Findings.h"

namespace chassis {

enum CheckStatus : int { checkOk = 0, checkWarning = 1, checkCritical = 2, checkUnknown = 3 };

struct CheckResult {
  CheckStatus status = checkUnknown;
  std::string line;  // without its end
};

// One that has nothing to judge by: why, in words.
CheckResult cannotCheck(const std::string &why);

// Follows the findings of a card with a receiver that is judged.
class ProbeCheck {
 public:
  static constexpr std::uint64_t justBegunMs = 5000;  // a fault that is younger is a warning

  // programs: those that are to be judged; empty: all that have CA descriptors.
  explicit ProbeCheck(std::vector<std::uint16_t> programs = {}) : asked_(std::move(programs)) {}

  // After each check of the module.
  void note(const CardFinding &card);
  // By the last of them, and what was lost meanwhile.
  CheckResult result() const;

 private:
  struct Judgement;
  std::vector<Judgement> judgements() const;
  Judgement judge(const ProgramFinding &program) const;
  std::string figures(std::uint64_t descrambled, std::uint64_t judged) const;
  std::string troubles() const;
  std::string nothingJudged() const;

  const std::vector<std::uint16_t> asked_;
  CardFinding card_;
  bool noted_ = false;
  std::map<std::uint16_t, std::uint64_t> badSinceMs_;  // by program
};

}  // namespace chassis
