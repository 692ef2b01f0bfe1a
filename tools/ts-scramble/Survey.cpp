#include "Survey.h"

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>

#include "PidText.h"
#include "PsiEdit.h"
#include "base/InputError.h"
#include "ts/PacketView.h"
#include "ts/PcrRuler.h"

namespace tsscramble {

using chassis::PacketView;
using chassis::PsiProgram;
using chassis::PsiStream;
using chassis::Section;
using chassis::TsPacket;

namespace {

constexpr double bitsPerPacket = 8.0 * chassis::tsPacketSize;

// Measures the packet rate on the first PID that carries PCRs.
class RateMeter {
 public:
  void push(const PacketView &view, std::uint64_t index) {
    const std::optional<std::uint64_t> pcr = view.pcr();
    if (pcr && view.pid() == pid_.value_or(view.pid())) {
      pid_ = view.pid();
      ruler_.add(*pcr, index, view.discontinuity());
    }
  }

  double packetsPerSecond() const { return ruler_.packetsPerSecond(); }

 private:
  std::optional<std::uint16_t> pid_;
  chassis::PcrRuler ruler_;
};

// Keeps the first section of each kind from the PIDs of PAT, CAT and PMTs.
class FirstSections {
 public:
  explicit FirstSections(Survey &result) : result_(result) { follow({patPid, catPid}); }

  void push(const TsPacket &packet, std::uint16_t pid) {
    const auto assembler = assemblers_.find(pid);
    if (assembler != assemblers_.end()) {
      assembler->second.push(packet, [this, pid](const Section &section) { take(pid, section); });
    }
  }

 private:
  using Kind = std::tuple<std::uint16_t, std::uint8_t, std::uint16_t, std::uint8_t>;

  void follow(const std::vector<std::uint16_t> &pids) {
    for (const std::uint16_t pid : pids) {
      result_.psiPids.insert(pid);
      assemblers_[pid];
    }
  }

  void take(std::uint16_t pid, const Section &section) {
    const bool current = section.size() > sectionNumberOffset && (section[5] & 1) != 0;
    if (!current || !isTable(section, tableOf(pid))) {
      return;
    }
    const Kind kind(pid, section[0], tableExtension(section), section[sectionNumberOffset]);
    if (seen_.insert(kind).second) {
      listOf(pid).push_back(section);
    }
    if (pid == patPid) {
      follow(patPids(section));
    }
  }

  static std::uint8_t tableOf(std::uint16_t pid) {
    return pid == patPid ? patTable : pid == catPid ? catTable : pmtTable;
  }
  std::vector<Section> &listOf(std::uint16_t pid) {
    return pid == patPid ? result_.pat : pid == catPid ? result_.cat : result_.pmts;
  }

  static constexpr std::size_t sectionNumberOffset = 6;

  Survey &result_;
  std::map<std::uint16_t, chassis::SectionAssembler> assemblers_;
  std::set<Kind> seen_;
};

void addPids(std::set<std::uint16_t> &pids, const std::vector<chassis::PsiCa> &list) {
  for (const chassis::PsiCa &ca : list) {
    pids.insert(ca.pid);
  }
}

void addStream(PsiProgram &program, const PsiStream &stream) {
  const bool known =
      std::any_of(program.streams.begin(), program.streams.end(),
                  [&stream](const PsiStream &other) { return other.pid == stream.pid; });
  if (!known) {
    program.streams.push_back(stream);
  }
}

void addProgram(Survey &result, const PsiProgram &program) {
  result.usedPids.insert(program.pcrPid);
  addPids(result.usedPids, program.ca);
  auto known =
      std::find_if(result.programs.begin(), result.programs.end(),
                   [&program](const PsiProgram &other) { return other.number == program.number; });
  if (known == result.programs.end()) {
    known = result.programs.insert(known, program);
  }
  for (const PsiStream &stream : program.streams) {
    result.usedPids.insert(stream.pid);
    addPids(result.usedPids, stream.ca);
    addStream(*known, stream);
  }
}

void addPsi(Survey &result, const chassis::Psi &psi) {
  addPids(result.usedPids, psi.cat);
  for (const PsiProgram &program : psi.programs) {
    addProgram(result, program);
  }
}

void require(bool condition, const std::string &path, const std::string &wrong) {
  if (!condition) {
    throw chassis::InputError("'" + path + "' " + wrong);
  }
}

}  // namespace

const PsiProgram *Survey::program(std::uint16_t number) const {
  const auto found =
      std::find_if(programs.begin(), programs.end(),
                   [number](const PsiProgram &program) { return program.number == number; });
  return found == programs.end() ? nullptr : &*found;
}

Survey survey(chassis::TsFile &file, const std::string &path, std::uint64_t bitrate) {
  Survey result;
  result.path = path;
  chassis::PsiReader psi;
  FirstSections sections(result);
  RateMeter rate;
  TsPacket packet;
  for (std::uint32_t changes = 0; file.goesOn() && file.next(packet); ++result.packets) {
    const PacketView view(packet);
    if (view.transportError()) {
      continue;
    }
    result.usedPids.insert(view.pid());
    if (view.scrambling() != 0) {
      result.scrambledPids.insert(view.pid());
    }
    rate.push(view, result.packets);
    sections.push(packet, view.pid());
    psi.push(packet);
    if (psi.changes() != changes) {
      changes = psi.changes();
      addPsi(result, psi.psi());
    }
  }
  result.usedPids.insert(result.psiPids.begin(), result.psiPids.end());
  result.packetsPerSecond =
      bitrate != 0 ? static_cast<double>(bitrate) / bitsPerPacket : rate.packetsPerSecond();
  require(!result.pat.empty(), path, "has no program association table (PAT)");
  require(!result.programs.empty(), path, "has no program map table (PMT)");
  require(result.packetsPerSecond > 0, path,
          "has no PCR to tell its bitrate; --bitrate would be right");
  return result;
}

}  // namespace tsscramble
