// The names of a transport stream's services, from its service description table (EN 300 468: SDT
// of the actual transport stream). They are the stream's words: decoration, and trusted with
// nothing.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "ts/Section.h"
#include "ts/TsPacket.h"

namespace chassis {

// As dvbText gives them; empty: the stream tells none.
struct ServiceName {
  std::string name;
  std::string provider;
};

bool operator==(const ServiceName &a, const ServiceName &b);

class ServiceNames {
 public:
  static constexpr std::uint16_t pid = 0x0011;

  // Takes every packet of the PID in stream order. Damaged sections are dropped, and a name stands
  // until a later section says otherwise.
  void push(const TsPacket &packet);

  // service_id is the program_number.
  ServiceName of(std::uint16_t program) const;
  std::uint32_t changes() const { return changes_; }  // counts every change of any name

 private:
  using Services = std::map<std::uint16_t, ServiceName>;
  struct Part {
    Section section;
    Services services;
  };

  void take(const Section &section);

  SectionAssembler assembler_;
  std::map<std::uint8_t, Part> parts_;  // by section_number
  std::uint32_t changes_ = 0;
};

}  // namespace chassis
