#include "report/FieldWords.h"

#include <algorithm>
#include <iterator>

#include "CiIf.h"

namespace chassis {
namespace {

constexpr FieldWords unchecked{fieldNotChecked, "not checked", Tone::Faint};

constexpr FieldWords controllerTable[] = {
    {0, "CI controller in sync and carrying traffic", Tone::Plain},
    {1, "CI controller out of sync or rate too low", Tone::Bad},
    {fieldNotChecked, "CI controller not checked", Tone::Faint},
};
constexpr FieldWords insertTable[] = {
    {0, "no CAM", Tone::Bad},
    {1, "CAM usable", Tone::Plain},
    {2, "CAM starting up", Tone::Plain},
    unchecked,
};
constexpr FieldWords casidTable[] = {
    {0, "supports no CA system of its programs", Tone::Bad},
    {1, "CA system supported", Tone::Plain},
    unchecked,
};
constexpr FieldWords caPidTable[] = {
    {0, "CA PIDs present", Tone::Plain},
    {1, "no CA PID before the CAM", Tone::Bad},
    unchecked,
};
constexpr FieldWords summaryTable[] = {
    {DESC_SUM_OK, "all PIDs descrambled", Tone::Good},
    {DESC_SUM_PART, "some PIDs not descrambled", Tone::Bad},
    {DESC_SUM_PART | DESC_SUM_SCRAMBLED, "some PIDs not descrambled, CAM suspected", Tone::Bad},
    {DESC_SUM_ALL, "no PID descrambled", Tone::Bad},
    {DESC_SUM_ALL | DESC_SUM_SCRAMBLED, "no PID descrambled, CAM suspected", Tone::Bad},
    unchecked,
};

template <std::size_t count>
const FieldWords &wordsOf(const FieldWords (&words)[count], std::uint16_t value) {
  static constexpr FieldWords unknown{0, "in a state without a name", Tone::Bad};
  const auto hasValue = [value](const FieldWords &entry) { return entry.value == value; };
  const auto *found = std::find_if(std::begin(words), std::end(words), hasValue);
  return found == std::end(words) ? unknown : *found;
}

}  // namespace

const FieldWords &controllerWords(std::uint16_t cimaxStat) {
  return wordsOf(controllerTable, cimaxStat);
}

const FieldWords &insertWords(std::uint16_t camInsert) {
  return wordsOf(insertTable, camInsert);
}

const FieldWords &casidWords(std::uint16_t casidStat) {
  return wordsOf(casidTable, casidStat);
}

const FieldWords &caPidWords(std::uint16_t preCamPidStat) {
  return wordsOf(caPidTable, preCamPidStat);
}

const FieldWords &summaryWords(std::uint16_t descStat) {
  return wordsOf(summaryTable, descStat);
}

}  // namespace chassis
