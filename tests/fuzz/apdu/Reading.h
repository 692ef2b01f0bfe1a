// A second reading of the application objects, for comparison: written apart from chassis/cilib and
// chassis/cam, in another manner.
#ifndef TESTS_FUZZ_APDU_READING_H
#define TESTS_FUZZ_APDU_READING_H

#include <cstdint>
#include <optional>
#include <vector>

#include "CiPlatform.h"

namespace reading {

using Bytes = std::vector<uint8_t>;

struct Framed {
  uint32_t tag = 0;
  Bytes body;
  bool shortest = false;  // no shorter length_field tells the same length
};

// Nothing when the length_field is not one of at most so many bytes behind its first, or does not
// tell how many bytes follow.
std::optional<Framed> framed(const Bytes &apdu, size_t lengthBytes);

struct Descriptor {
  uint16_t casid = 0;
  uint16_t pid = 0;
  Bytes privateData;
};
struct Level {
  uint8_t command = 0;
  std::vector<Descriptor> ca;
};
struct Stream {
  uint8_t type = 0;
  uint16_t pid = 0;
  Level level;
};
struct CaPmt {
  uint8_t list = 0;
  uint16_t program = 0;
  uint8_t version = 0;
  Level level;
  std::vector<Stream> streams;
};
bool operator==(const CaPmt &a, const CaPmt &b);

// The body of a ca_pmt; nothing when it is cut off, a length leads out of what it is in, or a code
// is unknown.
std::optional<CaPmt> caPmt(const Bytes &body);

// What a ca_pmt of a record must say: everything that can be said and for which there is room.
CaPmt wanted(const CaPmtProg &record);

}  // namespace reading

#endif
