// A source that gives what a test puts in.
#pragma once

#include <deque>

#include "chassis/StreamWriter.h"
#include "io/PacketSource.h"

namespace testing_streams {

using Packets = std::deque<chassis::TsPacket>;

inline void put(const StreamWriter &stream, Packets &packets) {
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    packets.push_back(stream.packet(i));
  }
}

class FakeSource : public chassis::PacketSource {
 public:
  // anewAt: the packet, counted from 0, with which another sender begins.
  explicit FakeSource(Packets &packets, std::uint64_t anewAt = UINT64_MAX)
      : packets_(packets), anewAt_(anewAt) {}
  std::size_t due(std::uint64_t nowMs) override {
    nowMs_ = nowMs;
    return packets_.size();
  }
  bool next(chassis::TsPacket &packet, std::uint64_t &cameNs) override {
    if (packets_.empty()) {
      return false;
    }
    packet = packets_.front();
    packets_.pop_front();
    cameNs = nowMs_ * 1000000;
    ++counters_.packets;
    return true;
  }
  std::uint64_t beginnings() const override { return counters_.packets > anewAt_ ? 1 : 0; }
  bool ended() const override { return false; }
  const chassis::SourceCounters &counters() const override { return counters_; }

 private:
  Packets &packets_;
  const std::uint64_t anewAt_;
  std::uint64_t nowMs_ = 0;
  chassis::SourceCounters counters_;
};

}  // namespace testing_streams
