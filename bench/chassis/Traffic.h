// What flowed through a card, and a receiver for what the chassis tells meanwhile.
#pragma once

#include <cstdint>
#include <string>

#include "card/Card.h"
#include "event/Event.h"

struct Traffic {
  std::uint64_t packets = 0;    // into the card
  std::uint64_t scrambled = 0;  // of these
  std::uint64_t left = 0;       // behind the CAMs, those that are still scrambled
  std::uint64_t noise = 0;      // PIDs whose last PES start behind the CAMs is none
};

// Since the card was inserted.
Traffic trafficOf(const chassis::Card &card);

Traffic operator+(const Traffic &a, const Traffic &b);
// What came after an earlier time; noise as it is at the later one.
Traffic since(const Traffic &earlier, const Traffic &later);

constexpr std::uint64_t cardBitrate = 50000000;  // bit/s
constexpr const char *streamPath = BENCH_STREAM;
