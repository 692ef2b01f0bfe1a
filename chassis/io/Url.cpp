#include "io/Url.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>
#include <set>
#include <vector>

#include "base/InputError.h"
#include "base/Number.h"
#include "base/Text.h"

namespace chassis {
namespace {

constexpr const char *filePrefix = "file:";
constexpr const char *separator = "://";

// ------------------------------------------------------------------------------------------------
// Addresses
// ------------------------------------------------------------------------------------------------

struct Address {
  bool v6;
  std::array<std::uint8_t, 16> bytes;

  bool begins(std::uint8_t first, std::uint8_t second, std::uint8_t mask) const {
    return bytes[0] == first && (bytes[1] & mask) == second;
  }
  bool multicast() const { return v6 ? bytes[0] == 0xFF : (bytes[0] & 0xF0) == 0xE0; }
  bool any() const {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
  }
  bool broadcast() const {
    return !v6 && std::all_of(bytes.begin(), bytes.begin() + 4,
                              [](std::uint8_t byte) { return byte == 0xFF; });
  }
  // Of one link, or of one interface: it says nothing without the interface.
  bool linkLocal() const {
    return v6 && (begins(0xFE, 0x80, 0xC0) || begins(0xFF, 0x02, 0x0F) || begins(0xFF, 1, 0x0F));
  }
  bool mapped() const {
    return v6 && bytes[10] == 0xFF && bytes[11] == 0xFF &&
           std::all_of(bytes.begin(), bytes.begin() + 10,
                       [](std::uint8_t byte) { return byte == 0; });
  }
  std::string text() const {
    std::array<char, INET6_ADDRSTRLEN> buffer{};
    inet_ntop(v6 ? AF_INET6 : AF_INET, bytes.data(), buffer.data(), buffer.size());
    return buffer.data();
  }
};

std::optional<Address> readAddress(const std::string &text) {
  for (const int family : {AF_INET, AF_INET6}) {
    Address address{family == AF_INET6, {}};
    if (inet_pton(family, text.c_str(), address.bytes.data()) == 1) {
      return address;
    }
  }
  return std::nullopt;
}

std::string withoutBrackets(const std::string &text) {
  const bool has = text.size() > 1 && text.front() == '[' && text.back() == ']';
  return has ? text.substr(1, text.size() - 2) : text;
}

bool looksLikeName(const std::string &text) {
  const auto letter = [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; };
  return text.find(':') == std::string::npos && std::any_of(text.begin(), text.end(), letter);
}

std::string whyNoAddress(const std::string &text) {
  if (text.find('%') != std::string::npos) {
    return "an interface is named by ?iface=" + text.substr(text.find('%') + 1) + ", not by '%'";
  }
  return looksLikeName(text)
             ? "'" + text + "' is a name, and names are not looked up: a numeric address is needed"
             : "'" + text + "' is no IPv4 or IPv6 address";
}

std::string interfaceNames() {
  std::vector<std::string> names;
  struct if_nameindex *all = if_nameindex();
  for (const struct if_nameindex *one = all; one != nullptr && one->if_index != 0; ++one) {
    names.emplace_back(one->if_name);
  }
  if (all != nullptr) {
    if_freenameindex(all);
  }
  return names.empty() ? "there are none" : "there are: " + joined(names);
}

// ------------------------------------------------------------------------------------------------
// Options
// ------------------------------------------------------------------------------------------------

[[noreturn]] void refuseText(const std::string &text, const std::string &why) {
  throw InputError("'" + text + "': " + why);
}

std::uint32_t readInRange(const Url &url, const std::string &name, const std::string &value,
                          std::uint32_t least, std::uint32_t most) {
  const auto number = readWhole(value);
  if (!number || *number < least || *number > most) {
    refuseText(url.text, name + " is '" + value + "', not a number from " + std::to_string(least) +
                             " to " + std::to_string(most));
  }
  return static_cast<std::uint32_t>(*number);
}

void setIface(Url &url, const std::string &value) {
  if (if_nametoindex(value.c_str()) == 0) {
    refuseText(url.text, "there is no network interface '" + value + "'; " + interfaceNames());
  }
  url.iface = value;
}

void setSource(Url &url, const std::string &value) {
  const std::string numeric = withoutBrackets(value);
  const auto source = readAddress(numeric);
  if (!source) {
    refuseText(url.text, "source: " + whyNoAddress(numeric));
  }
  if (!url.multicast) {
    refuseText(url.text, "a source is asked for with a multicast group only, and " + url.address +
                             " is none");
  }
  if (source->v6 != url.v6) {
    refuseText(url.text, "the source " + numeric + " is of another family than the group; an " +
                             (url.v6 ? "IPv6" : "IPv4") + " address is needed");
  }
  if (source->multicast() || source->any() || source->broadcast()) {
    refuseText(url.text, "the source " + numeric + " is no address of a sender");
  }
  url.source = source->text();
}

constexpr std::uint32_t leastBuffer = 4096;
constexpr std::uint32_t mostBuffer = 1 << 30;  // the kernel doubles it
constexpr std::uint32_t mostDelayMs = 2000;

void setRcvbuf(Url &url, const std::string &value) {
  url.rcvbuf = readInRange(url, "rcvbuf", value, leastBuffer, mostBuffer - 1);
}

void setTtl(Url &url, const std::string &value) {
  url.ttl = static_cast<std::uint8_t>(readInRange(url, "ttl", value, 1, 255));
}

void setDscp(Url &url, const std::string &value) {
  url.dscp = static_cast<std::uint8_t>(readInRange(url, "dscp", value, 0, 63));
}

void setDelay(Url &url, const std::string &value) {
  url.delayMs = readInRange(url, "delay", value, 0, mostDelayMs);
}

struct Option {
  const char *name;
  const char *value;
  bool input;
  bool output;
  void (*set)(Url &url, const std::string &value);
};

constexpr Option options[] = {
    {"iface", "NAME", true, true, setIface},      {"source", "ADDRESS", true, false, setSource},
    {"rcvbuf", "BYTES", true, false, setRcvbuf},  {"ttl", "HOPS", false, true, setTtl},
    {"dscp", "CODE POINT", false, true, setDscp}, {"delay", "MS", false, true, setDelay},
};

bool serves(const Option &option, Url::Use use) {
  return use == Url::Use::Input ? option.input : option.output;
}

const Option *findOption(const std::string &name) {
  const auto *found = std::find_if(std::begin(options), std::end(options),
                                   [&name](const Option &option) { return name == option.name; });
  return found == std::end(options) ? nullptr : found;
}

std::string optionNames(Url::Use use) {
  std::vector<std::string> names;
  for (const Option &option : options) {
    if (serves(option, use)) {
      names.emplace_back(option.name);
    }
  }
  return (use == Url::Use::Input ? "an input has " : "an output has ") + joined(names);
}

std::vector<std::string> split(const std::string &text, char at) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == at) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

const Option &optionFor(const Url &url, const std::string &name, Url::Use use) {
  const Option *option = findOption(name);
  if (option == nullptr) {
    refuseText(url.text, "there is no option '" + name + "'; " + optionNames(use));
  }
  if (!serves(*option, use)) {
    refuseText(url.text, "'" + name + "' is an option of " +
                             (option->input ? "inputs" : "outputs") + "; " + optionNames(use));
  }
  return *option;
}

std::string withoutValue(const Option &option) {
  const std::string name = option.name;
  return "'" + name + "' has no value; right is " + name + "=" + option.value;
}

void readOptions(Url &url, const std::string &text, Url::Use use) {
  std::set<std::string> seen;
  for (const std::string &part : split(text, '&')) {
    const std::size_t equals = part.find('=');
    const std::string name = part.substr(0, equals);
    const Option &option = optionFor(url, name, use);
    if (equals == std::string::npos || equals + 1 == part.size()) {
      refuseText(url.text, withoutValue(option));
    }
    if (!seen.insert(name).second) {
      refuseText(url.text, "'" + name + "' is given twice");
    }
    option.set(url, part.substr(equals + 1));
  }
}

// ------------------------------------------------------------------------------------------------
// The group and the port
// ------------------------------------------------------------------------------------------------

std::string schemeText(const Url &url) {
  return url.scheme == Url::Scheme::Udp ? "udp://" : "rtp://";
}

std::string rightForm(const Url &url) {
  return "right is " + schemeText(url) + "GROUP:PORT or " + schemeText(url) + "[V6]:PORT";
}

std::string behindAt(const Url &url, const std::string &authority, Url::Use use) {
  const std::size_t at = authority.rfind('@');
  if (at == std::string::npos || at == 0) {
    return at == 0 ? authority.substr(1) : authority;
  }
  refuseText(url.text,
             "the text before '@' means a source to some programs and an interface to "
             "others: write " +
                 std::string(use == Url::Use::Input ? "?source= or " : "") + "?iface=");
}

// Where the port's colon must stand, if the address is written as it should be.
std::size_t endOfHost(const Url &url, const std::string &text) {
  if (text.empty() || text[0] != '[') {
    if (std::count(text.begin(), text.end(), ':') > 1) {
      refuseText(url.text, "an IPv6 address stands in brackets; " + rightForm(url));
    }
    return std::min(text.find(':'), text.size());
  }
  const std::size_t close = text.find(']');
  if (close == std::string::npos) {
    refuseText(url.text, "']' is missing behind the address; " + rightForm(url));
  }
  return close + 1;
}

std::uint16_t readPort(const Url &url, const std::string &text) {
  if (text.size() < 2 || text[0] != ':') {
    refuseText(url.text, "the port is missing; " + rightForm(url));
  }
  const std::string digits = text.substr(1);
  const bool decimal = digits.find_first_not_of("0123456789") == std::string::npos;
  const auto port = decimal ? readWhole(digits) : std::nullopt;
  if (!port || *port == 0 || *port > UINT16_MAX) {
    refuseText(url.text, "the port is '" + digits + "', not a number from 1 to 65535");
  }
  return static_cast<std::uint16_t>(*port);
}

std::string missingAddress(const Url &url, Url::Use use) {
  return "the address is missing; " + rightForm(url) +
         (use == Url::Use::Input ? ", or 0.0.0.0 or [::] for every address of this machine" : "");
}

Address readHost(const Url &url, const std::string &text, Url::Use use) {
  const std::string numeric = withoutBrackets(text);
  if (numeric.empty()) {
    refuseText(url.text, missingAddress(url, use));
  }
  const auto address = readAddress(numeric);
  if (!address) {
    refuseText(url.text, whyNoAddress(numeric));
  }
  if (address->v6 != (text[0] == '[')) {
    refuseText(url.text, "brackets are for IPv6 addresses; " + rightForm(url));
  }
  if (address->mapped()) {
    refuseText(url.text, numeric + " is an IPv4 address; write it as one");
  }
  if (address->broadcast() || (use == Url::Use::Output && address->any())) {
    refuseText(url.text, numeric +
                             " is the address of no receiver; a multicast group or the address "
                             "of a machine is needed");
  }
  return *address;
}

void requireInterface(const Url &url, const Address &address) {
  if (address.linkLocal() && url.iface.empty()) {
    refuseText(url.text, url.address +
                             " is an address of one link: name its interface with ?iface=; " +
                             interfaceNames());
  }
}

Url readNetwork(Url url, const std::string &rest, Url::Use use) {
  const std::size_t question = rest.find('?');
  const std::string authority = behindAt(url, rest.substr(0, question), use);
  const std::size_t hostEnd = endOfHost(url, authority);
  const Address address = readHost(url, authority.substr(0, hostEnd), use);
  url.port = readPort(url, authority.substr(hostEnd));
  url.address = address.text();
  url.v6 = address.v6;
  url.multicast = address.multicast();
  if (question != std::string::npos) {
    readOptions(url, rest.substr(question + 1), use);
  }
  requireInterface(url, address);
  return url;
}

// ------------------------------------------------------------------------------------------------
// Files, and what decides between them and networks
// ------------------------------------------------------------------------------------------------

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Only a file whose name ends so is lost here, and its path alone still names it.
void refuseOptions(const std::string &text, const std::string &path) {
  const std::size_t question = path.rfind('?');
  const std::string last = question == std::string::npos ? "" : path.substr(question + 1);
  const std::string name = last.substr(0, last.find('='));
  if (name != last && findOption(name) != nullptr) {
    refuseText(text, "a file has no options; '" + name +
                         "' is one of udp:// and rtp://, and a file " +
                         "of this name is written without " + filePrefix);
  }
}

Url readFile(Url url, const std::string &rest) {
  const bool authority = rest.rfind("//", 0) == 0;
  if (authority && rest.rfind("///", 0) != 0) {
    refuseText(url.text,
               "the file of another machine cannot be read; right is file:PATH or "
               "file:///PATH");
  }
  url.path = authority ? rest.substr(2) : rest;
  if (url.path.empty()) {
    refuseText(url.text, "the path is missing; right is file:PATH");
  }
  refuseOptions(url.text, url.path);
  return url;
}

Url readWithScheme(Url url, std::size_t end, Url::Use use) {
  const std::string scheme = lower(url.text.substr(0, end));
  if (scheme == "file") {
    return readFile(url, url.text.substr(end + 1));
  }
  if (scheme != "udp" && scheme != "rtp") {
    refuseText(url.text, "'" + scheme + separator +
                             "' is unknown; there are udp:// and rtp://, a path, " +
                             "file:PATH (also for a path with '://' in it) and -");
  }
  url.scheme = scheme == "udp" ? Url::Scheme::Udp : Url::Scheme::Rtp;
  return readNetwork(url, url.text.substr(end + 3), use);
}

}  // namespace

Url readUrl(const std::string &text, Url::Use use) {
  Url url;
  url.text = text;
  if (text == "-") {
    url.scheme = Url::Scheme::StandardStream;
    return url;
  }
  const std::string prefix = filePrefix;
  if (text.rfind(prefix, 0) == 0) {
    return readFile(url, text.substr(prefix.size()));
  }
  const std::size_t end = text.find(separator);
  if (end != std::string::npos) {
    return readWithScheme(url, end, use);
  }
  url.path = text;
  return url;
}

}  // namespace chassis
