#include "cam/LabCa.h"

#include <algorithm>

namespace chassis::labca {
namespace {

constexpr std::uint8_t format = 1;
constexpr std::uint8_t syntaxAndReserved = 0xF0;  // section_syntax_indicator, private_indicator
constexpr std::uint8_t currentVersion0 = 0xC1;    // reserved bits, version 0, current
constexpr std::size_t cipherOffset = sectionHeaderSize + 1;
constexpr std::size_t ecmSize = sectionHeaderSize + 2 + 2 + 4 + 8 + 8 + sectionCrcSize;
constexpr std::size_t emmSize = sectionHeaderSize + 1 + 4 + sectionCrcSize;
constexpr std::array<std::uint8_t, 8> published = {0x4C, 0x41, 0x42, 0x43, 0x41, 0x4B, 0x45, 0x59};

template <typename Number>
void put(Section &section, Number number) {
  for (int shift = 8 * (sizeof(Number) - 1); shift >= 0; shift -= 8) {
    section.push_back(static_cast<std::uint8_t>(number >> shift));
  }
}

template <typename Number>
Number take(const std::uint8_t *&at) {
  Number number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    number = static_cast<Number>(number << 8 | *at++);
  }
  return number;
}

ControlWord takeWord(const std::uint8_t *&at) {
  ControlWord word;
  std::copy_n(at, word.size(), word.begin());
  at += word.size();
  return word;
}

std::uint8_t tableOf(std::uint32_t period) {
  return period & 1 ? ecmOddTable : ecmEvenTable;
}

Section header(std::uint8_t table, std::uint16_t extension) {
  Section section = {table, syntaxAndReserved, 0};
  put(section, extension);
  section.insert(section.end(), {currentVersion0, 0, 0});
  section.push_back(format);
  return section;
}

void cipherBody(Cipher cipher, std::uint8_t *body, std::size_t size) {
  for (std::size_t i = 0; cipher == Cipher::Xor && i < size; ++i) {
    body[i] ^= published[i % published.size()];
  }
}

// Everything about the frame that is the same in all sections of this system.
bool framed(const std::uint8_t *bytes, std::size_t size, std::size_t expected) {
  return size == expected && soundLongSection(bytes, size) &&
         (bytes[1] & 0xF0) == syntaxAndReserved && bytes[5] == currentVersion0 && bytes[6] == 0 &&
         bytes[7] == 0 && bytes[sectionHeaderSize] == format;
}

std::uint16_t extensionOf(const std::uint8_t *bytes) {
  return static_cast<std::uint16_t>(bytes[3] << 8 | bytes[4]);
}

}  // namespace

void setChecksums(ControlWord &word) {
  word[3] = static_cast<std::uint8_t>(word[0] + word[1] + word[2]);
  word[7] = static_cast<std::uint8_t>(word[4] + word[5] + word[6]);
}

bool checksumsRight(const ControlWord &word) {
  ControlWord right = word;
  setChecksums(right);
  return right == word;
}

bool operator==(const Ecm &a, const Ecm &b) {
  return a.tier == b.tier && a.period == b.period && a.cipher == b.cipher && a.even == b.even &&
         a.odd == b.odd;
}

Section encodeEcm(const Ecm &ecm) {
  Section section = header(tableOf(ecm.period), ecm.tier);
  section.push_back(static_cast<std::uint8_t>(ecm.cipher));
  put(section, ecm.tier);
  put(section, ecm.period);
  section.insert(section.end(), ecm.even.begin(), ecm.even.end());
  section.insert(section.end(), ecm.odd.begin(), ecm.odd.end());
  const std::size_t body = cipherOffset + 1;
  cipherBody(ecm.cipher, section.data() + body, section.size() - body);
  sealSection(section);
  return section;
}

std::optional<Ecm> decodeEcm(const std::uint8_t *bytes, std::size_t size) {
  if (!framed(bytes, size, ecmSize) ||
      bytes[cipherOffset] > static_cast<std::uint8_t>(Cipher::Xor)) {
    return std::nullopt;
  }
  Ecm ecm;
  ecm.cipher = static_cast<Cipher>(bytes[cipherOffset]);
  Section body(bytes + cipherOffset + 1, bytes + size - sectionCrcSize);
  cipherBody(ecm.cipher, body.data(), body.size());
  const std::uint8_t *at = body.data();
  ecm.tier = take<std::uint16_t>(at);
  ecm.period = take<std::uint32_t>(at);
  ecm.even = takeWord(at);
  ecm.odd = takeWord(at);
  const bool right = bytes[0] == tableOf(ecm.period) && extensionOf(bytes) == ecm.tier &&
                     checksumsRight(ecm.even) && checksumsRight(ecm.odd);
  return right ? std::optional<Ecm>(ecm) : std::nullopt;
}

Section encodeEmm(std::uint32_t heartbeat) {
  Section section = header(emmTable, 0);
  put(section, heartbeat);
  sealSection(section);
  return section;
}

std::optional<std::uint32_t> decodeEmm(const std::uint8_t *bytes, std::size_t size) {
  if (!framed(bytes, size, emmSize) || bytes[0] != emmTable || extensionOf(bytes) != 0) {
    return std::nullopt;
  }
  const std::uint8_t *at = bytes + sectionHeaderSize + 1;
  return take<std::uint32_t>(at);
}

}  // namespace chassis::labca
