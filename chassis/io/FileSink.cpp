#include "io/FileSink.h"

namespace chassis {

void FileSink::write(const TsPacket *packets, const std::uint64_t *, std::size_t count) {
  given_ += count;
  output_->setPatient(!waits_ || waits_());
  output_->write(packets->data(), count * tsPacketSize, tsPacketSize);
}

}  // namespace chassis
