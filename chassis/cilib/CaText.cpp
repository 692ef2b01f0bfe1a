#include "cilib/CaText.h"

#include <algorithm>
#include <iterator>

#include "base/Text.h"

namespace chassis {
namespace {

struct CaEnableName {
  std::uint8_t code;
  const char *name;
};
constexpr CaEnableName caEnableNames[] = {{0x01, "descrambling possible"},
                                          {0x02, "possible after a purchase dialogue"},
                                          {0x03, "possible after a technical dialogue"},
                                          {0x71, "no entitlement"},
                                          {0x73, "technical reasons"}};

constexpr const char *listManagementNames[] = {"more", "first", "last", "only", "add", "update"};

constexpr std::size_t shownAtMost = 8;  // a CAM may list thousands

bool refuses(std::uint8_t caEnable) {
  return caEnable >= 0x70;
}

// The texts of the first items, and how many are not shown.
template <typename Item, typename ToText>
std::string listed(const std::vector<Item> &items, ToText toText) {
  std::vector<std::string> parts;
  const std::size_t shown = std::min(items.size(), shownAtMost);
  std::transform(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(shown),
                 std::back_inserter(parts), toText);
  if (shown < items.size()) {
    parts.push_back(std::to_string(items.size() - shown) + " more");
  }
  return joined(parts);
}

}  // namespace

std::string caSystemsText(const std::vector<std::uint16_t> &systems) {
  if (systems.empty()) {
    return "no CA system";
  }
  return (systems.size() == 1 ? "CA system " : "CA systems ") +
         listed(systems, [](std::uint16_t id) { return hex(id, 4); });
}

std::string listManagementText(std::uint8_t listManagement) {
  return listManagement < std::size(listManagementNames) ? listManagementNames[listManagement]
                                                         : hex(listManagement, 2);
}

std::string caEnableText(std::uint8_t caEnable) {
  if (caEnable == 0) {
    return "no statement";
  }
  const auto *known =
      std::find_if(std::begin(caEnableNames), std::end(caEnableNames),
                   [caEnable](const CaEnableName &name) { return name.code == caEnable; });
  const bool named = known != std::end(caEnableNames);
  return std::string(named ? known->name : "a reserved value") + " (" + hex(caEnable, 2) + ")";
}

std::uint8_t verdict(const CaReply &reply) {
  std::uint8_t found = reply.caEnable;
  for (const CaReplyStream &stream : reply.streams) {
    const bool worse = !refuses(found) && refuses(stream.caEnable);
    if (reply.caEnable == 0 && (found == 0 || worse)) {
      found = stream.caEnable;
    }
  }
  return found;
}

std::string streamsText(const CaReply &reply) {
  std::vector<CaReplyStream> telling;
  std::copy_if(reply.streams.begin(), reply.streams.end(), std::back_inserter(telling),
               [](const CaReplyStream &stream) { return stream.caEnable != 0; });
  return listed(telling, [](const CaReplyStream &stream) {
    return "PID " + hex(stream.pid, 4) + ": " + caEnableText(stream.caEnable);
  });
}

std::string firstAndMore(const std::vector<std::string> &clauses) {
  if (clauses.size() < 2) {
    return joined(clauses);
  }
  return clauses.front() + "; and " + std::to_string(clauses.size() - 1) + " more";
}

}  // namespace chassis
