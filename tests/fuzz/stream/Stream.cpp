// A card and the parsers below it over hostile streams: raw bytes as a file, or sections with a
// right CRC in packets of which some are damaged; half of the inputs make tables instead and need
// no file (MadeTables), and few make names of services (Names).
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "CaPmts.h"
#include "Input.h"
#include "MadeTables.h"
#include "Names.h"
#include "Reading.h"
#include "base/InputError.h"
#include "cam/Cam.h"
#include "cam/LabCa.h"
#include "card/Card.h"
#include "event/Event.h"
#include "ts/PacketView.h"
#include "ts/Psi.h"
#include "ts/Section.h"
#include "ts/TsFile.h"

using fuzz::Input;
using fuzz::Noise;
using fuzz::require;
using Bytes = std::vector<uint8_t>;

namespace {

// One file in memory with a path; each input writes it anew.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("stream", 0)) {}

  void write(const Bytes &bytes) {
    const auto size = static_cast<ssize_t>(bytes.size());
    require(
        fd_ >= 0 && ftruncate(fd_, 0) == 0 && pwrite(fd_, bytes.data(), bytes.size(), 0) == size,
        "no memory file");
  }
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
  // form: how packets stand in it, 0 with nothing between them.
  StreamMaker(Input &input, uint8_t form) : input_(input), form_(form) {}

  Bytes make() {
    while (input_.left() > 0 && bytes_.size() < 400 * chassis::tsPacketSize) {
      item();
    }
    return bytes_;
  }

  // The PMT sections among it, as they were before any damage.
  const std::vector<chassis::Section> &programMaps() const { return programMaps_; }

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
    } else if ((kind & 0xC7) == 0x47) {
      send(ecm(), pids[place]);
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
    if (section[0] == 2) {
      programMaps_.push_back(section);
    }
    send(section, homes[kind - 3], damaged);
  }

  // Of any tier; the words are the period's, so they change with it.
  chassis::Section ecm() {
    chassis::labca::Ecm ecm;
    ecm.tier = input_.byte();
    ecm.period = input_.byte();
    ecm.even[0] = ecm.odd[4] = static_cast<uint8_t>(ecm.period);
    chassis::labca::setChecksums(ecm.even);
    chassis::labca::setChecksums(ecm.odd);
    return chassis::labca::encodeEcm(ecm);
  }

  void send(const chassis::Section &section, uint16_t pid, bool damaged = false) {
    for (const chassis::TsPacket &packet :
         chassis::sectionPackets(section, pid, continuity_[pid])) {
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
    const uint32_t form = form_ == 3 ? added_ / 8 % 3 : form_;
    ++added_;
    between(form == 1 ? 4 : 0);
    bytes_.insert(bytes_.end(), packet.begin(), packet.end());
    between(form == 2 ? 16 : 0);
  }

  // Of a stamp or check bytes; some look like sync bytes for a while.
  void between(size_t count) {
    for (; count > 0; --count) {
      const uint32_t value = noise_.below(8);
      bytes_.push_back(value == 0 ? 0x47 : static_cast<uint8_t>(added_ >> 4 ^ value << 4));
    }
  }

  Input &input_;
  uint8_t form_;  // 0: plain, 1: stamped, 2: with check bytes, 3: in turn
  uint32_t added_ = 0;
  Noise noise_;
  Bytes bytes_;
  std::vector<chassis::Section> programMaps_;
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

bool syncsAt(const Bytes &bytes, size_t at, size_t count, size_t stride) {
  for (size_t k = 0; k < count; ++k) {
    const size_t pos = at + k * stride;
    if (pos + chassis::tsPacketSize > bytes.size() || bytes[pos] != 0x47) {
      return false;
    }
  }
  return true;
}

// Whether other bytes of the packets might be their sync bytes as well.
bool twin(const Bytes &bytes, size_t at, size_t stride) {
  size_t rows = 0;
  for (size_t further = 1; further < stride; ++further) {
    bool row = true;
    for (size_t k = 0; k < 5; ++k) {
      const size_t pos = at + further + k * stride;
      row = row && (pos >= bytes.size() || bytes[pos] == 0x47);
    }
    rows += row ? 1 : 0;
  }
  return rows > 0;
}

// Where a second reading has a packet there is one, and nothing that was skipped is the first of
// five packets in a row.
void checkPlace(const Bytes &bytes, const reading::Place *before, const reading::Place &place,
                const chassis::TsPacket &packet) {
  const size_t at = place.at;
  const bool inStep = before != nullptr && at == before->at + before->stride;
  const size_t searched = before == nullptr ? 0 : before->at + chassis::tsPacketSize;
  require(
      at + packet.size() <= bytes.size() &&
          std::equal(packet.begin(), packet.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at)),
      "a packet is not where the file has it");
  size_t syncs = 0;
  for (size_t pos = at; pos < bytes.size() && bytes[pos] == 0x47; pos += place.stride) {
    ++syncs;
  }
  const size_t rest = (bytes.size() - at) % place.stride;
  require(inStep || at == 0 || rest == 0 || rest == packet.size() || syncs >= 3,
          "a lone sync byte begins packets");
  for (size_t skipped = searched; skipped < at && !inStep; ++skipped) {
    require(!syncsAt(bytes, skipped, 5, 188), "packets in a row were skipped");
    for (const size_t stride : {192, 204}) {
      require(!syncsAt(bytes, skipped, 5, stride) || twin(bytes, skipped, stride),
              "larger packets in a row were skipped");
    }
  }
}

// The PMT sections with a right CRC that stand in one piece among the bytes: those of packets that
// an input has of itself, the sample's for one.
std::vector<chassis::Section> foundMaps(const Bytes &bytes) {
  std::vector<chassis::Section> found;
  for (size_t at = 0; at + 3 <= bytes.size(); ++at) {
    const size_t size = 3 + reading::bits(&bytes[at], 12, 12);
    if (bytes[at] == 2 && at + size <= bytes.size()) {
      const chassis::Section section(&bytes[at], &bytes[at] + size);
      if (reading::current(section)) {
        found.push_back(section);
      }
    }
  }
  return found;
}

// Every program is what one of the sections says: of those that were put in, or that stand in it.
void checkWitness(const chassis::Psi &psi, const std::vector<chassis::Section> &programMaps,
                  const Bytes &bytes) {
  for (const chassis::PsiProgram &program : psi.programs) {
    const auto says = [&program](const chassis::Section &section) {
      auto map = reading::programMap(section);
      if (map) {
        map->pmtPid = program.pmtPid;
      }
      return map && *map == program;
    };
    const auto anySays = [&says](const std::vector<chassis::Section> &maps) {
      return std::any_of(maps.begin(), maps.end(), says);
    };
    require(anySays(programMaps) || anySays(foundMaps(bytes)),
            "a program that no section describes");
  }
}

chassis::Psi checkFile(const std::string &path, const Bytes &bytes) {
  chassis::TsFile file(path);
  chassis::PsiReader psi;
  chassis::SectionAssembler all;
  chassis::TsPacket packet;
  const std::vector<reading::Place> places = reading::places(bytes);
  while (file.next(packet)) {
    require(packet[0] == 0x47, "packet without a sync byte");
    require(reading::agrees(packet, chassis::PacketView(packet)), "a packet is read wrongly");
    require(file.packets() <= places.size(), "more packets than the file has");
    const reading::Place &place = places[file.packets() - 1];
    checkPlace(bytes, file.packets() > 1 ? &place - 1 : nullptr, place, packet);
    psi.push(packet);
    all.push(packet, checkSection);
  }
  checkPsi(psi);
  const uint64_t packets = file.packets();
  require(packets > 0, "a stream without packets was opened");
  require(packets == places.size(), "fewer packets than the file has");
  require(file.skippedBytes() == reading::strayBytes(bytes, places), "bytes lost or doubled");
  file.rewind();
  while (file.next(packet)) {
  }
  require(file.packets() == packets, "another number of packets on the second reading");
  return psi.psi();
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

// A card with both its CAMs. They are large, so all inputs have the same ones; each that can be
// played puts the card in anew and resets the CAMs.
class Rack {
 public:
  Rack() {
    for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
      card_.setCam(camSlot, &cams_[camSlot]);
    }
  }

  // Plays the stream about twice.
  void play(const std::string &path, size_t size, Input &input) {
    card_.insert(path, input.flag() ? 0 : 1504000, 0);
    for (chassis::Cam &cam : cams_) {
      cam.reset(0);
    }
    require(card_.bitrate() > 0 && !card_.programs().empty(), "a card plays nothing");
    assign(input);
    require(card_.inPortForm()->caNum <= 32, "input-port form too long");
    const uint64_t packets = size / chassis::tsPacketSize / 2 + 1;
    uint64_t now = 0;
    for (int step = 0; step < 4; ++step) {
      now += packets * chassis::tsPacketSize * 8 * 1000 / card_.bitrate() + 1;
      for (chassis::Cam &cam : cams_) {
        cam.tick(now);
      }
      card_.tick(now);
      card_.publishTables();
      checkTable(*card_.descTable());
    }
  }

 private:
  static chassis::Cam::Config config() { return {{chassis::labca::defaultCaSystem}, 0, 0, 4000}; }

  void assign(Input &input) {
    const auto programs = card_.programs();
    for (const chassis::ProgramInfo &program : programs) {
      card_.assign(program.number, static_cast<uint8_t>(input.below(4)));
    }
    card_.publishTables();
    checkTable(*card_.descTable());
    select(*card_.descTable());
  }

  void select(const CiDesc &table) {
    for (uint32_t p = 0; p < table.descProgCnt; ++p) {
      for (uint32_t camSlot = 0; camSlot < MAX_CAM_NUM; ++camSlot) {
        if ((table.prog[p].camMask >> camSlot & 1) != 0) {
          cams_[camSlot].receive(caPmtOf(table.prog[p]));
        }
      }
    }
  }

  chassis::EventFan events_;
  chassis::Files files_;
  chassis::Card card_{0, events_, files_};
  chassis::Cam cams_[MAX_CAM_NUM] = {{config(), {0, 0}, events_, 0},
                                     {config(), {0, 1}, events_, 0}};
};

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

void checkStream(Input &input, Input &choices, uint8_t kind) {
  static MemoryFile file;
  static Rack rack;
  const bool raw = kind == 0xFF;
  StreamMaker maker(input, kind < 0x40 ? 0 : kind & 3);
  const Bytes bytes = raw ? input.bytes(input.left()) : maker.make();
  file.write(bytes);
  refusable([&] {
    const chassis::Psi psi = checkFile(file.path(), bytes);
    if (!raw) {
      checkWitness(psi, maker.programMaps(), bytes);
    }
  });
  refusable([&] { rack.play(file.path(), bytes.size(), choices); });
}

}  // namespace

// Freed memory is kept from reuse for some inputs, not for thousands: fresh pages cost more than
// all the parsing.
extern "C" const char *__asan_default_options() {
  return "quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  Input choices(data, size < 8 ? size : 8);
  const uint8_t kind = input.byte();
  if (kind == 0xFE) {
    checkNames(input);
  } else if (kind >= 0x80 && kind != 0xFF) {
    checkMadeTables(input);
  } else {
    checkStream(input, choices, kind);
  }
  return 0;
}
