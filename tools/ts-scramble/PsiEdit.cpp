#include "PsiEdit.h"

#include <string>

#include "base/InputError.h"

namespace tsscramble {

using chassis::Section;
using chassis::sectionCrcSize;
using chassis::sectionHeaderSize;

namespace {

constexpr std::size_t maxPsiSize = 1024;
constexpr std::size_t programHeadSize = 4;  // PCR_PID, program_info_length
constexpr std::size_t streamHeadSize = 5;   // stream_type, elementary_PID, ES_info_length
constexpr std::uint16_t pidMask = 0x1FFF;
constexpr std::uint16_t lengthMask = 0x0FFF;

std::uint16_t word(const std::uint8_t *bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

// Copies a head that ends with the length of its descriptors, those descriptors and the added ones,
// with the new length. False when the section ends before.
bool copyLoop(const Section &from, std::size_t &at, std::size_t headSize, const Descriptors &added,
              Section &to) {
  const std::size_t end = from.size() - sectionCrcSize;
  if (end - at < headSize) {
    return false;
  }
  const std::uint8_t *head = from.data() + at;
  const std::size_t length = word(head + headSize - 2) & lengthMask;
  if (end - at - headSize < length) {
    return false;
  }
  const std::size_t newLength = length + added.size();
  to.insert(to.end(), head, head + headSize + length);
  to.insert(to.end(), added.begin(), added.end());
  std::uint8_t *lengthField = to.data() + to.size() - newLength - 2;
  lengthField[0] = static_cast<std::uint8_t>((lengthField[0] & 0xF0) | (newLength >> 8 & 0x0F));
  lengthField[1] = static_cast<std::uint8_t>(newLength);
  at += headSize + length;
  return true;
}

Section sealed(Section section, const std::string &what) {
  if (section.size() + sectionCrcSize > maxPsiSize) {
    throw chassis::InputError(what + " has no room for CA descriptors: its section would have " +
                              std::to_string(section.size() + sectionCrcSize) + " bytes, " +
                              std::to_string(maxPsiSize) + " are allowed");
  }
  chassis::sealSection(section);
  return section;
}

Section headerOf(const Section &section) {
  return Section(section.begin(), section.begin() + sectionHeaderSize);
}

void countVersion(Section &section) {
  constexpr std::size_t versionOffset = 5;
  constexpr unsigned versionMask = 0x3E;  // between reserved bits and current_next_indicator
  const unsigned byte = section[versionOffset];
  section[versionOffset] =
      static_cast<std::uint8_t>((byte & ~versionMask) | ((byte + 2) & versionMask));
}

}  // namespace

Descriptors caDescriptor(std::uint16_t casid, std::uint16_t pid) {
  return {0x09,
          0x04,
          static_cast<std::uint8_t>(casid >> 8),
          static_cast<std::uint8_t>(casid),
          static_cast<std::uint8_t>(0xE0 | pid >> 8),
          static_cast<std::uint8_t>(pid)};
}

bool isTable(const Section &section, std::uint8_t table) {
  return chassis::soundLongSection(section.data(), section.size()) && section[0] == table;
}

std::uint16_t tableExtension(const Section &section) {
  return word(section.data() + 3);
}

Section editPmt(const Section &pmt, const PmtEdit &edit) {
  Section edited = headerOf(pmt);
  std::size_t at = sectionHeaderSize;
  if (!copyLoop(pmt, at, programHeadSize, edit.program, edited)) {
    return pmt;
  }
  while (at < pmt.size() - sectionCrcSize) {
    const bool whole = pmt.size() - sectionCrcSize - at >= streamHeadSize;
    const std::uint16_t pid = whole ? word(pmt.data() + at + 1) & pidMask : 0;
    const auto added = edit.streams.find(pid);
    const Descriptors &descriptors = added == edit.streams.end() ? Descriptors() : added->second;
    if (!copyLoop(pmt, at, streamHeadSize, descriptors, edited)) {
      return pmt;
    }
  }
  if (edit.nextVersion) {
    countVersion(edited);
  }
  return sealed(edited, "the PMT of program " + std::to_string(tableExtension(pmt)));
}

Section editCat(const Section &cat, const Descriptors &added) {
  Section edited(cat.begin(), cat.end() - sectionCrcSize);
  edited.insert(edited.end(), added.begin(), added.end());
  return sealed(edited, "the CAT");
}

Section newCat(const Descriptors &descriptors) {
  Section cat = {catTable, 0xB0, 0, 0xFF, 0xFF, 0xC1, 0, 0};
  cat.insert(cat.end(), descriptors.begin(), descriptors.end());
  return sealed(cat, "the CAT");
}

std::vector<std::uint16_t> patPids(const Section &pat) {
  constexpr std::size_t entrySize = 4;
  std::vector<std::uint16_t> pids;
  const std::size_t end = pat.size() - sectionCrcSize;
  for (std::size_t at = sectionHeaderSize; end - at >= entrySize; at += entrySize) {
    pids.push_back(word(pat.data() + at + 2) & pidMask);
  }
  return pids;
}

}  // namespace tsscramble
