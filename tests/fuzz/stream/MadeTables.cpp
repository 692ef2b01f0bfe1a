#include "MadeTables.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "Reading.h"
#include "card/Tables.h"

using chassis::Section;
using fuzz::Input;
using fuzz::Noise;
using fuzz::require;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint16_t patPid = 0;
constexpr uint16_t catPid = 1;
constexpr uint16_t firstPmtPid = 0x20;
constexpr uint32_t pmtPids = 3;
constexpr uint32_t programNumbers = 5;
constexpr size_t largestPsi = 1024;

void put16(Bytes &bytes, uint32_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8));
  bytes.push_back(static_cast<uint8_t>(value));
}

// ------------------------------------------------------------------------------------------------
// Sections. The input chooses how a table is wrong, if it is; noise fills it.
// ------------------------------------------------------------------------------------------------

class SectionMaker {
 public:
  explicit SectionMaker(Input &input)
      : shape_(input.byte()), version_(input.byte()), noise_(input.word()) {}

  Section association() {
    Bytes body;
    for (uint32_t left = noise_.below(6); left > 0; --left) {
      put16(body, noise_.below(programNumbers));
      const uint32_t reserved = noise_.next() & 0xE000;
      put16(body, reserved | (firstPmtPid + noise_.below(pmtPids)));
    }
    return finish(0x00, 1, body);
  }

  Section conditionalAccess() {
    Bytes body;
    descriptors(body);
    return finish(0x01, 0xFFFF, body);
  }

  Section programMap() {
    Bytes body;
    put16(body, noise_.next());
    info(body);
    for (uint32_t left = noise_.below(5); left > 0; --left) {
      body.push_back(static_cast<uint8_t>(noise_.next()));
      put16(body, noise_.next());
      info(body);
    }
    return finish(0x02, 1 + noise_.below(programNumbers - 1), body);
  }

 private:
  // A length that is right, or in some tables a little too long or short.
  uint32_t length(size_t right) {
    const bool wrong = (shape_ & 7) == 1 && noise_.below(6) == 0;
    return static_cast<uint32_t>(right) + (wrong ? noise_.below(5) - 2 : 0);
  }

  void descriptor(Bytes &loop) {
    const uint32_t kind = noise_.below(8);
    const size_t size = kind == 0 ? noise_.below(4) : 4 + noise_.below(kind == 1 ? 252 : 9);
    loop.push_back(kind == 2 ? static_cast<uint8_t>(noise_.next()) : 9);
    loop.push_back(static_cast<uint8_t>(length(size)));
    std::generate_n(std::back_inserter(loop), size,
                    [this] { return static_cast<uint8_t>(noise_.next()); });
  }

  void descriptors(Bytes &loop) {
    for (uint32_t left = noise_.below(4); left > 0; --left) {
      descriptor(loop);
    }
  }

  void info(Bytes &body) {
    Bytes loop;
    descriptors(loop);
    const uint32_t reserved = noise_.next() & 0xF000;
    put16(body, reserved | (length(loop.size()) & 0x0FFF));
    body.insert(body.end(), loop.begin(), loop.end());
  }

  Section finish(uint8_t id, uint32_t extension, Bytes &body) {
    const uint32_t lost = (shape_ & 7) == 2 ? noise_.below(6) : 0;
    body.resize(std::min(body.size() - std::min<size_t>(lost, body.size()), largestPsi - 12));
    const bool later = (shape_ & 0x38) == 0x08;
    Section section{id, 0xB0, 0};
    put16(section, extension);
    section.push_back(static_cast<uint8_t>(0xC0 | (version_ & 0x1F) << 1 | (later ? 0 : 1)));
    put16(section, 0);
    section.insert(section.end(), body.begin(), body.end());
    chassis::sealSection(section);
    if ((shape_ & 0x38) == 0x10) {
      section[3 + noise_.below(static_cast<uint32_t>(section.size() - 3))] ^= 1 << noise_.below(8);
    }
    return section;
  }

  uint8_t shape_;
  uint8_t version_;
  Noise noise_;
};

// ------------------------------------------------------------------------------------------------
// Packets: sections that follow each other anywhere in them, behind adaptation fields of any size.
// ------------------------------------------------------------------------------------------------

class Packer {
 public:
  Packer(uint16_t pid, uint8_t &continuity, Noise noise)
      : pid_(pid), continuity_(continuity), noise_(noise) {}

  std::vector<chassis::TsPacket> pack(const std::vector<Section> &sections) {
    for (const Section &section : sections) {
      starts_.push_back(bytes_.size());
      bytes_.insert(bytes_.end(), section.begin(), section.end());
    }
    std::vector<chassis::TsPacket> packets;
    while (done_ < bytes_.size()) {
      packets.push_back(packet());
      // A packet may come twice.
      const bool starts = (packets.back()[1] & 0x40) != 0;
      if (!starts && noise_.below(4) == 0) {
        packets.push_back(packets.back());
      }
    }
    return packets;
  }

 private:
  chassis::TsPacket packet() {
    chassis::TsPacket packet;
    packet.fill(0xFF);
    const size_t field = noise_.below(3) == 0 ? 1 + noise_.below(183) : 0;
    packet[0] = 0x47;
    packet[2] = static_cast<uint8_t>(pid_);
    packet[3] = static_cast<uint8_t>((field > 0 ? 0x30 : 0x10) | (continuity_++ & 0x0F));
    if (field > 0) {
      packet[4] = static_cast<uint8_t>(field - 1);
    }
    if (field > 1) {
      packet[5] = 0;
    }
    fill(packet, 4 + field);
    return packet;
  }

  void fill(chassis::TsPacket &packet, size_t at) {
    const size_t room = packet.size() - at - 1;
    const auto start = std::lower_bound(starts_.begin(), starts_.end(), done_);
    const bool starts = start != starts_.end() && *start - done_ < room;
    packet[1] = static_cast<uint8_t>((starts ? 0x40 : 0) | pid_ >> 8);
    if (starts) {
      packet[at++] = static_cast<uint8_t>(*start - done_);
    }
    // A section that starts just behind the room would start in it if there were no pointer_field.
    const size_t until = starts || start == starts_.end() ? bytes_.size() : *start;
    const size_t part = std::min(packet.size() - at, until - done_);
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(done_), part, packet.begin() + at);
    done_ += part;
  }

  uint16_t pid_;
  uint8_t &continuity_;
  Noise noise_;
  Bytes bytes_;
  std::vector<size_t> starts_;
  size_t done_ = 0;
};

// ------------------------------------------------------------------------------------------------
// What the sections say
// ------------------------------------------------------------------------------------------------

class Model {
 public:
  void take(uint16_t pid, const Section &section) {
    if (!reading::current(section)) {
      return;
    }
    if (pid == patPid) {
      takeAssociation(section);
    } else if (pid == catPid) {
      takeCat(section);
    } else {
      takeMap(pid, section);
    }
  }

  chassis::Psi psi() const {
    chassis::Psi psi;
    psi.transportStreamId = patVersion_ ? 1 : 0;
    psi.cat = cat_;
    for (const Program &program : programs_) {
      if (program.map) {
        psi.programs.push_back(*program.map);
      }
    }
    return psi;
  }

 private:
  struct Program {
    uint16_t number;
    uint16_t pid;
    std::optional<chassis::PsiProgram> map;
  };

  static uint8_t versionOf(const Section &section) {
    return static_cast<uint8_t>(reading::bits(section.data(), 42, 5));
  }

  void takeAssociation(const Section &section) {
    // libdvbpsi passes over one without a line, until it had one with a line.
    const bool begins = patVersion_ || section.size() > 12;
    if (section.size() % 4 != 0 || !begins || patVersion_ == versionOf(section)) {
      return;
    }
    patVersion_ = versionOf(section);
    std::vector<Program> next;
    for (const auto &[number, pid] : reading::association(section)) {
      const auto has = [number = number](const Program &other) { return other.number == number; };
      if (number == 0 || std::any_of(next.begin(), next.end(), has)) {
        continue;
      }
      const auto old = std::find_if(programs_.begin(), programs_.end(), has);
      const bool stays = old != programs_.end() && old->pid == pid;
      next.push_back(stays ? *old : Program{number, pid, std::nullopt});
    }
    programs_ = next;
  }

  void takeCat(const Section &section) {
    if (catVersion_ != versionOf(section)) {
      catVersion_ = versionOf(section);
      cat_ = reading::conditionalAccess(section);
    }
  }

  void takeMap(uint16_t pid, const Section &section) {
    auto map = reading::programMap(section);
    for (Program &program : programs_) {
      const bool known = program.map && program.map->version == versionOf(section);
      if (map && !known && program.pid == pid && program.number == map->number) {
        map->pmtPid = pid;
        program.map = map;
      }
    }
  }

  std::optional<uint8_t> patVersion_;
  std::optional<uint8_t> catVersion_;
  std::vector<Program> programs_;
  std::vector<chassis::PsiCa> cat_;
};

// ------------------------------------------------------------------------------------------------
// What a card's tables must hold
// ------------------------------------------------------------------------------------------------

void checkList(const std::vector<chassis::PsiCa> &ca, const CiDescCaList &list) {
  require(list.caNum == std::min<size_t>(ca.size(), 32), "CA descriptors lost");
  size_t room = sizeof list.privData;
  for (size_t k = 0; k < list.caNum; ++k) {
    const Bytes &data = ca[k].privateData;
    const bool fits = data.size() <= room;
    room -= fits ? data.size() : 0;
    require(list.ca[k].casid == ca[k].casid && list.ca[k].ecmPid == ca[k].pid,
            "CA descriptor changed");
    require(list.privLen[k] == (fits ? data.size() : 0), "private data of another length");
    require(
        std::equal(data.begin(), fits ? data.end() : data.begin(), list.privData + list.privOff[k]),
        "private data changed");
  }
}

void checkProgram(const chassis::PsiProgram &program, const CiDescProg &entry) {
  require(entry.prog_num == program.number, "programs out of order");
  require(entry.eleNum == std::min<size_t>(program.streams.size(), 32), "streams lost");
  checkList(program.ca, entry.caList);
  for (size_t s = 0; s < entry.eleNum; ++s) {
    const chassis::PsiStream &stream = program.streams[s];
    require(entry.ele[s].streamType == stream.type && entry.ele[s].pid == stream.pid,
            "stream changed");
    checkList(stream.ca, entry.ele[s].caList);
  }
}

void checkInPort(const chassis::Psi &psi) {
  InPortForm form;
  chassis::buildInPortForm(psi, form);
  std::set<std::pair<uint16_t, uint16_t>> entries;
  const auto add = [&entries](const std::vector<chassis::PsiCa> &list) {
    for (const chassis::PsiCa &ca : list) {
      entries.emplace(ca.casid, ca.pid);
    }
  };
  add(psi.cat);
  for (const chassis::PsiProgram &program : psi.programs) {
    add(program.ca);
    for (const chassis::PsiStream &stream : program.streams) {
      add(stream.ca);
    }
  }
  require(form.caNum == std::min(entries.size(), std::size(form.ca)), "CA PIDs lost or doubled");
}

void checkCardTables(const chassis::Psi &psi) {
  static CiDesc table;
  chassis::CamMasks masks;
  for (const chassis::PsiProgram &program : psi.programs) {
    masks[program.number] = 1;
  }
  chassis::buildDescTable(psi, masks, table);
  require(table.descProgCnt == psi.programs.size(), "programs lost");
  for (size_t p = 0; p < psi.programs.size(); ++p) {
    checkProgram(psi.programs[p], table.prog[p]);
  }
  checkInPort(psi);
}

// Private data that often fills its area to the last byte, and lists that are longer than a
// table's.
std::vector<chassis::PsiCa> longList(Noise &noise) {
  constexpr size_t sizes[] = {0, 1, 5, 64, 128, 251};
  std::vector<chassis::PsiCa> list(noise.below(3) == 0 ? noise.below(36) : noise.below(6));
  for (chassis::PsiCa &ca : list) {
    ca.casid = static_cast<uint16_t>(noise.next());
    ca.pid = static_cast<uint16_t>(noise.below(chassis::pidCount));
    ca.privateData.assign(sizes[noise.below(std::size(sizes))], static_cast<uint8_t>(ca.casid));
  }
  return list;
}

chassis::Psi longTables(Noise noise) {
  chassis::Psi psi;
  psi.cat = longList(noise);
  psi.programs.resize(1 + noise.below(2));
  for (chassis::PsiProgram &program : psi.programs) {
    program.number = static_cast<uint16_t>(1 + (&program - psi.programs.data()));
    program.ca = longList(noise);
    program.streams.resize(noise.below(4) == 0 ? 33 : noise.below(4));
    for (chassis::PsiStream &stream : program.streams) {
      stream = {static_cast<uint8_t>(noise.next()),
                static_cast<uint16_t>(noise.below(chassis::pidCount)), longList(noise)};
    }
  }
  return psi;
}

// ------------------------------------------------------------------------------------------------
// Sending
// ------------------------------------------------------------------------------------------------

class Sender {
 public:
  // Some sections of one PID.
  void send(Input &input) {
    const uint32_t where = input.below(8);
    const uint16_t pid = where < 2 ? static_cast<uint16_t>(where)
                                   : static_cast<uint16_t>(firstPmtPid + where % pmtPids);
    std::vector<Section> sections;
    // Of two tables of programs in one packet, nobody follows the first.
    for (uint32_t left = pid == patPid ? 1 : 1 + input.below(3); left > 0; --left) {
      SectionMaker maker(input);
      sections.push_back(pid == patPid   ? maker.association()
                         : pid == catPid ? maker.conditionalAccess()
                                         : maker.programMap());
      model_.take(pid, sections.back());
    }
    Packer packer(pid, continuity_[pid], Noise(input.byte()));
    push(pid, packer.pack(sections));
    checkTaken(std::move(sections));
    require(reader_.psi() == model_.psi(), "tables are not what their sections say");
  }

  const chassis::Psi &psi() const { return reader_.psi(); }

 private:
  void push(uint16_t pid, const std::vector<chassis::TsPacket> &packets) {
    taken_.clear();
    for (const chassis::TsPacket &packet : packets) {
      require(reading::agrees(packet, chassis::PacketView(packet)), "a packet is read wrongly");
      reader_.push(packet);
      assemblers_[pid].push(packet, [this](const Section &section) { taken_.push_back(section); });
    }
  }

  // Whatever is in an undamaged section, it is put together.
  void checkTaken(std::vector<Section> sent) const {
    sent.erase(std::remove_if(sent.begin(), sent.end(),
                              [](const Section &section) { return !reading::whole(section); }),
               sent.end());
    require(taken_ == sent, "sections lost, doubled or damaged on their way");
  }

  chassis::PsiReader reader_;
  std::map<uint16_t, chassis::SectionAssembler> assemblers_;
  std::map<uint16_t, uint8_t> continuity_;
  std::vector<Section> taken_;
  Model model_;
};

}  // namespace

void checkMadeTables(Input &input) {
  if (input.left() % 4 == 0) {
    checkCardTables(longTables(Noise(static_cast<uint32_t>(input.left()))));
  }
  Sender sender;
  for (int groups = 0; groups < 24 && input.left() > 0; ++groups) {
    sender.send(input);
  }
  checkCardTables(sender.psi());
}
