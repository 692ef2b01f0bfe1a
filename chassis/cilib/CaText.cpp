#include "cilib/CaText.h"

#include <iterator>

#include "base/Text.h"

namespace chassis {
namespace {

constexpr const char *listManagementNames[] = {"more", "first", "last", "only", "add", "update"};

bool refuses(std::uint8_t caEnable) {
  return caEnable >= 0x70;
}

}  // namespace

std::string listManagementText(std::uint8_t listManagement) {
  return listManagement < std::size(listManagementNames) ? listManagementNames[listManagement]
                                                         : hex(listManagement, 2);
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

}  // namespace chassis
