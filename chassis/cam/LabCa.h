// The laboratory CA system: its ECM and EMM sections. It protects nothing; docs/laboratory-ca.md
// publishes all of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "ts/Section.h"

namespace chassis::labca {

constexpr std::uint16_t defaultCaSystem = 0x0500;
constexpr std::uint8_t ecmEvenTable = 0x80;  // ECM of a crypto period with an even number
constexpr std::uint8_t ecmOddTable = 0x81;
constexpr std::uint8_t emmTable = 0x82;

// A DVB-CSA control word: bytes 3 and 7 are the sums, modulo 256, of the three bytes before them.
using ControlWord = std::array<std::uint8_t, 8>;
void setChecksums(ControlWord &word);
bool checksumsRight(const ControlWord &word);

enum class Cipher : std::uint8_t {
  None = 0,
  Xor = 1  // a published constant over everything behind the cipher's number
};

struct Ecm {
  std::uint16_t tier = 0;    // access tier; the program_number unless somebody decides otherwise
  std::uint32_t period = 0;  // crypto period; its parity says which word scrambles now
  Cipher cipher = Cipher::Xor;
  ControlWord even{};
  ControlWord odd{};
};
bool operator==(const Ecm &a, const Ecm &b);

// The words of an ECM must have right checksums; encodeEcm does not look.
Section encodeEcm(const Ecm &ecm);

// Nothing unless size is the whole section, its CRC is right and every field is one that encodeEcm
// writes, the words' checksums included.
std::optional<Ecm> decodeEcm(const std::uint8_t *bytes, std::size_t size);

// An EMM carries no more than a counter that shows that it is being sent.
Section encodeEmm(std::uint32_t heartbeat);
std::optional<std::uint32_t> decodeEmm(const std::uint8_t *bytes, std::size_t size);

}  // namespace chassis::labca
