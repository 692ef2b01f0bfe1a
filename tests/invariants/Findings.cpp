#include "Findings.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace rules {

namespace {

constexpr uint8_t partScrambled = DESC_SUM_PART | DESC_SUM_SCRAMBLED;
constexpr uint8_t allScrambled = DESC_SUM_ALL | DESC_SUM_SCRAMBLED;

// By code, since every status of every cycle is looked up.
struct Codes {
  bool has[256] = {};

  constexpr Codes(std::initializer_list<uint8_t> codes) {
    for (const uint8_t code : codes) {
      has[code] = true;
    }
  }
};

constexpr Codes statuses = {DESC_STAT_SCRAMBLED, DESC_STAT_NO_ENTITLEMENT, DESC_STAT_TECHNICAL,
                            DESC_STAT_NO_ECM,    DESC_STAT_ECM_CC,         DESC_STAT_UNKNOWN,
                            DESC_STAT_OK};
constexpr Codes summaries = {DESC_SUM_OK,   DESC_SUM_PART, DESC_SUM_ALL,
                             partScrambled, allScrambled,  DESC_SUM_ERROR};

bool isSound(const CaPmtElem &stream) {
  return stream.caNum <= 32 && stream.reserved == 0;
}

}  // namespace

bool isStatus(uint8_t status) {
  return statuses.has[status];
}

bool isFinding(uint8_t value) {
  return value <= 1 || value == 0xFF;
}

bool areFindings(const CiData &card, uint32_t camSlot) {
  return isFinding(card.preCamPidStat[camSlot]) && isFinding(card.casidStat[camSlot]) &&
         summaries.has[card.descStat[camSlot]];
}

bool haveStatuses(const DescProgStat &row, const CiDescProg &program) {
  return isStatus(row.progStatus) &&
         std::all_of(row.pid, row.pid + program.eleNum,
                     [](const DescPidStat &pid) { return isStatus(pid.status); });
}

// A program without PIDs is as good as can be, or was not measured.
bool isOfItsWorst(const DescProgStat &row, const CiDescProg &program) {
  uint8_t worst = DESC_STAT_OK;
  for (uint32_t e = 0; e < program.eleNum; ++e) {
    worst = std::min(worst, row.pid[e].status);
  }
  return row.progStatus == worst || (program.eleNum == 0 && row.progStatus == DESC_STAT_UNKNOWN);
}

// Reserved fields stand behind the private data: they tell when it leaves its area.
bool isWithinLimits(const CaPmtProg &record) {
  const auto isZero = [](uint8_t byte) { return byte == 0; };
  return record.mark == 1 && record.version >= 1 && record.version <= 30 && record.caNum <= 32 &&
         record.eleNum <= 32 && record.listMgmt <= 4 &&
         std::all_of(std::begin(record.reserved2), std::end(record.reserved2), isZero) &&
         std::all_of(std::begin(record.ele), std::end(record.ele), isSound);
}

bool isFault(const CiData &card, uint32_t camSlot) {
  return card.descStat[camSlot] == allScrambled || card.descStat[camSlot] == partScrambled ||
         card.cimaxStat == 1;
}

}  // namespace rules
