#include "alarms/AlarmText.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "base/Text.h"

namespace chassis {
namespace {

constexpr std::uint32_t cardId = 1;

enum class Role { Object, Fault };

struct Identifier {
  std::uint32_t id;
  Role role;
  int cam;  // CAM slot, -1: none
  const char *words;
};
constexpr Identifier identifiers[] = {{0x701, Role::Object, -1, "CI controller"},
                                      {0x705, Role::Object, 0, "CAM 0"},
                                      {0x706, Role::Object, 1, "CAM 1"},
                                      {0x703, Role::Fault, -1, "CAM absent"},
                                      {0x708, Role::Fault, -1, "CA PIDs missing before the CAM"},
                                      {0x707, Role::Fault, -1, "CA system mismatch"},
                                      {0x111, Role::Fault, -1, "CI controller sync or rate"},
                                      {0x702, Role::Fault, -1, "descrambling failure"}};

const Identifier *lookUp(std::uint32_t id) {
  const auto *found =
      std::find_if(std::begin(identifiers), std::end(identifiers),
                   [id](const Identifier &identifier) { return identifier.id == id; });
  return found != std::end(identifiers) ? found : nullptr;
}

const AlarmPair *endOfPairs(const AlarmRecord &record) {
  return record.pairs + std::min<std::size_t>(record.pairCount, std::size(record.pairs));
}

// What a function tells of each pair, where it tells something.
template <typename PairText>
std::string listed(const AlarmRecord &record, PairText pairText) {
  std::vector<std::string> parts;
  for (const AlarmPair *pair = record.pairs; pair != endOfPairs(record); ++pair) {
    const std::string part = pairText(*pair);
    if (!part.empty()) {
      parts.push_back(part);
    }
  }
  return joined(parts);
}

std::string wordsFor(const AlarmPair &pair, Role role) {
  const Identifier *known = lookUp(pair.id);
  return known != nullptr && known->role == role ? known->words : "";
}

// The alarm system counts cards from 1; -1: the chassis has no such card.
int slotOf(const AlarmPair &pair) {
  return pair.instance >= 1 && pair.instance <= MAX_BOARD_NUM ? pair.instance - 1 : -1;
}

std::string slotText(const AlarmPair &pair) {
  const int slot = slotOf(pair);
  return slot < 0 ? "no slot" : "slot " + std::to_string(slot);
}

}  // namespace

Place alarmPlace(const AlarmRecord &record) {
  Place place;
  for (const AlarmPair *pair = record.pairs; pair != endOfPairs(record); ++pair) {
    const Identifier *known = lookUp(pair->id);
    if (pair->id == cardId) {
      place.slot = slotOf(*pair);
    } else if (known != nullptr && known->cam >= 0) {
      place.cam = known->cam;
    }
  }
  return place;
}

std::vector<std::string> alarmFaults() {
  std::vector<std::string> faults;
  for (const Identifier &identifier : identifiers) {
    if (identifier.role == Role::Fault) {
      faults.emplace_back(identifier.words);
    }
  }
  return faults;
}

std::string alarmFault(const AlarmRecord &record) {
  const std::string fault =
      listed(record, [](const AlarmPair &pair) { return wordsFor(pair, Role::Fault); });
  return fault.empty() ? "fault " + alarmIdentifiers(record) : fault;
}

std::string alarmObject(const AlarmRecord &record) {
  const std::string object = listed(record, [](const AlarmPair &pair) {
    return pair.id == cardId ? slotText(pair) : wordsFor(pair, Role::Object);
  });
  return object.empty() ? "chassis" : object;
}

std::string alarmIdentifiers(const AlarmRecord &record) {
  return listed(record, [](const AlarmPair &pair) {
    const std::string id = pair.id < 10 ? std::to_string(pair.id) : hex(pair.id, 3);
    return pair.instance == -1 ? id : id + " (" + std::to_string(pair.instance) + ")";
  });
}

}  // namespace chassis
