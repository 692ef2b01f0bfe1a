// The application objects of the CA support resource (EN 50221, 8.4.3) as a CAM sees them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace chassis::cam {

constexpr std::uint32_t tagCaInfoEnquiry = 0x9F8030;
constexpr std::uint32_t tagCaInfo = 0x9F8031;
constexpr std::uint32_t tagCaPmt = 0x9F8032;
constexpr std::uint32_t tagCaPmtReply = 0x9F8033;

enum class ListManagement : std::uint8_t { More, First, Last, Only, Add, Update };
enum class Command : std::uint8_t {
  None = 0,  // a level without descriptors carries no command
  OkDescrambling = 1,
  OkMmi = 2,
  Query = 3,
  NotSelected = 4
};
enum class CaEnable : std::uint8_t {
  None = 0,  // not told
  Possible = 0x01,
  NoEntitlement = 0x71,
  Technical = 0x73
};

struct CaDescriptor {
  std::uint16_t casid = 0;
  std::uint16_t ecmPid = 0;
};

struct CaLevel {
  Command command = Command::None;
  std::vector<CaDescriptor> ca;
};

struct CaPmtStream {
  std::uint16_t pid = 0;
  CaLevel level;
};

struct CaPmt {
  ListManagement list = ListManagement::Only;
  std::uint16_t program = 0;
  std::uint8_t versionByte = 0;  // version_number and current_next_indicator as they came
  CaLevel level;
  std::vector<CaPmtStream> streams;

  bool commands(Command command) const;  // at any level
  bool commandsNothing() const;
};

struct CaPmtReply {
  struct Stream {
    std::uint16_t pid = 0;
    CaEnable enable = CaEnable::None;
  };
  std::uint16_t program = 0;
  std::uint8_t versionByte = 0;
  CaEnable enable = CaEnable::None;
  std::vector<Stream> streams;
};

// What is wrong with an object from the host, in a few words.
class BadObject : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Object {
  std::uint32_t tag = 0;
  std::vector<std::uint8_t> body;
};

// Takes apart the tag, the length field and the body; the body must fill the rest. Throws
// BadObject.
Object decodeObject(const std::vector<std::uint8_t> &apdu);
std::vector<std::uint8_t> encodeObject(const Object &object);

// Throws BadObject: cut off, a length that leads out of its loop, an unknown code.
CaPmt decodeCaPmt(const std::vector<std::uint8_t> &body);

std::vector<std::uint8_t> encodeCaInfo(const std::vector<std::uint16_t> &caSystems);
std::vector<std::uint8_t> encodeCaPmtReply(const CaPmtReply &reply);

}  // namespace chassis::cam
