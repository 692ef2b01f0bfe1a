// Writes transport streams packet by packet, for tests.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "ts/TsPacket.h"

namespace testing_streams {

using Bytes = std::vector<std::uint8_t>;

inline void append(Bytes &to, const Bytes &from) {
  to.insert(to.end(), from.begin(), from.end());
}

inline void append16(Bytes &to, unsigned value) {
  to.push_back(static_cast<std::uint8_t>(value >> 8));
  to.push_back(static_cast<std::uint8_t>(value));
}

// CRC_32 of ISO/IEC 13818-1 annex A
inline std::uint32_t crc32(const Bytes &bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= static_cast<std::uint32_t>(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1) ^ ((crc & 0x80000000U) != 0 ? 0x04C11DB7U : 0);
    }
  }
  return crc;
}

// The CRC over what stands before it.
inline Bytes sealed(Bytes bytes) {
  bytes.resize(bytes.size() - 4);
  const std::uint32_t crc = crc32(bytes);
  append16(bytes, crc >> 16);
  append16(bytes, crc);
  return bytes;
}

inline Bytes numbered(Bytes bytes, unsigned number, unsigned last) {
  bytes[6] = static_cast<std::uint8_t>(number);
  bytes[7] = static_cast<std::uint8_t>(last);
  return sealed(bytes);
}

inline Bytes section(std::uint8_t tableId, unsigned extension, unsigned version,
                     const Bytes &body) {
  Bytes bytes{tableId};
  append16(bytes, 0xB000 | static_cast<unsigned>(body.size() + 9));
  append16(bytes, extension);
  append(bytes, {static_cast<std::uint8_t>(0xC1 | version << 1), 0, 0});
  append(bytes, body);
  bytes.resize(bytes.size() + 4);
  return sealed(bytes);
}

inline Bytes caDescriptor(unsigned casid, unsigned pid, const Bytes &privateData = {}) {
  Bytes bytes{0x09, static_cast<std::uint8_t>(4 + privateData.size())};
  append16(bytes, casid);
  append16(bytes, 0xE000 | pid);
  append(bytes, privateData);
  return bytes;
}

struct Es {
  std::uint8_t type = 0;
  unsigned pid = 0;
  Bytes descriptors;
};

struct ProgramMap {
  unsigned number = 0;
  unsigned pmtPid = 0;
  unsigned pcrPid = 0;
  std::vector<Es> streams;
  Bytes descriptors;
  unsigned version = 0;
};

inline Bytes patSection(const std::vector<ProgramMap> &programs, unsigned version = 0) {
  Bytes body;
  for (const ProgramMap &program : programs) {
    append16(body, program.number);
    append16(body, 0xE000 | program.pmtPid);
  }
  return section(0x00, 0x1234, version, body);
}

inline Bytes pmtSection(const ProgramMap &program) {
  Bytes body;
  append16(body, 0xE000 | program.pcrPid);
  append16(body, 0xF000 | static_cast<unsigned>(program.descriptors.size()));
  append(body, program.descriptors);
  for (const Es &es : program.streams) {
    body.push_back(es.type);
    append16(body, 0xE000 | es.pid);
    append16(body, 0xF000 | static_cast<unsigned>(es.descriptors.size()));
    append(body, es.descriptors);
  }
  return section(0x02, program.number, program.version, body);
}

inline Bytes catSection(const Bytes &descriptors, unsigned version = 0) {
  return section(0x01, 0xFFFF, version, descriptors);
}

struct Service {
  unsigned id = 0;
  Bytes name;
  Bytes provider;
};

inline void appendText(Bytes &to, const Bytes &text) {
  to.push_back(static_cast<std::uint8_t>(text.size()));
  append(to, text);
}

inline Bytes serviceDescriptor(const Service &service) {
  Bytes body{0x01};  // digital television
  appendText(body, service.provider);
  appendText(body, service.name);
  Bytes bytes{0x48};
  appendText(bytes, body);
  return bytes;
}

inline Bytes sdtEntry(unsigned id, const Bytes &descriptors) {
  Bytes bytes;
  append16(bytes, id);
  bytes.push_back(0xFC);
  append16(bytes, 0x8000 | static_cast<unsigned>(descriptors.size()));
  append(bytes, descriptors);
  return bytes;
}

// Section `number` of a service description table up to section `last`.
inline Bytes sdtSectionOf(const Bytes &entries, unsigned version = 0, unsigned number = 0,
                          unsigned last = 0, std::uint8_t tableId = 0x42) {
  Bytes body{0x00, 0x01, 0xFF};  // original_network_id
  append(body, entries);
  return numbered(section(tableId, 0x1234, version, body), number, last);
}

inline Bytes sdtSection(const std::vector<Service> &services, unsigned version = 0,
                        unsigned number = 0, unsigned last = 0) {
  Bytes entries;
  for (const Service &service : services) {
    append(entries, sdtEntry(service.id, serviceDescriptor(service)));
  }
  return sdtSectionOf(entries, version, number, last);
}

inline Bytes pesStart(std::uint8_t streamId = 0xE0) {
  return {0x00, 0x00, 0x01, streamId, 0x00, 0x00, 0x80, 0x00, 0x00};
}

class StreamWriter {
 public:
  // One packet with a payload, padded with 0xFF; the PID's continuity_counter goes up.
  StreamWriter &payload(unsigned pid, const Bytes &bytes = {}, bool unitStart = false,
                        unsigned scrambling = 0) {
    chassis::TsPacket packet = header(pid, 0x10, counter_[pid]++);
    packet[1] = static_cast<std::uint8_t>(packet[1] | (unitStart ? 0x40 : 0));
    packet[3] = static_cast<std::uint8_t>(packet[3] | scrambling << 6);
    std::copy(bytes.begin(), bytes.end(), packet.begin() + 4);
    return add(packet);
  }

  StreamWriter &pes(unsigned pid, unsigned scrambling = 0) {
    return payload(pid, pesStart(), true, scrambling);
  }

  // A packet with an adaptation field of flags (and a PCR when they tell) and, or not, a payload.
  StreamWriter &adaptation(unsigned pid, std::uint8_t flags, std::uint64_t pcr, bool withPayload) {
    const unsigned cc = withPayload ? counter_[pid]++ : counter_[pid] - 1;
    chassis::TsPacket packet = header(pid, withPayload ? 0x30 : 0x20, cc);
    packet[4] = withPayload ? 7 : 183;
    packet[5] = flags;
    const std::uint64_t base = pcr / 300;
    const std::uint64_t extension = pcr % 300;
    for (unsigned i = 0; i < 4; ++i) {
      packet[6 + i] = static_cast<std::uint8_t>(base >> (25 - 8 * i));
    }
    packet[10] = static_cast<std::uint8_t>((base & 1) << 7 | 0x7E | extension >> 8);
    packet[11] = static_cast<std::uint8_t>(extension);
    return add(packet);
  }

  StreamWriter &pcr(unsigned pid, std::uint64_t value) {
    return adaptation(pid, 0x10, value, true);
  }

  StreamWriter &null() { return add(header(chassis::nullPid, 0x10, 0)); }

  // A section in as many packets as it needs.
  StreamWriter &table(unsigned pid, const Bytes &sectionBytes) {
    Bytes rest{0};
    append(rest, sectionBytes);
    bool first = true;
    while (!rest.empty()) {
      const std::size_t size = std::min<std::size_t>(rest.size(), 184);
      const auto end = rest.begin() + static_cast<std::ptrdiff_t>(size);
      payload(pid, Bytes(rest.begin(), end), first);
      rest.erase(rest.begin(), end);
      first = false;
    }
    return *this;
  }

  StreamWriter &psi(const std::vector<ProgramMap> &programs, unsigned patVersion = 0) {
    table(0, patSection(programs, patVersion));
    for (const ProgramMap &program : programs) {
      table(program.pmtPid, pmtSection(program));
    }
    return *this;
  }

  StreamWriter &add(const chassis::TsPacket &packet) {
    bytes_.insert(bytes_.end(), packet.begin(), packet.end());
    return *this;
  }

  StreamWriter &raw(const Bytes &bytes) {
    append(bytes_, bytes);
    return *this;
  }

  // The next packet of the PID gets this continuity_counter.
  StreamWriter &counter(unsigned pid, unsigned value) {
    counter_[pid] = value;
    return *this;
  }

  const Bytes &bytes() const { return bytes_; }
  std::size_t packets() const { return bytes_.size() / chassis::tsPacketSize; }

  chassis::TsPacket packet(std::size_t index) const {
    chassis::TsPacket packet{};
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(index * chassis::tsPacketSize);
    std::copy_n(begin, packet.size(), packet.begin());
    return packet;
  }

 private:
  static chassis::TsPacket header(unsigned pid, unsigned control, unsigned cc) {
    chassis::TsPacket packet;
    packet.fill(0xFF);
    packet[0] = 0x47;
    packet[1] = static_cast<std::uint8_t>(pid >> 8 & 0x1F);
    packet[2] = static_cast<std::uint8_t>(pid);
    packet[3] = static_cast<std::uint8_t>(control | (cc & 0x0F));
    return packet;
  }

  Bytes bytes_;
  std::map<unsigned, unsigned> counter_;
};

// A second at 1504000 bit/s: program 101 with CA descriptors, clear all the same.
inline Bytes oneProgram() {
  StreamWriter writer;
  const ProgramMap map{
      101, 0x100, 0x201, {{0x02, 0x201, {}}, {0x03, 0x202, {}}}, caDescriptor(0x0500, 0x300), 0};
  for (int i = 0; i < 16; ++i) {
    writer.psi({map}).pes(0x201).pes(0x202).payload(0x300);
  }
  while (writer.packets() < 1000) {
    writer.null();
  }
  return writer.bytes();
}

// A file of its own for one test case, gone when it ends.
class TemporaryFile {
 public:
  explicit TemporaryFile(const Bytes &bytes = {}) : path_(uniquePath()) { write(bytes); }
  ~TemporaryFile() { std::filesystem::remove(path_); }
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;

  void write(const Bytes &bytes) const {
    std::ofstream file(path_, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char *>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file) {
      throw std::runtime_error("cannot write " + path_);
    }
  }

  Bytes read() const {
    std::ifstream file(path_, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }

  const std::string &path() const { return path_; }

 private:
  static std::string uniquePath() {
    static unsigned count = 0;
    const std::string name =
        "chassis-test-" + std::to_string(getpid()) + "-" + std::to_string(++count) + ".ts";
    return (std::filesystem::temp_directory_path() / name).string();
  }

  std::string path_;
};

}  // namespace testing_streams
