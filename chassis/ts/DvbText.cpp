#include "ts/DvbText.h"

#include <iconv.h>
#include <utf8proc.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace chassis {
namespace {

using Character = utf8proc_int32_t;
using Characters = std::vector<Character>;

constexpr Character none = 0;
constexpr Character blank = ' ';
constexpr Character unreadable = 0xFFFD;
constexpr Character ellipsis = 0x2026;
constexpr std::uint8_t firstAbove = 0xA0;  // what lies below, from 0x80 on, are control codes
constexpr Character controlPage = 0xE000;  // of the same codes in tables of more than one byte

struct Bytes {
  const std::uint8_t *begin;
  std::size_t size;

  std::uint8_t operator[](std::size_t at) const { return begin[at]; }
  Bytes from(std::size_t at) const { return {begin + at, size - at}; }
};

bool isControlCode(Character code) {
  return code >= 0x80 && code < firstAbove;
}

Character withoutPage(Character character) {
  return isControlCode(character - controlPage) ? character - controlPage : character;
}

// ------------------------------------------------------------------------------------------------
// The default table
// ------------------------------------------------------------------------------------------------

// From 0xA0 on. The C library's ISO 6937 has no euro and knows fewer letters with marks. 0:
// reserved.
constexpr char16_t defaultTable[] = {
    0x00A0, 0x00A1, 0x00A2, 0x00A3, 0x20AC, 0x00A5, 0,      0x00A7,  // 0xA0
    0x00A4, 0x2018, 0x201C, 0x00AB, 0x2190, 0x2191, 0x2192, 0x2193,  //
    0x00B0, 0x00B1, 0x00B2, 0x00B3, 0x00D7, 0x00B5, 0x00B6, 0x00B7,  // 0xB0
    0x00F7, 0x2019, 0x201D, 0x00BB, 0x00BC, 0x00BD, 0x00BE, 0x00BF,  //
    0,      0x0300, 0x0301, 0x0302, 0x0303, 0x0304, 0x0306, 0x0307,  // 0xC0: marks
    0x0308, 0,      0x030A, 0x0327, 0,      0x030B, 0x0328, 0x030C,  //
    0x2015, 0x00B9, 0x00AE, 0x00A9, 0x2122, 0x266A, 0x00AC, 0x00A6,  // 0xD0
    0,      0,      0,      0,      0x215B, 0x215C, 0x215D, 0x215E,  //
    0x2126, 0x00C6, 0x0110, 0x00AA, 0x0126, 0,      0x0132, 0x013F,  // 0xE0
    0x0141, 0x00D8, 0x0152, 0x00BA, 0x00DE, 0x0166, 0x014A, 0x0149,  //
    0x0138, 0x00E6, 0x0111, 0x00F0, 0x0127, 0x0131, 0x0133, 0x0140,  // 0xF0
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x0167, 0x014B, 0x00AD};
static_assert(std::size(defaultTable) == 0x100 - firstAbove);

bool isMark(std::uint8_t byte) {
  return byte >= 0xC0 && byte < 0xD0;
}

Character ofDefaultTable(std::uint8_t byte) {
  if (byte < firstAbove) {
    return byte;
  }
  const Character entry = defaultTable[byte - firstAbove];
  return entry == none ? unreadable : entry;
}

// A mark stands before its letter, in Unicode behind it.
void readDefaultTable(Bytes text, const char *, Characters &to) {
  for (std::size_t at = 0; at < text.size; ++at) {
    const Character character = ofDefaultTable(text[at]);
    const bool marksNext = isMark(text[at]) && character != unreadable;
    if (!marksNext) {
      to.push_back(character);
    } else if (at + 1 < text.size && text[at + 1] >= blank && text[at + 1] < 0x80) {
      to.insert(to.end(), {text[++at], character});
    } else {
      to.push_back(unreadable);
    }
  }
}

// ------------------------------------------------------------------------------------------------
// The tables of the C library
// ------------------------------------------------------------------------------------------------

class Converter {
 public:
  explicit Converter(const char *charset) : handle_(iconv_open("WCHAR_T", charset)) {}
  ~Converter() {
    if (known()) {
      iconv_close(handle_);
    }
  }
  Converter(const Converter &) = delete;
  Converter &operator=(const Converter &) = delete;

  // The character that the bytes are.
  Character read(Bytes bytes) const;

 private:
  bool known() const { return reinterpret_cast<std::intptr_t>(handle_) != -1; }

  iconv_t handle_;
};

Character Converter::read(Bytes bytes) const {
  if (!known()) {
    return unreadable;
  }
  wchar_t characters[4] = {};
  auto *from = const_cast<char *>(reinterpret_cast<const char *>(bytes.begin));
  auto *to = reinterpret_cast<char *>(characters);
  std::size_t left = bytes.size;
  std::size_t room = sizeof characters;
  const bool read = iconv(handle_, &from, &left, &to, &room) == 0;
  iconv(handle_, nullptr, nullptr, nullptr, nullptr);
  const bool one = room == sizeof characters - sizeof characters[0];
  return read && one ? static_cast<Character>(characters[0]) : unreadable;
}

void readSingleBytes(Bytes text, const char *charset, Characters &to) {
  const Converter converter(charset);
  for (std::size_t at = 0; at < text.size; ++at) {
    to.push_back(text[at] < firstAbove ? text[at] : converter.read({text.begin + at, 1}));
  }
}

// Where two bytes are no character, one below 0x80 is likely to be one by itself.
void readDoubleBytes(Bytes text, const char *charset, Characters &to) {
  const Converter converter(charset);
  for (std::size_t at = 0; at < text.size; ++at) {
    if (text[at] < firstAbove || at + 1 == text.size) {
      to.push_back(text[at] < firstAbove ? text[at] : unreadable);
      continue;
    }
    const Character code = text[at] << 8 | text[at + 1];
    const bool control = withoutPage(code) != code;
    to.push_back(control ? withoutPage(code) : converter.read({text.begin + at, 2}));
    at += to.back() != unreadable || text[at + 1] >= 0x80 ? 1 : 0;
  }
}

// ------------------------------------------------------------------------------------------------
// Unicode
// ------------------------------------------------------------------------------------------------

bool isHighSurrogate(Character unit) {
  return unit >> 10 == 0xD800 >> 10;
}

bool isLowSurrogate(Character unit) {
  return unit >> 10 == 0xDC00 >> 10;
}

void readUtf16(Bytes text, const char *, Characters &to) {
  const auto unitAt = [text](std::size_t at) {
    return at + 1 < text.size ? text[at] << 8 | text[at + 1] : unreadable;
  };
  for (std::size_t at = 0; at < text.size; at += 2) {
    const Character unit = unitAt(at);
    const Character next = unitAt(at + 2);
    if (isHighSurrogate(unit) && isLowSurrogate(next)) {
      to.push_back(0x10000 + ((unit & 0x3FF) << 10 | (next & 0x3FF)));
      at += 2;
    } else {
      to.push_back(withoutPage(unit));
    }
  }
}

void readUtf8(Bytes text, const char *, Characters &to) {
  for (std::size_t at = 0; at < text.size;) {
    Character character = unreadable;
    const auto taken = utf8proc_iterate(text.begin + at,
                                        static_cast<utf8proc_ssize_t>(text.size - at), &character);
    to.push_back(taken > 0 ? withoutPage(character) : unreadable);
    at += taken > 0 ? static_cast<std::size_t>(taken) : 1;
  }
}

void readReserved(Bytes, const char *, Characters &to) {
  to.push_back(unreadable);
}

// ------------------------------------------------------------------------------------------------
// Which table it is
// ------------------------------------------------------------------------------------------------

struct CharacterTable {
  void (*read)(Bytes text, const char *charset, Characters &to);
  const char *charset;
  std::size_t selection;  // bytes before the text
};

// By the part of ISO 8859.
constexpr const char *parts[] = {nullptr,      "ISO-8859-1",  "ISO-8859-2",  "ISO-8859-3",
                                 "ISO-8859-4", "ISO-8859-5",  "ISO-8859-6",  "ISO-8859-7",
                                 "ISO-8859-8", "ISO-8859-9",  "ISO-8859-10", "ISO-8859-11",
                                 nullptr,      "ISO-8859-13", "ISO-8859-14", "ISO-8859-15"};

CharacterTable tableOfPart(std::size_t part, std::size_t selection) {
  const bool known = part < std::size(parts) && parts[part] != nullptr;
  return known ? CharacterTable{readSingleBytes, parts[part], selection}
               : CharacterTable{readReserved, nullptr, selection};
}

CharacterTable tableOf(Bytes text) {
  const std::uint8_t first = text[0];
  if (first >= blank) {
    return {readDefaultTable, nullptr, 0};
  }
  switch (first) {
    case 0x10:
      return text.size < 3 || text[1] != 0 ? CharacterTable{readReserved, nullptr, 1}
                                           : tableOfPart(text[2], 3);
    case 0x11:
      return {readUtf16, nullptr, 1};
    case 0x12:
      return {readDoubleBytes, "EUC-KR", 1};
    case 0x13:
      return {readDoubleBytes, "GB2312", 1};
    case 0x14:
      return {readDoubleBytes, "BIG5", 1};
    case 0x15:
      return {readUtf8, nullptr, 1};
    default:
      // 0x01 to 0x0B are the parts from 5 on
      return tableOfPart(first >= 0x01 && first <= 0x0B ? first + 4U : 0, 1);
  }
}

Characters charactersOf(Bytes text) {
  Characters characters;
  const CharacterTable table = tableOf(text);
  table.read(text.from(table.selection), table.charset, characters);
  const auto composed =
      utf8proc_normalize_utf32(characters.data(), static_cast<utf8proc_ssize_t>(characters.size()),
                               static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  characters.resize(static_cast<std::size_t>(std::max<utf8proc_ssize_t>(composed, 0)));
  return characters;
}

// ------------------------------------------------------------------------------------------------
// What of it people get to see
// ------------------------------------------------------------------------------------------------

bool looksBlank(Character character) {
  constexpr Character blanks[] = {'\t', '\n', '\r', 0x8A,
                                  0x2800};  // a break of DVB, a dotless Braille
  return std::find(std::begin(blanks), std::end(blanks), character) != std::end(blanks);
}

// None: it is left out.
Character shown(Character character) {
  if (looksBlank(character)) {
    return blank;
  }
  if (utf8proc_get_property(character)->ignorable) {
    return none;
  }
  switch (utf8proc_category(character)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
      return none;
    case UTF8PROC_CATEGORY_ZS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return blank;
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_CO:
    case UTF8PROC_CATEGORY_CN:
      return unreadable;
    default:
      return character;
  }
}

bool isCombining(Character character) {
  const utf8proc_category_t category = utf8proc_category(character);
  return category == UTF8PROC_CATEGORY_MN || category == UTF8PROC_CATEGORY_MC ||
         category == UTF8PROC_CATEGORY_ME;
}

// Two blanks part columns, a mark at the beginning would change what stands before the text, and
// many of them would run over the lines around it.
bool hasPlace(Character next, const Characters &line) {
  constexpr std::size_t marksAtMost = 4;
  const auto begin = line.end() - static_cast<std::ptrdiff_t>(std::min(marksAtMost, line.size()));
  if (next == blank) {
    return !line.empty() && line.back() != blank;
  }
  return !isCombining(next) || !std::all_of(begin, line.end(), isCombining);
}

Characters oneLine(const Characters &characters) {
  Characters line;
  for (const Character character : characters) {
    const Character next = shown(character);
    if (next != none && hasPlace(next, line)) {
      line.push_back(next);
    }
  }
  if (!line.empty() && line.back() == blank) {
    line.pop_back();
  }
  return line;
}

void cut(Characters &line) {
  if (line.size() > dvbTextLimit) {
    line.resize(dvbTextLimit);
    line.back() = ellipsis;
  }
}

std::string encoded(const Characters &line) {
  std::string text;
  for (const Character character : line) {
    utf8proc_uint8_t bytes[4];
    const auto size = utf8proc_encode_char(character, bytes);
    text.append(bytes, bytes + size);
  }
  return text;
}

}  // namespace

std::string dvbText(const std::uint8_t *bytes, std::size_t size) {
  if (size == 0) {
    return "";
  }
  Characters line = oneLine(charactersOf({bytes, size}));
  cut(line);
  return encoded(line);
}

}  // namespace chassis
