// Sections in transport stream packets (ISO/IEC 13818-1, 2.4.4): CRC-32, taking sections out of
// packets and putting them into packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "ts/TsPacket.h"

namespace chassis {

// One whole section, from table_id to the last byte of CRC_32.
using Section = std::vector<std::uint8_t>;

constexpr std::size_t maxSectionSize = 4096;  // private sections; PSI stops at 1024
constexpr std::size_t sectionHeaderSize = 8;  // of the long form, up to last_section_number
constexpr std::size_t sectionCrcSize = 4;

// The CRC of ISO/IEC 13818-1 annex A; 0 over a section that ends with its own.
std::uint32_t crc32(const std::uint8_t *bytes, std::size_t size);

// The long form (section_syntax_indicator 1), length as section_length says, CRC right.
bool soundLongSection(const std::uint8_t *bytes, std::size_t size);

// Completes a long section that has everything but its CRC_32: sets section_length, appends the
// CRC. The section stays below maxSectionSize.
void sealSection(Section &section);

// The packets of one section, the first with payload_unit_start_indicator, the last one stuffed.
// continuity is the continuity_counter of the next packet of the PID and is moved on.
std::vector<TsPacket> sectionPackets(const Section &section, std::uint16_t pid,
                                     std::uint8_t &continuity);

// Puts the sections of one PID together. Bytes may be hostile: what is lost, scrambled, cut off or
// has a wrong CRC is dropped, and reading goes on with the next section that begins. Short
// sections, which have no CRC, are taken as they are.
class SectionAssembler {
 public:
  using Sink = std::function<void(const Section &)>;

  // Takes every packet of the PID in stream order.
  void push(const TsPacket &packet, const Sink &sink);
  void clear();

 private:
  bool continues(const TsPacket &packet);
  void append(const std::uint8_t *from, const std::uint8_t *to, const Sink &sink);
  bool takeWhole(const Sink &sink);

  Section partial_;
  bool open_ = false;  // partial_ is the beginning of a section
  std::optional<std::uint8_t> continuity_;
};

}  // namespace chassis
