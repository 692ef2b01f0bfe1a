// An output that is so patient that it gets packets only when somebody looks behind the CAMs, which
// descrambles what waits.
#pragma once

#include <string>

#include "io/PacketSink.h"

namespace chassis {

class PatientSink : public PacketSink {
 public:
  // written: packets so far; it outlives the sink.
  explicit PatientSink(std::uint64_t &written) : written_(written) {}

  void write(const TsPacket *, const std::uint64_t *, std::size_t count) override {
    written_ += count;
  }
  void end() override {}
  std::uint64_t patienceMs() const override { return 100000000; }
  const std::string &name() const override { return none_; }
  std::uint64_t writtenPackets() const override { return written_; }
  std::uint64_t lostPackets() const override { return 0; }
  const std::string &trouble() const override { return none_; }

 private:
  std::uint64_t &written_;
  const std::string none_;
};

}  // namespace chassis
