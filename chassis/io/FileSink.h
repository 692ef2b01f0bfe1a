// Writes packets to a file, a FIFO or a device, as they come.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "io/LiveOutput.h"
#include "io/PacketSink.h"

namespace chassis {

class FileSink : public PacketSink {
 public:
  // waits: whether a reader or a disk that is slow may hold up who writes; null: it may.
  explicit FileSink(std::unique_ptr<LiveOutput> output, std::function<bool()> waits = nullptr)
      : output_(std::move(output)), waits_(std::move(waits)) {}

  void write(const TsPacket *packets, const std::uint64_t *cameNs, std::size_t count) override;
  bool letGo() override { return output_->letGo(); }
  void end() override { output_->end(); }
  std::uint64_t patienceMs() const override { return 0; }
  const std::string &name() const override { return output_->path(); }
  std::uint64_t writtenPackets() const override { return given_ - lostPackets(); }
  std::uint64_t lostPackets() const override { return output_->lostBytes() / tsPacketSize; }
  const std::string &trouble() const override { return output_->trouble(); }

 private:
  std::unique_ptr<LiveOutput> output_;
  const std::function<bool()> waits_;
  std::uint64_t given_ = 0;
};

}  // namespace chassis
