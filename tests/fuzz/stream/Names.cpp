#include "Names.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Reading.h"
#include "ts/DvbText.h"
#include "ts/Section.h"
#include "ts/ServiceNames.h"

using fuzz::Input;
using fuzz::require;
using Bytes = std::vector<uint8_t>;

namespace {

uint8_t byteAt(const std::string &text, size_t at) {
  return at < text.size() ? static_cast<uint8_t>(text[at]) : 0;
}

// The character that begins at `at`, and how many bytes it has; 0: it is none.
size_t readCharacter(const std::string &text, size_t at, uint32_t &character) {
  const uint8_t first = byteAt(text, at);
  const size_t size = first < 0x80   ? 1
                      : first < 0xC2 ? 0
                      : first < 0xE0 ? 2
                      : first < 0xF0 ? 3
                      : first < 0xF5 ? 4
                                     : 0;
  character = size < 2 ? first : first & (0x7F >> size);
  for (size_t i = 1; i < size; ++i) {
    if (byteAt(text, at + i) >> 6 != 2) {
      return 0;
    }
    character = character * 64 + byteAt(text, at + i) % 64;
  }
  const bool tooLong = (size == 3 && character < 0x800) || (size == 4 && character < 0x10000);
  return tooLong ? 0 : size;
}

bool obeyed(uint32_t character) {
  const auto within = [character](uint32_t first, uint32_t last) {
    return character >= first && character <= last;
  };
  return within(0, 0x1F) || within(0x7F, 0x9F) || within(0x200B, 0x200F) ||
         within(0x2028, 0x202E) || within(0x2060, 0x206F) || within(0xD800, 0xF8FF) ||
         character == 0xFEFF || character > 0xDFFFF;
}

void checkText(const std::string &text) {
  size_t characters = 0;
  uint32_t character = 0;
  for (size_t at = 0; at < text.size(); ++characters) {
    const size_t size = readCharacter(text, at, character);
    require(size > 0, "a name is no UTF-8");
    require(!obeyed(character), "a terminal would obey a name");
    at += size;
  }
  require(characters <= chassis::dvbTextLimit, "a name is too long");
  require(text.find("  ") == std::string::npos && text.substr(0, 1) != " " &&
              (text.empty() || text.back() != ' '),
          "a name with loose blanks");
}

std::string shown(const Bytes &bytes) {
  return chassis::dvbText(bytes.data(), bytes.size());
}

chassis::Section tableOf(const Bytes &body) {
  chassis::Section section{0x42, 0xB0, 0, 0, 1, 0xC1, 0, 0};
  section.insert(section.end(), body.begin(), body.end());
  chassis::sealSection(section);
  return section;
}

// Of a service that stands there twice, the first counts.
void checkServices(const chassis::Section &section) {
  chassis::ServiceNames names;
  uint8_t continuity = 0;
  for (const auto &packet :
       chassis::sectionPackets(section, chassis::ServiceNames::pid, continuity)) {
    names.push(packet);
  }
  const bool fits = section.size() <= 1024;
  const auto said = fits ? reading::services(section) : std::nullopt;
  std::set<uint16_t> seen;
  for (const reading::Service &service : said.value_or(std::vector<reading::Service>{})) {
    const chassis::ServiceName told = names.of(service.id);
    checkText(told.name);
    checkText(told.provider);
    require(!seen.insert(service.id).second ||
                (told.name == shown(service.name) && told.provider == shown(service.provider)),
            "a name is not what the section says");
  }
  require(said || names.changes() == 0, "a damaged table names services");
}

}  // namespace

void checkNames(Input &input) {
  const Bytes bytes = input.bytes(std::min<size_t>(input.left(), 1100));
  checkText(shown(bytes));
  checkServices(tableOf(bytes));
}
