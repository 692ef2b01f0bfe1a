#include "ts/ServiceNames.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "ts/DvbText.h"

// libdvbpsi would keep a decoder for each transport_stream_id that a hostile stream makes up, and
// show no name before the last section has come.
namespace chassis {
namespace {

constexpr std::uint8_t sdtActualTableId = 0x42;
constexpr std::uint8_t serviceDescriptorTag = 0x48;
constexpr std::size_t maxSdtSectionSize = 1024;

// Bytes that are read from the front; what does not fit ends the reading.
class Reader {
 public:
  Reader(const std::uint8_t *begin, const std::uint8_t *end) : at_(begin), end_(end) {}

  bool ended() const { return at_ == end_; }
  bool has(std::size_t size) const { return size <= static_cast<std::size_t>(end_ - at_); }
  std::uint8_t byte() { return *at_++; }
  std::uint16_t word() {
    const auto high = static_cast<std::uint16_t>(byte() << 8);
    return static_cast<std::uint16_t>(high | byte());
  }
  void skip(std::size_t size) { at_ += size; }
  Reader part(std::size_t size) {
    at_ += size;
    return {at_ - size, at_};
  }
  std::string text() const { return dvbText(at_, static_cast<std::size_t>(end_ - at_)); }

 private:
  const std::uint8_t *at_;
  const std::uint8_t *end_;
};

std::optional<std::string> readText(Reader &reader) {
  if (!reader.has(1)) {
    return std::nullopt;
  }
  const std::size_t length = reader.byte();
  return reader.has(length) ? std::optional(reader.part(length).text()) : std::nullopt;
}

void readServiceDescriptor(Reader descriptor, ServiceName &name) {
  if (!descriptor.has(1)) {
    return;
  }
  descriptor.skip(1);  // service_type
  const auto provider = readText(descriptor);
  const auto service = provider ? readText(descriptor) : std::nullopt;
  if (service) {
    name = {*service, *provider};
  }
}

// False: a length leads out of the loop.
bool readDescriptors(Reader loop, ServiceName &name) {
  while (loop.has(2)) {
    const std::uint8_t tag = loop.byte();
    const std::size_t length = loop.byte();
    if (!loop.has(length)) {
      return false;
    }
    const Reader descriptor = loop.part(length);
    if (tag == serviceDescriptorTag) {
      readServiceDescriptor(descriptor, name);
    }
  }
  return loop.ended();
}

using Services = std::map<std::uint16_t, ServiceName>;

// Nothing when a length inside leads out of what it is in.
std::optional<Services> readServices(Reader loop) {
  constexpr std::size_t serviceHead = 5;
  Services services;
  while (loop.has(serviceHead)) {
    const std::uint16_t id = loop.word();
    loop.skip(1);  // EIT flags
    const std::size_t length = loop.word() & 0x0FFF;
    ServiceName name;
    if (!loop.has(length) || !readDescriptors(loop.part(length), name)) {
      return std::nullopt;
    }
    services.emplace(id, std::move(name));
  }
  return loop.ended() ? std::optional(services) : std::nullopt;
}

bool isSdt(const Section &section) {
  constexpr std::size_t headSize = sectionHeaderSize + 3;  // with original_network_id
  const bool isLong = (section[1] & 0x80) != 0;
  return section[0] == sdtActualTableId && isLong && section.size() <= maxSdtSectionSize &&
         section.size() >= headSize + sectionCrcSize && (section[5] & 0x01) != 0;
}

Reader servicesOf(const Section &section) {
  const std::uint8_t *const end = section.data() + section.size() - sectionCrcSize;
  return {section.data() + sectionHeaderSize + 3, end};
}

}  // namespace

bool operator==(const ServiceName &a, const ServiceName &b) {
  return a.name == b.name && a.provider == b.provider;
}

void ServiceNames::push(const TsPacket &packet) {
  assembler_.push(packet, [this](const Section &section) {
    if (isSdt(section)) {
      take(section);
    }
  });
}

void ServiceNames::take(const Section &section) {
  const std::uint8_t number = section[6];
  const std::uint8_t last = section[7];
  const auto known = parts_.find(number);
  if (known != parts_.end() && known->second.section == section) {
    return;
  }
  auto services = readServices(servicesOf(section));
  if (!services || number > last) {
    return;
  }
  const std::size_t before = parts_.size();
  parts_.erase(parts_.upper_bound(last), parts_.end());
  const bool same = parts_.size() == before && parts_[number].services == *services;
  parts_[number] = {section, std::move(*services)};
  changes_ += same ? 0 : 1;
}

ServiceName ServiceNames::of(std::uint16_t program) const {
  for (const auto &[number, part] : parts_) {
    const auto found = part.services.find(program);
    if (found != part.services.end()) {
      return found->second;
    }
  }
  return {};
}

}  // namespace chassis
