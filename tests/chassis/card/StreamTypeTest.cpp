#include "card/StreamType.h"

#include <gtest/gtest.h>

#include <vector>

TEST(StreamType, AudioAndVideoAreTheseAlone) {
  std::vector<unsigned> types;
  for (unsigned type = 0; type < 256; ++type) {
    if (chassis::isAudioVideo(static_cast<std::uint8_t>(type))) {
      types.push_back(type);
    }
  }
  EXPECT_EQ(types, (std::vector<unsigned>{0x01, 0x02, 0x03, 0x04, 0x0F, 0x10, 0x11, 0x1B, 0x1C,
                                          0x20, 0x21, 0x24, 0x2D, 0x33}));
}
