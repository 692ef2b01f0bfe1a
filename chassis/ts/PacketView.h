// What the header and the adaptation field of a transport stream packet tell (ISO/IEC 13818-1),
// with bounds: an adaptation field that does not fit the packet leaves no payload.
#pragma once

#include <bitstream/mpeg/ts.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "ts/TsPacket.h"

namespace chassis {

class PacketView {
 public:
  explicit PacketView(const TsPacket &packet) : bytes_(packet) {}

  // Defined here since every packet is asked for them several times.
  std::uint16_t pid() const { return ts_get_pid(bytes_.data()); }
  std::uint8_t continuityCounter() const { return ts_get_cc(bytes_.data()); }
  // transport_scrambling_control, 0..3
  std::uint8_t scrambling() const { return ts_get_scrambling(bytes_.data()); }
  bool transportError() const { return ts_get_transporterror(bytes_.data()); }
  // payload_unit_start_indicator
  bool unitStart() const { return ts_get_unitstart(bytes_.data()); }
  // as adaptation_field_control tells
  bool hasPayload() const { return ts_has_payload(bytes_.data()); }

  bool discontinuity() const;  // discontinuity_indicator

  // program_clock_reference in units of 27 MHz, below pcrRange
  std::optional<std::uint64_t> pcr() const;

  std::size_t payloadOffset() const;  // tsPacketSize: no payload
  std::size_t payloadSize() const { return tsPacketSize - payloadOffset(); }

 private:
  // Bytes of the adaptation field behind its length; 0 also when it does not fit.
  std::size_t adaptationLength() const;

  const TsPacket &bytes_;
};

constexpr std::uint64_t pcrHz = 27000000;
constexpr std::uint64_t pcrRange = (std::uint64_t{1} << 33) * 300;  // where the PCR wraps

}  // namespace chassis
