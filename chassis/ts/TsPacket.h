// One MPEG-2 transport stream packet (ISO/IEC 13818-1).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace chassis {

constexpr std::size_t tsPacketSize = 188;
constexpr std::size_t pidCount = 0x2000;
constexpr std::uint16_t nullPid = 0x1FFF;

using TsPacket = std::array<std::uint8_t, tsPacketSize>;

}  // namespace chassis
