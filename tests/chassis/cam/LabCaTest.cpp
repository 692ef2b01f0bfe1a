#include "cam/LabCa.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace chassis;
using namespace chassis::labca;

Ecm sample(Cipher cipher, std::uint32_t period = 7) {
  Ecm ecm;
  ecm.tier = 0x1234;
  ecm.period = period;
  ecm.cipher = cipher;
  ecm.even = {1, 2, 3, 0, 250, 5, 6, 0};
  ecm.odd = {9, 8, 7, 0, 6, 5, 4, 0};
  setChecksums(ecm.even);
  setChecksums(ecm.odd);
  return ecm;
}

std::optional<Ecm> decoded(const Section &section) {
  return decodeEcm(section.data(), section.size());
}

// Makes the CRC right again and leaves everything else.
Section resealed(Section section) {
  section.resize(section.size() - sectionCrcSize);
  const std::uint32_t crc = crc32(section.data(), section.size());
  for (int shift = 24; shift >= 0; shift -= 8) {
    section.push_back(static_cast<std::uint8_t>(crc >> shift));
  }
  return section;
}

TEST(LabCa, ChecksumsAreSumsOfTheThreeBytesBefore) {
  ControlWord word = {1, 2, 3, 0, 250, 5, 6, 0};
  EXPECT_FALSE(checksumsRight(word));
  setChecksums(word);
  EXPECT_EQ(word[3], 6);
  EXPECT_EQ(word[7], 5);
  EXPECT_TRUE(checksumsRight(word));
}

TEST(LabCa, EcmComesBackAsItWas) {
  for (const Cipher cipher : {Cipher::None, Cipher::Xor}) {
    for (const std::uint32_t period : {0u, 1u, 0xFFFFFFFFu}) {
      const Ecm ecm = sample(cipher, period);
      const std::optional<Ecm> back = decoded(encodeEcm(ecm));
      ASSERT_TRUE(back);
      EXPECT_TRUE(*back == ecm);
    }
  }
}

TEST(LabCa, EcmsAreEqualWhoseFieldsAllAre) {
  const Ecm ecm = sample(Cipher::None);
  std::vector<Ecm> others(5, ecm);
  others[0].tier = 0x1235;
  others[1].period = 8;
  others[2].cipher = Cipher::Xor;
  others[3].even[7] = 6;
  others[4].odd[0] = 10;
  EXPECT_TRUE(ecm == ecm);
  for (const Ecm &other : others) {
    EXPECT_FALSE(ecm == other);
    EXPECT_FALSE(other == ecm);
  }
}

TEST(LabCa, EcmLooksAsPublished) {
  const Section section = encodeEcm(sample(Cipher::None));
  const Section front(section.begin(), section.end() - sectionCrcSize);
  const Section expected = {0x81, 0xF0, 0x21, 0x12, 0x34, 0xC1, 0x00, 0x00, 0x01, 0x00, 0x12,
                            0x34, 0,    0,    0,    7,    1,    2,    3,    6,    250,  5,
                            6,    5,    9,    8,    7,    24,   6,    5,    4,    15};
  EXPECT_EQ(front, expected);
  const Section ciphered = encodeEcm(sample(Cipher::Xor));
  EXPECT_EQ(ciphered[9], 1);
  EXPECT_EQ(ciphered[10], 0x12 ^ 'L');
  EXPECT_EQ(ciphered[18], 3 ^ 'L');
}

TEST(LabCa, TableAlternatesWithThePeriod) {
  EXPECT_EQ(encodeEcm(sample(Cipher::Xor, 4))[0], ecmEvenTable);
  EXPECT_EQ(encodeEcm(sample(Cipher::Xor, 5))[0], ecmOddTable);
}

TEST(LabCa, EveryTruncationIsRejected) {
  const Section section = encodeEcm(sample(Cipher::Xor));
  for (std::size_t size = 0; size < section.size(); ++size) {
    EXPECT_FALSE(decodeEcm(section.data(), size)) << size;
  }
  Section longer = section;
  longer.push_back(0);
  EXPECT_FALSE(decoded(longer));
}

TEST(LabCa, EveryBitFlipIsRejected) {
  const Section section = encodeEcm(sample(Cipher::Xor));
  for (std::size_t bit = 0; bit < section.size() * 8; ++bit) {
    Section flipped = section;
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
    EXPECT_FALSE(decoded(flipped)) << bit;
  }
}

// With the CRC made right again, what was flipped must show or be refused.
TEST(LabCa, EveryBitFlipBehindARightCrcShowsOrIsRejected) {
  for (const Cipher cipher : {Cipher::None, Cipher::Xor}) {
    const Ecm ecm = sample(cipher);
    const Section section = encodeEcm(ecm);
    for (std::size_t bit = 0; bit < (section.size() - sectionCrcSize) * 8; ++bit) {
      Section flipped = section;
      flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
      const std::optional<Ecm> back = decoded(resealed(flipped));
      EXPECT_TRUE(!back || !(*back == ecm)) << bit;
    }
  }
}

TEST(LabCa, FieldsThatContradictAreRejected) {
  const Section section = encodeEcm(sample(Cipher::None));
  ASSERT_TRUE(decoded(resealed(section)));
  const std::size_t table = 0, extension = 4, format = 8, cipher = 9, evenChecksum = 19;
  for (const std::size_t at : {table, extension, format, cipher, evenChecksum}) {
    Section changed = section;
    changed[at] ^= at == cipher ? 2 : 1;
    EXPECT_FALSE(decoded(resealed(changed))) << at;
  }
}

TEST(LabCa, EmmLooksAsPublished) {
  const Section section = encodeEmm(0xFEDCBA98);
  const Section front(section.begin(), section.end() - sectionCrcSize);
  const Section expected = {0x82, 0xF0, 0x0E, 0, 0, 0xC1, 0, 0, 1, 0xFE, 0xDC, 0xBA, 0x98};
  EXPECT_EQ(front, expected);
}

TEST(LabCa, EmmCarriesItsHeartbeat) {
  const Section emm = encodeEmm(0xFEDCBA98);
  EXPECT_EQ(decodeEmm(emm.data(), emm.size()), 0xFEDCBA98u);
  EXPECT_FALSE(decodeEmm(emm.data(), emm.size() - 1));
  EXPECT_FALSE(decoded(emm));
  const Section ecm = encodeEcm(sample(Cipher::Xor));
  EXPECT_FALSE(decodeEmm(ecm.data(), ecm.size()));
}

}  // namespace
