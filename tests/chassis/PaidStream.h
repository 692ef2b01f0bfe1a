// A program with a CA system, for ten seconds and with a clock: as it goes into a receiver, and as
// it comes out of one.
#pragma once

#include "chassis/StreamWriter.h"

namespace testing_streams {

// Scrambled: as it goes in. One packet in a ms.
inline Bytes paidStream(bool scrambled, std::uint64_t beginMs = 0, unsigned program = 101) {
  const unsigned scrambling = scrambled ? 2 : 0;
  const ProgramMap map{
      program, 0x100, 0x201, {{0x02, 0x201, {}}, {0x03, 0x202, {}}}, caDescriptor(0x0500, 0x300),
      0};
  constexpr std::uint64_t pcrPerMs = 27000;
  StreamWriter writer;
  while (writer.packets() < 10000) {
    writer.psi({map}).pes(0x201, scrambling).pes(0x202, scrambling).payload(0x300);
    writer.pcr(0x201, (beginMs + writer.packets()) * pcrPerMs);
    while (writer.packets() % 50 != 0) {
      writer.null();
    }
  }
  return writer.bytes();
}

}  // namespace testing_streams
