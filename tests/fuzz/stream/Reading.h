// A second reading of packets and sections, for comparison: written apart from chassis/ts, in
// another manner, and slow.
#ifndef TESTS_FUZZ_STREAM_READING_H
#define TESTS_FUZZ_STREAM_READING_H

#include <optional>
#include <utility>
#include <vector>

#include "ts/PacketView.h"
#include "ts/Psi.h"
#include "ts/Section.h"

namespace reading {

// Where the packets of a file stand, and from sync byte to sync byte how far it is there: 188, 192
// or 204 bytes.
struct Place {
  size_t at;
  size_t stride;
};
std::vector<Place> places(const std::vector<uint8_t> &file);
// The bytes of the file that are in none of them, nor around them as their size has it.
size_t strayBytes(const std::vector<uint8_t> &file, const std::vector<Place> &places);

// The bits of a packet or section, counted from its first one.
uint64_t bits(const uint8_t *bytes, size_t first, size_t count);

// Whether a view tells what the bits of its packet say.
bool agrees(const chassis::TsPacket &packet, const chassis::PacketView &view);

// A long section of its own length whose CRC is right.
bool whole(const chassis::Section &section);
// The same, and it is valid now.
bool current(const chassis::Section &section);

// program_number and PID, in the order of the section.
std::vector<std::pair<uint16_t, uint16_t>> association(const chassis::Section &section);

// Nothing when a length inside leads out of what it is in. The PMT's own PID is left open.
std::optional<chassis::PsiProgram> programMap(const chassis::Section &section);

// The CA descriptors up to the first that leads out of the section.
std::vector<chassis::PsiCa> conditionalAccess(const chassis::Section &section);

// A service's name and provider, as the bytes that they are.
struct Service {
  uint16_t id = 0;
  std::vector<uint8_t> name;
  std::vector<uint8_t> provider;
};

// Nothing when a length of the section's loops leads out of what it is in. A descriptor whose own
// lengths do so names nothing.
std::optional<std::vector<Service>> services(const chassis::Section &section);

}  // namespace reading

#endif
