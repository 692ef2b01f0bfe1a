#include "status/FieldWords.h"

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
constexpr FieldWords clearOnlyTable[] = {
    {0, "has only clear programs, without CA descriptors", Tone::Bad},
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

constexpr FieldWords beginningTable[] = {
    {DESC_SUM_PART | DESC_SUM_SCRAMBLED, "some PIDs not descrambled yet", Tone::Plain},
    {DESC_SUM_ALL | DESC_SUM_SCRAMBLED, "no PID descrambled yet", Tone::Plain},
};

template <std::size_t count>
bool names(const FieldWords (&words)[count], std::uint16_t value) {
  const auto hasValue = [value](const FieldWords &entry) { return entry.value == value; };
  return std::any_of(std::begin(words), std::end(words), hasValue);
}

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

const FieldWords &casidWords(std::uint16_t casidStat, bool clearOnly) {
  return clearOnly && names(clearOnlyTable, casidStat) ? wordsOf(clearOnlyTable, casidStat)
                                                       : wordsOf(casidTable, casidStat);
}

const FieldWords &caPidWords(std::uint16_t preCamPidStat) {
  return wordsOf(caPidTable, preCamPidStat);
}

const FieldWords &summaryWords(std::uint16_t descStat, bool mayStillBegin) {
  return mayStillBegin && names(beginningTable, descStat) ? wordsOf(beginningTable, descStat)
                                                          : wordsOf(summaryTable, descStat);
}

}  // namespace chassis
