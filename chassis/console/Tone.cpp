#include "console/Tone.h"

namespace chassis {
namespace {

const char *escapeOf(Tone tone) {
  switch (tone) {
    case Tone::Good:
      return "\033[32m";
    case Tone::Bad:
      return "\033[31m";
    case Tone::Faint:
      return "\033[2m";
    case Tone::Alarm:
      return "\033[1;37;41m";
    case Tone::Plain:
      break;
  }
  return "";
}

}  // namespace

std::string toned(const std::string &text, Tone tone, bool colour) {
  const std::size_t begin = text.find_first_not_of(' ');
  if (!colour || tone == Tone::Plain || begin == std::string::npos) {
    return text;
  }
  return text.substr(0, begin) + escapeOf(tone) + text.substr(begin) + "\033[0m";
}

}  // namespace chassis
