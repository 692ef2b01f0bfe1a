// What sender and receiver of the live bench share: how streams stand in datagrams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "ts/TsPacket.h"

namespace live {

constexpr std::size_t packetsPerDatagram = 7;
constexpr std::size_t payloadMost = packetsPerDatagram * chassis::tsPacketSize;
constexpr std::size_t batchMost = 64;
constexpr std::uint64_t nsPerMs = 1000000;
constexpr std::uint64_t nsPerSecond = 1000000000;

inline void sleepUntil(std::uint64_t monotonicNs) {
  timespec until{};
  until.tv_sec = static_cast<time_t>(monotonicNs / nsPerSecond);
  until.tv_nsec = static_cast<long>(monotonicNs % nsPerSecond);
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

}  // namespace live
