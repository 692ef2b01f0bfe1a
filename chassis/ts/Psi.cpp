#include "ts/Psi.h"

// libdvbpsi's headers need this one and this order
#include <sys/types.h>

#include <dvbpsi/dvbpsi.h>

#include <dvbpsi/descriptor.h>
#include <dvbpsi/psi.h>

#include <dvbpsi/cat.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "ts/PacketView.h"

namespace chassis {

namespace {

constexpr std::uint16_t patPid = 0x0000;
constexpr std::uint16_t catPid = 0x0001;
constexpr std::uint8_t patTableId = 0x00;
constexpr std::uint8_t pmtTableId = 0x02;
constexpr std::uint8_t caDescriptorTag = 0x09;
constexpr std::size_t caDescriptorHead = 4;  // CA_system_ID and CA_PID

std::uint16_t read16(const std::uint8_t *bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

bool descriptorsFit(const std::uint8_t *begin, const std::uint8_t *end) {
  while (end - begin >= 2 && end - begin >= 2 + begin[1]) {
    begin += 2 + begin[1];
  }
  return begin == end;
}

// Whether the lengths inside a PMT section stay inside it.
bool pmtFits(const std::uint8_t *begin, const std::uint8_t *end) {
  constexpr std::ptrdiff_t programHead = 4;
  constexpr std::ptrdiff_t streamHead = 5;
  std::ptrdiff_t head = programHead;
  while (end - begin >= head) {
    const std::ptrdiff_t length = read16(begin + head - 2) & 0x0FFF;
    begin += head;
    if (end - begin < length || !descriptorsFit(begin, begin + length)) {
      return false;
    }
    begin += length;
    head = streamHead;
  }
  return begin == end && head == streamHead;
}

// libdvbpsi reads four bytes for the last program even if some of them are the CRC's.
bool patFits(const std::uint8_t *begin, const std::uint8_t *end) {
  constexpr std::ptrdiff_t entrySize = 4;
  return (end - begin) % entrySize == 0;
}

// libdvbpsi checks a section's CRC, but it trusts the lengths inside.
bool sectionFits(const dvbpsi_psi_section_t &section) {
  const std::uint8_t *begin = section.p_payload_start;
  const std::uint8_t *end = section.p_payload_end;
  if (!section.b_syntax_indicator || !section.b_current_next || begin > end) {
    return false;
  }
  switch (section.i_table_id) {
    case patTableId:
      return patFits(begin, end);
    case pmtTableId:
      return pmtFits(begin, end);
    default:
      return true;
  }
}

// One table of the stream: a libdvbpsi decoder on one PID.
class Table {
 public:
  Table() : handle_(dvbpsi_new(nullptr, DVBPSI_MSG_NONE)) {}
  virtual ~Table() { dvbpsi_delete(handle_); }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  // To a decoder that has read no section yet, a packet sent twice is one that was lost.
  void push(const TsPacket &packet) {
    const PacketView view(packet);
    const std::uint8_t counter = view.continuityCounter();
    if (std::exchange(continuity_, counter) == counter && !view.unitStart()) {
      return;
    }
    TsPacket copy = packet;
    dvbpsi_packet_push(handle_, copy.data());
  }

 protected:
  dvbpsi_t *handle() { return handle_; }

  // Lets only sound sections reach the decoder that was attached.
  void checkSections() {
    gather_ = std::exchange(handle_->p_decoder->pf_gather, checkSection);
    handle_->p_sys = this;
  }

 private:
  static void checkSection(dvbpsi_t *handle, dvbpsi_psi_section_t *section) {
    if (sectionFits(*section)) {
      static_cast<Table *>(handle->p_sys)->gather_(handle, section);
    } else {
      dvbpsi_DeletePSISections(section);
    }
  }

  dvbpsi_t *handle_;
  dvbpsi_callback_gather_t gather_ = nullptr;
  std::optional<std::uint8_t> continuity_;  // of the last packet
};

struct PatEntry {
  std::uint16_t number = 0;
  std::uint16_t pmtPid = nullPid;
};

class PatTable : public Table {
 public:
  PatTable() {
    dvbpsi_pat_attach(handle(), take, this);
    checkSections();
  }
  ~PatTable() override { dvbpsi_pat_detach(handle()); }

  bool seen = false;
  bool fresh = false;
  std::uint16_t transportStreamId = 0;
  std::vector<PatEntry> entries;

 private:
  static void take(void *self, dvbpsi_pat_t *pat) { static_cast<PatTable *>(self)->read(pat); }
  void read(dvbpsi_pat_t *pat);
};

void PatTable::read(dvbpsi_pat_t *pat) {
  entries.clear();
  for (const auto *entry = pat->p_first_program; entry != nullptr; entry = entry->p_next) {
    constexpr std::uint16_t networkPid = 0;
    const auto same = [entry](const PatEntry &known) { return known.number == entry->i_number; };
    if (entry->i_number != networkPid && std::none_of(entries.begin(), entries.end(), same)) {
      entries.push_back({entry->i_number, entry->i_pid});
    }
  }
  transportStreamId = pat->i_ts_id;
  seen = fresh = true;
  dvbpsi_pat_delete(pat);
}

std::vector<PsiCa> readCa(const dvbpsi_descriptor_t *descriptor) {
  std::vector<PsiCa> list;
  for (; descriptor != nullptr; descriptor = descriptor->p_next) {
    if (descriptor->i_tag != caDescriptorTag || descriptor->i_length < caDescriptorHead) {
      continue;
    }
    const std::uint8_t *data = descriptor->p_data;
    list.push_back({read16(data),
                    static_cast<std::uint16_t>(read16(data + 2) & 0x1FFF),
                    {data + caDescriptorHead, data + descriptor->i_length}});
  }
  return list;
}

class CatTable : public Table {
 public:
  CatTable() {
    dvbpsi_cat_attach(handle(), take, this);
    checkSections();
  }
  ~CatTable() override { dvbpsi_cat_detach(handle()); }

  bool fresh = false;
  std::vector<PsiCa> ca;

 private:
  static void take(void *self, dvbpsi_cat_t *cat) {
    auto &table = *static_cast<CatTable *>(self);
    table.ca = readCa(cat->p_first_descriptor);
    table.fresh = true;
    dvbpsi_cat_delete(cat);
  }
};

class PmtTable : public Table {
 public:
  explicit PmtTable(PatEntry entry) {
    program.number = entry.number;
    program.pmtPid = entry.pmtPid;
    dvbpsi_pmt_attach(handle(), entry.number, take, this);
    checkSections();
  }
  ~PmtTable() override { dvbpsi_pmt_detach(handle()); }

  bool seen = false;
  bool fresh = false;
  PsiProgram program;

 private:
  static void take(void *self, dvbpsi_pmt_t *pmt) { static_cast<PmtTable *>(self)->read(pmt); }
  void read(dvbpsi_pmt_t *pmt);
};

void PmtTable::read(dvbpsi_pmt_t *pmt) {
  program.version = pmt->i_version;
  program.pcrPid = pmt->i_pcr_pid;
  program.ca = readCa(pmt->p_first_descriptor);
  program.streams.clear();
  for (const auto *es = pmt->p_first_es; es != nullptr; es = es->p_next) {
    program.streams.push_back({es->i_type, es->i_pid, readCa(es->p_first_descriptor)});
  }
  seen = fresh = true;
  dvbpsi_pmt_delete(pmt);
}

// libdvbpsi trusts the adaptation field's length and the pointer_field.
bool carriesSections(const PacketView &view) {
  const std::size_t payload = view.payloadSize();
  return !view.transportError() && view.scrambling() == 0 && payload > 0;
}

bool pointerFits(const TsPacket &packet, const PacketView &view) {
  return !view.unitStart() || packet[view.payloadOffset()] < view.payloadSize() - 1;
}

}  // namespace

bool operator==(const PsiCa &a, const PsiCa &b) {
  return a.casid == b.casid && a.pid == b.pid && a.privateData == b.privateData;
}

bool operator==(const PsiStream &a, const PsiStream &b) {
  return a.type == b.type && a.pid == b.pid && a.ca == b.ca;
}

bool operator==(const PsiProgram &a, const PsiProgram &b) {
  return a.number == b.number && a.pmtPid == b.pmtPid && a.pcrPid == b.pcrPid &&
         a.version == b.version && a.ca == b.ca && a.streams == b.streams;
}

bool operator==(const Psi &a, const Psi &b) {
  return a.transportStreamId == b.transportStreamId && a.programs == b.programs && a.cat == b.cat;
}

struct PsiReader::State {
  using Pmts = std::vector<std::unique_ptr<PmtTable>>;

  void pushTables(std::uint16_t pid, const TsPacket &packet);
  bool anythingFresh();
  void followPat();
  void rebuild();

  PatTable pat;
  CatTable cat;
  Pmts pmts;                                               // in PAT order
  std::map<std::uint16_t, std::vector<PmtTable *>> byPid;  // pmts by PMT PID
  Psi psi;
  std::uint32_t changes = 0;
  ServiceNames services;
};

void PsiReader::State::pushTables(std::uint16_t pid, const TsPacket &packet) {
  if (pid == patPid) {
    pat.push(packet);
  }
  if (pid == catPid) {
    cat.push(packet);
  }
  const auto found = byPid.find(pid);
  if (found != byPid.end()) {
    for (PmtTable *pmt : found->second) {
      pmt->push(packet);
    }
  }
}

bool PsiReader::State::anythingFresh() {
  const bool newPat = std::exchange(pat.fresh, false);
  if (newPat) {
    followPat();
  }
  bool fresh = std::exchange(cat.fresh, false) || newPat;
  for (const auto &pmt : pmts) {
    fresh = std::exchange(pmt->fresh, false) || fresh;
  }
  return fresh;
}

// Keeps the PMTs of programs that stay where they were; the others are read anew.
void PsiReader::State::followPat() {
  std::map<std::uint16_t, std::unique_ptr<PmtTable>> old;
  for (auto &pmt : pmts) {
    const std::uint16_t number = pmt->program.number;
    old[number] = std::move(pmt);
  }
  pmts.clear();
  byPid.clear();
  for (const PatEntry &entry : pat.entries) {
    auto &known = old[entry.number];
    const bool stays = known && known->program.pmtPid == entry.pmtPid;
    pmts.push_back(stays ? std::move(known) : std::make_unique<PmtTable>(entry));
    byPid[entry.pmtPid].push_back(pmts.back().get());
  }
}

void PsiReader::State::rebuild() {
  Psi next;
  next.transportStreamId = pat.transportStreamId;
  next.cat = cat.ca;
  for (const auto &pmt : pmts) {
    if (pmt->seen) {
      next.programs.push_back(pmt->program);
    }
  }
  if (!(next == psi)) {
    psi = std::move(next);
    ++changes;
  }
}

PsiReader::PsiReader() : state_(std::make_unique<State>()) {}

PsiReader::~PsiReader() = default;

void PsiReader::push(const TsPacket &packet) {
  const PacketView view(packet);
  const std::uint16_t pid = view.pid();
  if (pid == ServiceNames::pid) {
    state_->services.push(packet);
  }
  const bool table = pid == patPid || pid == catPid || state_->byPid.count(pid) != 0;
  if (!table || !carriesSections(view) || !pointerFits(packet, view)) {
    return;
  }
  state_->pushTables(pid, packet);
  if (state_->anythingFresh()) {
    state_->rebuild();
  }
}

const Psi &PsiReader::psi() const {
  return state_->psi;
}

bool PsiReader::patSeen() const {
  return state_->pat.seen;
}

bool PsiReader::complete() const {
  const auto &pmts = state_->pmts;
  return state_->pat.seen &&
         std::all_of(pmts.begin(), pmts.end(), [](const auto &pmt) { return pmt->seen; });
}

std::uint32_t PsiReader::changes() const {
  return state_->changes;
}

const ServiceNames &PsiReader::services() const {
  return state_->services;
}

}  // namespace chassis
