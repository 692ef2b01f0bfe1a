// Text of DVB service information (EN 300 468 annex A) for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace chassis {

constexpr std::size_t dvbTextLimit = 64;  // characters

// The text in UTF-8, in one line of at most dvbTextLimit characters, a longer one with an ellipsis
// at its end. Bytes may be hostile. What cannot be read, also a whole text in a character table
// that is reserved, becomes U+FFFD. Line breaks and blanks of all kinds become one blank between
// two words; emphasis, control, format and other characters that nobody sees are left out.
std::string dvbText(const std::uint8_t *bytes, std::size_t size);

}  // namespace chassis
