// The module's codes and the stream's numbers in words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace chassis {

// How what is said is meant. Alarm: nobody may miss it.
enum class Tone : std::uint8_t { Plain, Good, Bad, Faint, Alarm };
const char *toneName(Tone tone);  // for programs: "alarm"

struct StatusWords {
  std::uint8_t code;  // DESC_STAT_
  const char *state;
  const char *cause;  // empty where there is none
  Tone tone;
};

const std::vector<StatusWords> &allStatusWords();
const StatusWords &statusWords(std::uint8_t status);

std::string streamTypeText(std::uint16_t streamType);
std::string stampText(std::uint64_t ms);         // 00:00:07.010
std::string hexText(std::uint32_t value);        // 0x71, 0x0500
std::string camText(int camSlot);                // 0, 1
std::string camMaskText(std::uint8_t camMask);   // none, 0, 1, 0+1
std::string placeText(int slot, int camSlot);    // "slot 0  CAM 1"
std::string bitrateText(std::uint64_t bitrate);  // 3.2 Mbit/s
std::string countText(std::uint64_t count, const std::string &one, const std::string &many);

}  // namespace chassis
