#include "console/Variables.h"

#include <algorithm>

#include "CiIf.h"
#include "base/InputError.h"
#include "base/Text.h"
#include "console/ModuleCalls.h"
#include "status/Words.h"

namespace chassis {
namespace {

using Form = Param::Form;
using Lines = std::vector<std::string>;

constexpr std::uint32_t rowCount = 32;
constexpr std::uint16_t noStream = 0x1FFF;

constexpr Param programIndex{"program index", Form::Number, 0, rowCount - 1, false};

constexpr Param word(const char *name) {
  return {name, Form::Number, 0, 0xFFFFFFFF, false};
}
constexpr Param byteValue(const char *name) {
  return {name, Form::Number, 0, 0xFF, false};
}

template <std::uint32_t &variable>
std::uint32_t *scalar(const Indexes &) {
  return &variable;
}

std::uint32_t *queryWord(const Indexes &at) {
  return &caPmtQuery[at[0]][at[1]];
}

std::uint8_t *proFlag(const Indexes &) {
  return &ciProFlag;
}

// The slots that the first index names, all of them without one.
std::vector<std::uint32_t> slotsOf(const Indexes &at) {
  if (!at.empty()) {
    return {at[0]};
  }
  std::vector<std::uint32_t> slots(MAX_BOARD_NUM);
  for (std::uint32_t i = 0; i < slots.size(); ++i) {
    slots[i] = i;
  }
  return slots;
}

template <typename T>
std::string pairText(const char *name, const T (&values)[MAX_CAM_NUM]) {
  return std::string(name) + " " + hexText(values[0]) + " " + hexText(values[1]);
}

std::string cardText(const CiData *card) {
  if (card == nullptr) {
    return "not registered";
  }
  const char *name = card->pCardName == nullptr ? "no name" : card->pCardName;
  return joined({name, "cimaxStat " + hexText(card->cimaxStat),
                 pairText("camInsert", card->camInsert), pairText("casidStat", card->casidStat),
                 pairText("preCamPidStat", card->preCamPidStat),
                 pairText("descStat", card->descStat)});
}

Lines cardLines(const Indexes &at) {
  Lines lines;
  for (const std::uint32_t index : slotsOf(at)) {
    lines.push_back("pCiData[" + std::to_string(index) + "]: " + cardText(pCiData[index]));
  }
  return lines;
}

std::string rowText(const DescProgStat &row) {
  Lines parts{"progStatus " + hexText(row.progStatus)};
  for (const DescPidStat &stream : row.pid) {
    if (stream.pid != noStream && stream.type != 0) {
      parts.push_back("PID " + hexText(stream.pid) + " " + hexText(stream.status) + " type " +
                      std::to_string(stream.type));
    }
  }
  return joined(parts);
}

bool isFilled(const DescProgStat &row) {
  return row.pid[0].type != 0;
}

void addRows(std::uint32_t slotNo, Lines &lines) {
  const std::string name = "DescStatus[" + std::to_string(slotNo) + "]";
  const std::size_t before = lines.size();
  for (std::uint32_t p = 0; p < rowCount; ++p) {
    if (isFilled(DescStatus[slotNo][p])) {
      lines.push_back(name + "[" + std::to_string(p) + "]: " + rowText(DescStatus[slotNo][p]));
    }
  }
  if (lines.size() == before) {
    lines.push_back(name + ": no program");
  }
}

Lines statusLines(const Indexes &at) {
  if (at.size() == 2) {
    return {"DescStatus[" + std::to_string(at[0]) + "][" + std::to_string(at[1]) +
            "]: " + rowText(DescStatus[at[0]][at[1]])};
  }
  Lines lines;
  for (const std::uint32_t slotNo : slotsOf(at)) {
    addRows(slotNo, lines);
  }
  return lines;
}

Variable limit(const char *name, const char *help, std::uint32_t *(*words)(const Indexes &)) {
  return {name, help, {}, word(name), words, nullptr, nullptr};
}

// clang-format off
const std::vector<Variable> allVariables = {
    limit("TIME_CAPMT", "ms after a CA PMT or query without resets and queries",
          scalar<TIME_CAPMT>),
    limit("TIME_FIRST_RESET", "ms that all programs may fail before the first reset",
          scalar<TIME_FIRST_RESET>),
    limit("TIME_RESET", "ms between the resets after it", scalar<TIME_RESET>),
    limit("TIME_PART_RESET", "ms that some programs may fail before their one reset",
          scalar<TIME_PART_RESET>),
    limit("TIME_NO_RESET", "ms without a fault until resets start anew", scalar<TIME_NO_RESET>),
    {"ciProFlag", "a byte for the firmware's other modules", {}, byteValue("ciProFlag"), nullptr,
     proFlag, nullptr},
    {"caPmtQuery", "words for the firmware's other modules", {&aSlot, &aCam}, word("caPmtQuery"),
     queryWord, nullptr, nullptr},
    {"pCiData", "the cards' status fields (to read only)", {&aSlot}, {}, nullptr, nullptr,
     cardLines},
    {"DescStatus", "status of programs and PIDs (to read only)", {&aSlot, &programIndex}, {}, nullptr,
     nullptr, statusLines},
};
// clang-format on

Indexes checkedIndexes(const Variable &variable, const std::vector<Word> &words) {
  if (words.size() > variable.indexes.size()) {
    throw InputError(std::string(variable.name) + " takes " +
                     countText(variable.indexes.size(), "index", "indexes") + ", not " +
                     std::to_string(words.size()) + "; write " + variableText(variable));
  }
  Indexes at;
  for (std::size_t i = 0; i < words.size(); ++i) {
    at.push_back(static_cast<std::uint32_t>(checkArg(*variable.indexes[i], words[i]).number));
  }
  return at;
}

Lines numberLines(const Variable &variable, Indexes at) {
  if (at.size() == variable.indexes.size()) {
    return {valueText(variable.words != nullptr ? *variable.words(at) : *variable.byte(at))};
  }
  Lines lines;
  const std::size_t next = at.size();
  at.push_back(0);
  for (std::uint32_t i = 0; i <= variable.indexes[next]->max; ++i) {
    at[next] = i;
    const Lines inner = numberLines(variable, at);
    const bool last = at.size() == variable.indexes.size();
    const std::string name = "[" + std::to_string(i) + "]" + (last ? ": " : "");
    std::transform(inner.begin(), inner.end(), std::back_inserter(lines),
                   [&name](const std::string &line) { return name + line; });
  }
  return lines;
}

}  // namespace

const std::vector<Variable> &variables() {
  return allVariables;
}

const Variable *findVariable(const std::string &name) {
  const auto named = [&name](const Variable &variable) { return name == variable.name; };
  const auto found = std::find_if(allVariables.begin(), allVariables.end(), named);
  return found == allVariables.end() ? nullptr : &*found;
}

std::string variableText(const Variable &variable) {
  std::string text = variable.name;
  for (const Param *index : variable.indexes) {
    text += std::string("[") + index->name + "]";
  }
  return text;
}

Lines readVariable(const Variable &variable, const std::vector<Word> &indexes) {
  const Indexes at = checkedIndexes(variable, indexes);
  return variable.summary != nullptr ? variable.summary(at) : numberLines(variable, at);
}

Lines setVariable(const Variable &variable, const std::vector<Word> &indexes, const Word &value) {
  const Indexes at = checkedIndexes(variable, indexes);
  if (variable.summary != nullptr) {
    throw InputError(std::string(variable.name) + " can only be read");
  }
  if (at.size() < variable.indexes.size()) {
    throw InputError("an index is missing; write " + variableText(variable) + " = value");
  }
  const auto number = static_cast<std::uint32_t>(checkArg(variable.value, value).number);
  if (variable.words != nullptr) {
    *variable.words(at) = number;
  } else {
    *variable.byte(at) = static_cast<std::uint8_t>(number);
  }
  return numberLines(variable, at);
}

}  // namespace chassis
