// Classes of ISO/IEC 13818-1 stream_type.
#pragma once

#include <cstdint>

namespace chassis {

// Whether streams of a type are audio or video, carried in PES packets.
constexpr bool isAudioVideo(std::uint8_t streamType) {
  constexpr std::uint8_t types[] = {
      0x01, 0x02, 0x10, 0x1B, 0x20, 0x21, 0x24, 0x33,  // video
      0x03, 0x04, 0x0F, 0x11, 0x1C, 0x2D,              // audio
  };
  for (const std::uint8_t type : types) {
    if (type == streamType) {
      return true;
    }
  }
  return false;
}

}  // namespace chassis
