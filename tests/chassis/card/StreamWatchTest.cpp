#include "card/StreamWatch.h"

#include <gtest/gtest.h>

#include "card/LossWatch.h"
#include "status/EventWords.h"

using chassis::Event;
using chassis::EventKind;
using chassis::LossWatch;
using chassis::SourceCounters;
using chassis::StreamWatch;

namespace {

std::string text(const std::optional<Event> &event) {
  return event ? chassis::wordsOf(*event).what + ": " + chassis::wordsOf(*event).why : "";
}

}  // namespace

TEST(StreamWatch, TheBeginIsTold) {
  StreamWatch watch;
  watch.start(5000);
  EXPECT_EQ(text(watch.step(5990, false)), "");
  const auto event = watch.step(5995, true);
  EXPECT_EQ(text(event), "the stream has begun: after 1.0 s");
  EXPECT_EQ(event->kind(), EventKind::StreamBegun);
  EXPECT_EQ(text(watch.step(6005, true)), "");
}

TEST(StreamWatch, ASecondWithoutPacketsIsSilence) {
  StreamWatch watch;
  watch.start(0);
  watch.step(10, true);
  EXPECT_EQ(text(watch.step(1009, false)), "");
  EXPECT_FALSE(watch.silent());
  const auto event = watch.step(1010, false);
  EXPECT_EQ(text(event), "the stream is silent: no packets for 1.0 s");
  EXPECT_EQ(event->kind(), EventKind::StreamSilent);
  EXPECT_TRUE(watch.silent());
  EXPECT_EQ(text(watch.step(9999, false)), "") << "told once";
}

TEST(StreamWatch, ComingBackIsToldWithHowLongItTook) {
  StreamWatch watch;
  watch.start(0);
  watch.step(10, true);
  watch.step(2000, false);
  const auto event = watch.step(5210, true);
  EXPECT_EQ(text(event), "the stream is back: after 5.2 s without packets");
  EXPECT_EQ(event->kind(), EventKind::StreamBack);
  EXPECT_FALSE(watch.silent());
  EXPECT_EQ(text(watch.step(6211, false)), "the stream is silent: no packets for 1.0 s");
}

TEST(StreamWatch, WhatNeverBeganHasNotComeYet) {
  StreamWatch watch;
  watch.start(0);
  EXPECT_EQ(text(watch.step(1000, false)), "the stream is silent: nothing has come yet");
  EXPECT_EQ(text(watch.step(3000, true)), "the stream has begun: after 3.0 s");
}

TEST(LossWatch, EachPlaceIsToldApart) {
  LossWatch watch;
  watch.start(0);
  SourceCounters counters;
  EXPECT_EQ(text(watch.step(10, counters)), "");
  counters.networkLost = 3;
  counters.kernelLost = 20;
  counters.dropped = 7;
  counters.duplicates = counters.late = counters.reordered = 5;  // lost nothing
  const auto event = watch.step(20, counters);
  EXPECT_EQ(text(event),
            "packets of the stream were lost: 3 datagrams in the network, 20 datagrams at the "
            "socket, whose buffer was full, 7 packets here, for want of room");
  EXPECT_EQ(std::get<chassis::event::InputLost>(event->facts).kernel, 20U);
}

TEST(LossWatch, MoreOfItIsToldAfterTenSeconds) {
  LossWatch watch;
  watch.start(0);
  SourceCounters counters;
  counters.networkLost = 1;
  EXPECT_EQ(text(watch.step(500, counters)),
            "packets of the stream were lost: 1 datagram in the network");
  counters.networkLost = 4;
  EXPECT_EQ(text(watch.step(10499, counters)), "");
  EXPECT_EQ(text(watch.step(10500, counters)),
            "packets of the stream were lost: 3 datagrams in the network");
  EXPECT_EQ(text(watch.step(30000, counters)), "");
}
