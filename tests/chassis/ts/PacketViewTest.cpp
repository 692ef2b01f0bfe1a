#include "ts/PacketView.h"

#include <gtest/gtest.h>

#include "chassis/StreamWriter.h"

using chassis::PacketView;
using testing_streams::StreamWriter;

TEST(PacketView, ReadsTheHeader) {
  StreamWriter stream;
  stream.counter(0x1ABC, 13).payload(0x1ABC, {1, 2}, true, 3);
  const auto packet = stream.packet(0);
  const PacketView view(packet);
  EXPECT_EQ(view.pid(), 0x1ABC);
  EXPECT_EQ(view.continuityCounter(), 13);
  EXPECT_EQ(view.scrambling(), 3);
  EXPECT_TRUE(view.unitStart());
  EXPECT_TRUE(view.hasPayload());
  EXPECT_FALSE(view.transportError());
  EXPECT_FALSE(view.discontinuity());
  EXPECT_FALSE(view.pcr());
  EXPECT_EQ(view.payloadOffset(), 4U);
}

TEST(PacketView, ReadsThePcrToItsLastUnit) {
  for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{299}, std::uint64_t{300},
                                    std::uint64_t{123456789012}, chassis::pcrRange - 1}) {
    StreamWriter stream;
    stream.pcr(0x100, value);
    const auto packet = stream.packet(0);
    EXPECT_EQ(PacketView(packet).pcr(), value);
    EXPECT_EQ(PacketView(packet).payloadOffset(), 12U);
  }
}

TEST(PacketView, AnAdaptationFieldThatDoesNotFitTellsNothing) {
  StreamWriter stream;
  stream.adaptation(0x100, 0x90, 1000, true);
  auto packet = stream.packet(0);
  EXPECT_TRUE(PacketView(packet).discontinuity());
  for (const unsigned length : {184U, 200U, 255U}) {
    packet[4] = static_cast<std::uint8_t>(length);
    const PacketView view(packet);
    EXPECT_FALSE(view.discontinuity());
    EXPECT_FALSE(view.pcr());
    EXPECT_EQ(view.payloadSize(), 0U);
  }
  // too short for flags, and for a PCR
  packet[4] = 0;
  EXPECT_FALSE(PacketView(packet).discontinuity());
  packet[4] = 6;
  EXPECT_TRUE(PacketView(packet).discontinuity());
  EXPECT_FALSE(PacketView(packet).pcr());
}

TEST(PacketView, APacketWithoutPayloadHasNone) {
  StreamWriter stream;
  stream.payload(0x100).adaptation(0x100, 0x10, 5, false);
  const auto packet = stream.packet(1);
  EXPECT_FALSE(PacketView(packet).hasPayload());
  EXPECT_EQ(PacketView(packet).payloadSize(), 0U);
}
