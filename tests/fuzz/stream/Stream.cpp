// A card and the parsers below it over hostile streams: raw bytes as a file, or sections with a
// right CRC in packets of which some are damaged.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "Events.h"
#include "Input.h"
#include "InputError.h"
#include "cam/Cam.h"
#include "card/Card.h"
#include "ts/PacketView.h"
#include "ts/Psi.h"
#include "ts/Section.h"
#include "ts/TsFile.h"

using fuzz::Input;
using fuzz::require;
using Bytes = std::vector<uint8_t>;

namespace {

struct Silent : chassis::Events {
  void report(chassis::Place, const std::string &, const std::string &) override {}
};

// A file in memory with a path.
class MemoryFile {
 public:
  explicit MemoryFile(const Bytes &bytes) : fd_(memfd_create("stream", 0)) {
    require(
        fd_ >= 0 && write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
        "no memory file");
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

// ------------------------------------------------------------------------------------------------
// The stream
// ------------------------------------------------------------------------------------------------

constexpr uint16_t pids[] = {0, 1, 0x20, 0x21, 0x22, 0x100, 0x101, 0x1FFF};

void damage(chassis::TsPacket &packet, Input &input) {
  packet[input.below(chassis::tsPacketSize)] = input.byte();
}

class StreamMaker {
 public:
  explicit StreamMaker(Input &input) : input_(input) {}

  Bytes make() {
    while (input_.left() > 0 && bytes_.size() < 400 * chassis::tsPacketSize) {
      item();
    }
    return bytes_;
  }

 private:
  void item() {
    const uint8_t kind = input_.byte();
    const uint32_t place = kind >> 3 & 7;
    const bool damaged = (kind & 0xC0) == 0xC0;
    if ((kind & 7) == 0) {
      add(payload(pids[place]), damaged);
    } else if ((kind & 7) == 1) {
      add(timed(pids[place]), damaged);
    } else if ((kind & 7) == 2) {
      const Bytes loose = input_.bytes(input_.byte());
      bytes_.insert(bytes_.end(), loose.begin(), loose.end());
    } else {
      table(kind & 7, place, damaged);
    }
  }

  // A PAT, CAT or PMT whose body is the input's; the CRC is right.
  void table(uint32_t kind, uint32_t place, bool damaged) {
    const uint8_t ids[] = {0, 1, 2, 2, 0x80};
    const uint16_t homes[] = {0, 1, 0x20, pids[place], pids[place]};
    chassis::Section section{ids[kind - 3], 0xB0, 0};
    const Bytes head = {0, static_cast<uint8_t>(place), static_cast<uint8_t>(0xC1), 0, 0};
    section.insert(section.end(), head.begin(), head.end());
    section[5] = static_cast<uint8_t>(section[5] | (input_.byte() & 0x3E));
    const Bytes body = input_.bytes(kind == 7 ? input_.word() % 2000 : input_.byte());
    section.insert(section.end(), body.begin(), body.end());
    chassis::sealSection(section);
    const uint16_t pid = homes[kind - 3];
    for (chassis::TsPacket &packet : chassis::sectionPackets(section, pid, continuity_[pid])) {
      add(packet, damaged);
    }
  }

  chassis::TsPacket payload(uint16_t pid) {
    chassis::TsPacket packet;
    packet.fill(input_.byte());
    const uint8_t control = input_.byte();
    packet[0] = 0x47;
    packet[1] = static_cast<uint8_t>((control & 0x40) | pid >> 8);
    packet[2] = static_cast<uint8_t>(pid);
    packet[3] = static_cast<uint8_t>((control & 0xB0) | (continuity_[pid]++ & 0x0F));
    const Bytes head = input_.bytes(control & 0x0F);
    std::copy(head.begin(), head.end(), packet.begin() + 4);
    return packet;
  }

  // With a PCR that the input sets.
  chassis::TsPacket timed(uint16_t pid) {
    chassis::TsPacket packet = payload(pid);
    packet[3] = static_cast<uint8_t>(packet[3] | 0x30);
    packet[4] = 7;
    packet[5] = 0x10;
    return packet;
  }

  void add(chassis::TsPacket packet, bool damaged) {
    if (damaged) {
      damage(packet, input_);
    }
    bytes_.insert(bytes_.end(), packet.begin(), packet.end());
  }

  Input &input_;
  Bytes bytes_;
  uint8_t continuity_[chassis::pidCount] = {};
};

// ------------------------------------------------------------------------------------------------
// What must hold
// ------------------------------------------------------------------------------------------------

void checkCa(const std::vector<chassis::PsiCa> &list) {
  for (const chassis::PsiCa &ca : list) {
    require(ca.pid < chassis::pidCount && ca.privateData.size() <= 251, "CA descriptor too large");
  }
}

void checkPsi(const chassis::PsiReader &reader) {
  const chassis::Psi &psi = reader.psi();
  require(reader.patSeen() || psi.programs.empty(), "programs without a PAT");
  checkCa(psi.cat);
  for (const chassis::PsiProgram &program : psi.programs) {
    require(program.pmtPid < chassis::pidCount && program.pcrPid < chassis::pidCount,
            "PID of a program out of range");
    checkCa(program.ca);
    for (const chassis::PsiStream &stream : program.streams) {
      require(stream.pid < chassis::pidCount, "PID of a stream out of range");
      checkCa(stream.ca);
    }
  }
}

void checkSection(const chassis::Section &section) {
  require(section.size() >= 3 && section.size() <= 3 + 0xFFF, "section of no size");
  require((section[1] & 0x80) == 0 || chassis::soundLongSection(section.data(), section.size()),
          "damaged section taken");
}

void checkFile(const std::string &path, size_t size) {
  chassis::TsFile file(path);
  chassis::PsiReader psi;
  chassis::SectionAssembler all;
  chassis::TsPacket packet;
  while (file.next(packet)) {
    require(packet[0] == 0x47, "packet without a sync byte");
    psi.push(packet);
    all.push(packet, checkSection);
  }
  checkPsi(psi);
  const uint64_t packets = file.packets();
  require(packets > 0, "a stream without packets was opened");
  require(packets * chassis::tsPacketSize + file.skippedBytes() == size, "bytes lost or doubled");
  file.rewind();
  while (file.next(packet)) {
  }
  require(file.packets() == packets, "another number of packets on the second reading");
}

void checkList(const CiDescCaList &list) {
  require(list.caNum <= 32, "CA list too long");
  for (uint32_t k = 0; k < list.caNum; ++k) {
    require(list.privOff[k] + list.privLen[k] <= 256, "private data outside its area");
    require(list.ca[k].ecmPid < chassis::pidCount, "ECM PID out of range");
  }
}

void checkTable(const CiDesc &table) {
  require(table.descProgCnt <= 32, "too many programs");
  for (uint32_t p = 0; p < table.descProgCnt; ++p) {
    const CiDescProg &program = table.prog[p];
    require(program.eleNum <= 32, "too many streams");
    checkList(program.caList);
    for (uint32_t e = 0; e < program.eleNum; ++e) {
      require(program.ele[e].pid < chassis::pidCount, "stream PID out of range");
      checkList(program.ele[e].caList);
    }
  }
}

void checkCard(const std::string &path, Input &input) {
  Silent events;
  chassis::Card card(0, events);
  chassis::Cam cam({{0x0500}, 0, 0, 4000}, {0, 0}, events, 0);
  const uint64_t bitrate = input.flag() ? 0 : 1504000;
  card.setCam(0, &cam);
  card.insert(path, bitrate, 0);
  require(card.bitrate() > 0 && !card.programs().empty(), "a card plays nothing");
  const auto programs = card.programs();
  for (const chassis::ProgramInfo &program : programs) {
    card.assign(program.number, static_cast<uint8_t>(input.below(4)));
  }
  checkTable(*card.descTable());
  require(card.inPortForm()->caNum <= 32, "input-port form too long");
  uint64_t now = 0;
  for (int step = 0; step < 4; ++step) {
    // As much as two hundred packets, at any bitrate.
    now += 200 * chassis::tsPacketSize * 8 * 1000 / card.bitrate() + 1;
    cam.tick(now);
    card.tick(now);
    checkTable(*card.descTable());
  }
}

// A stream that nobody can play is refused in words.
template <typename Check>
void refusable(Check check) {
  try {
    check();
  } catch (const chassis::InputError &error) {
    require(std::string(error.what()).find("/proc/self/fd/") != std::string::npos,
            "a refusal does not name the file");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  const bool raw = input.byte() == 0xFF;
  Input choices(data, size < 8 ? size : 8);
  const Bytes bytes = raw ? input.bytes(input.left()) : StreamMaker(input).make();
  const MemoryFile file(bytes);
  refusable([&] { checkFile(file.path(), bytes.size()); });
  refusable([&] { checkCard(file.path(), choices); });
  return 0;
}
