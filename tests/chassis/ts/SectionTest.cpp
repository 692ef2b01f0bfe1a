#include "ts/Section.h"

#include <gtest/gtest.h>

#include <random>

#include "chassis/StreamWriter.h"
#include "ts/PacketView.h"

namespace {

using namespace chassis;

Section longSection(std::size_t bodySize, std::uint8_t table = 0x42) {
  Section section = {table, 0xB0, 0, 0x12, 0x34, 0xC1, 0, 0};
  for (std::size_t i = 0; i < bodySize; ++i) {
    section.push_back(static_cast<std::uint8_t>(i * 7 + 1));
  }
  sealSection(section);
  return section;
}

std::vector<Section> assembled(const std::vector<TsPacket> &packets) {
  std::vector<Section> sections;
  SectionAssembler assembler;
  for (const TsPacket &packet : packets) {
    assembler.push(packet, [&](const Section &section) { sections.push_back(section); });
  }
  return sections;
}

std::vector<TsPacket> packetsOf(const testing_streams::StreamWriter &writer) {
  std::vector<TsPacket> packets;
  for (std::size_t i = 0; i < writer.packets(); ++i) {
    packets.push_back(writer.packet(i));
  }
  return packets;
}

TEST(Section, ItsSealOverwritesWhateverLengthItHad) {
  Section section = {0x80, 0xFF, 0xFF, 0x12, 0x34, 0xC1, 0, 0, 7};
  sealSection(section);
  EXPECT_EQ(section[1], 0xF0);
  EXPECT_EQ(section[2], 10);
  EXPECT_TRUE(soundLongSection(section.data(), section.size()));
}

TEST(Section, CrcIsTheOneOfTheStandard) {
  const std::uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(crc32(digits, sizeof digits), 0x0376E6E7u);
  EXPECT_EQ(crc32(digits, 0), 0xFFFFFFFFu);
}

TEST(Section, SealedSectionIsSound) {
  const Section section = longSection(20);
  EXPECT_EQ(section.size(), 32u);
  EXPECT_EQ(section[2], 29);
  EXPECT_TRUE(soundLongSection(section.data(), section.size()));
  EXPECT_FALSE(soundLongSection(section.data(), section.size() - 1));
  Section changed = section;
  changed[10] ^= 1;
  EXPECT_FALSE(soundLongSection(changed.data(), changed.size()));
}

TEST(Section, PacketsAndBackForEverySize) {
  for (std::size_t size = 0; size <= 800; ++size) {
    std::uint8_t continuity = 14;
    const Section section = longSection(size);
    const std::vector<TsPacket> packets = sectionPackets(section, 0x123, continuity);
    EXPECT_EQ(packets.size(), (section.size() + 1 + 183) / 184);
    EXPECT_EQ(continuity, (14 + packets.size()) % 16);
    for (std::size_t i = 0; i < packets.size(); ++i) {
      const PacketView view(packets[i]);
      EXPECT_EQ(view.pid(), 0x123);
      EXPECT_EQ(view.continuityCounter(), (14 + i) % 16);
      EXPECT_EQ(view.unitStart(), i == 0);
    }
    const std::vector<Section> back = assembled(packets);
    ASSERT_EQ(back.size(), 1u) << size;
    EXPECT_EQ(back[0], section);
  }
}

TEST(SectionAssembler, SectionsThatFollowEachOtherInOnePacket) {
  const Section one = longSection(30), two = longSection(40), three = longSection(200);
  testing_streams::Bytes rest = {0};
  for (const Section &section : {one, two, three}) {
    rest.insert(rest.end(), section.begin(), section.end());
  }
  testing_streams::StreamWriter writer;
  writer.payload(0x50, {rest.begin(), rest.begin() + 184}, true);
  const auto left = static_cast<std::uint8_t>(rest.size() - 184);
  testing_streams::Bytes second = {left};
  second.insert(second.end(), rest.begin() + 184, rest.end());
  second.insert(second.end(), one.begin(), one.end());
  writer.payload(0x50, second, true);
  EXPECT_EQ(assembled(packetsOf(writer)), (std::vector<Section>{one, two, three, one}));
}

TEST(SectionAssembler, LostPacketDropsOnlyItsSection) {
  std::uint8_t continuity = 0;
  std::vector<TsPacket> packets = sectionPackets(longSection(400), 0x50, continuity);
  packets.erase(packets.begin() + 1);
  const Section whole = longSection(300);
  for (const TsPacket &packet : sectionPackets(whole, 0x50, continuity)) {
    packets.push_back(packet);
  }
  EXPECT_EQ(assembled(packets), std::vector<Section>{whole});
}

TEST(SectionAssembler, PacketSentTwiceCountsOnce) {
  std::uint8_t continuity = 0;
  const Section section = longSection(400);
  std::vector<TsPacket> packets = sectionPackets(section, 0x50, continuity);
  packets.insert(packets.begin() + 1, packets[1]);
  EXPECT_EQ(assembled(packets), std::vector<Section>{section});
}

TEST(SectionAssembler, ScrambledAndErroredPacketsAreNotRead) {
  std::uint8_t continuity = 0;
  std::vector<TsPacket> packets = sectionPackets(longSection(10), 0x50, continuity);
  packets.push_back(packets[0]);
  packets[0][1] |= 0x80;
  packets[1][3] |= 0x80;
  EXPECT_TRUE(assembled(packets).empty());
}

TEST(SectionAssembler, PointerBeyondThePacketIsIgnored) {
  testing_streams::StreamWriter writer;
  writer.payload(0x50, {200, 0x42, 0xB0, 0x09}, true);
  EXPECT_TRUE(assembled(packetsOf(writer)).empty());
}

TEST(SectionAssembler, EveryBitFlipDropsTheSectionOrLeavesItAlone) {
  std::uint8_t continuity = 0;
  const Section section = longSection(60);
  const TsPacket packet = sectionPackets(section, 0x50, continuity)[0];
  ASSERT_EQ(assembled({packet}), std::vector<Section>{section});
  for (std::size_t bit = 0; bit < tsPacketSize * 8; ++bit) {
    TsPacket flipped = packet;
    flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
    for (const Section &taken : assembled({flipped})) {
      const bool isShort = (taken[1] & 0x80) == 0;
      EXPECT_TRUE(isShort || taken == section) << bit;
    }
  }
}

TEST(SectionAssembler, RandomPacketsDoNoHarm) {
  std::mt19937 random(3);
  SectionAssembler assembler;
  for (int i = 0; i < 20000; ++i) {
    TsPacket packet;
    for (std::uint8_t &byte : packet) {
      byte = static_cast<std::uint8_t>(random());
    }
    packet[3] &= 0x3F;
    assembler.push(packet, [](const Section &section) {
      EXPECT_LE(section.size(), maxSectionSize + 2);
      EXPECT_TRUE((section[1] & 0x80) == 0 || soundLongSection(section.data(), section.size()));
    });
  }
}

}  // namespace
