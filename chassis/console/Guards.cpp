#include "console/Guards.h"

#include <cctype>

#include "CiPlatform.h"
#include "base/InputError.h"
#include "command/Missing.h"

namespace chassis {
namespace {

constexpr std::size_t bitsOfByte = 8;

std::uint32_t slotOf(const Values &values) {
  return static_cast<std::uint32_t>(values[0].number);
}

}  // namespace

void requireRegistered(const Values &values) {
  const std::uint32_t slot = slotOf(values);
  if (pCiData[slot] == nullptr) {
    const std::string name = std::to_string(slot);
    throw InputError("no card has registered in slot " + name + "; put one in first: cardInsert " +
                     name + ", \"file\"");
  }
}

void requireProgramIndex(const Values &values) {
  requireRegistered(values);
  const CiDesc *table = pCiData[slotOf(values)]->GetProgDesc(slotOf(values));
  const std::uint64_t index = values[1].number >> 16;
  if (table != nullptr && index >= table->descProgCnt) {
    throw InputError("there is no program index " + std::to_string(index) +
                     " in the table of slot " + std::to_string(slotOf(values)) + ", which has " +
                     std::to_string(table->descProgCnt) +
                     "; write the index in the high 16 bits of the query");
  }
}

void requireCam(const Values &values) {
  const std::uint32_t camSlot = static_cast<std::uint32_t>(values[1].number);
  if ((ciLibGetInsertCard(slotOf(values), camSlot) & 0xFF) == 0) {
    throw noCamIn(values[0].number, values[1].number);
  }
}

void requireBit(const Values &values) {
  const std::size_t bits = bytesOf(values[0].text).size() * bitsOfByte;
  if (values[1].number >= bits) {
    throw InputError("bit " + std::to_string(values[1].number) + " is not among the " +
                     std::to_string(bits) + " bits of the bytes");
  }
}

std::vector<std::uint8_t> bytesOf(const std::string &text) {
  std::vector<std::uint8_t> bytes;
  std::string digits;
  for (const char c : text) {
    const auto character = static_cast<unsigned char>(c);
    if (std::isxdigit(character) != 0) {
      digits += c;
    } else if (std::isspace(character) == 0 || digits.size() % 2 != 0) {
      digits.clear();
      break;
    }
  }
  if (digits.empty() || digits.size() % 2 != 0) {
    throw InputError("\"" + text + "\" are no bytes; write them such as \"FF 00 1C\"");
  }
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

}  // namespace chassis
