#include "card/StreamScan.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include "base/InputError.h"
#include "base/Text.h"
#include "ts/PacketView.h"
#include "ts/PcrRuler.h"
#include "ts/TsFile.h"

namespace chassis {

namespace {

// The first and the last continuity_counter of every PID's packets with a payload.
class CcEnds {
 public:
  void add(const PacketView &view) {
    const std::uint16_t pid = view.pid();
    if (!view.hasPayload() || pid == nullPid) {
      return;
    }
    ends_[pid].last = view.continuityCounter();
    if (!ends_[pid].seen) {
      ends_[pid] = {true, ends_[pid].last, ends_[pid].last};
    }
  }

  std::array<std::uint8_t, pidCount> steps() const {
    std::array<std::uint8_t, pidCount> steps{};
    for (std::size_t pid = 0; pid < pidCount; ++pid) {
      const Ends &ends = ends_[pid];
      steps[pid] = static_cast<std::uint8_t>(ends.seen ? (ends.last + 1 - ends.first) & 0x0F : 0);
    }
    return steps;
  }

 private:
  struct Ends {
    bool seen = false;
    std::uint8_t first = 0;
    std::uint8_t last = 0;
  };
  std::array<Ends, pidCount> ends_{};
};

using PcrRulers = std::map<std::uint16_t, PcrRuler>;

void addPcr(PcrRulers &rulers, const PacketView &view, std::uint64_t packet) {
  if (const auto pcr = view.pcr()) {
    rulers[view.pid()].add(*pcr, packet, view.discontinuity());
  }
}

double measuredBitrate(const Psi &psi, const PcrRulers &rulers) {
  for (const PsiProgram &program : psi.programs) {
    const auto ruler = rulers.find(program.pcrPid);
    if (ruler != rulers.end() && ruler->second.bitrate() > 0) {
      return ruler->second.bitrate();
    }
  }
  return 0;
}

// Which PIDs the PMTs give for clock references, and what is on them.
std::string pcrsFound(const Psi &psi, const PcrRulers &rulers) {
  std::vector<std::string> pids;
  bool some = false;
  for (const PsiProgram &program : psi.programs) {
    const std::string pid = "PID " + hex(program.pcrPid, 4);
    const bool known = std::find(pids.begin(), pids.end(), pid) != pids.end();
    if (program.pcrPid != nullPid && !known) {
      pids.push_back(pid);
    }
    some = some || rulers.count(program.pcrPid) != 0;
  }
  if (pids.empty()) {
    return "no PMT gives a PID for clock references (PCR)";
  }
  return std::string(pids.size() == 1 ? "the PMT gives " : "the PMTs give ") + joined(pids) +
         " for clock references (PCR), and there are " + (some ? "too few" : "none") + " on " +
         (pids.size() == 1 ? "it" : "them");
}

std::string pcrTrouble(const std::string &path, const Psi &psi, const PcrRulers &rulers) {
  if (measuredBitrate(psi, rulers) > 0) {
    return "";
  }
  return "'" + path + "' does not tell its bitrate: " + pcrsFound(psi, rulers) +
         "; a card can be given one in bit/s: cardInsert slot, \"" + path + "\", 38000000";
}

void requirePcrs(const std::string &path, const Psi &psi, const PcrRulers &rulers) {
  const std::string trouble = pcrTrouble(path, psi, rulers);
  if (!trouble.empty()) {
    throw InputError(trouble);
  }
}

std::uint64_t checkedBitrate(const std::string &path, double bitrate) {
  if (bitrate < 1 || bitrate > static_cast<double>(maxBitrate)) {
    throw InputError("'" + path + "' cannot be played at " + std::to_string(bitrate) +
                     " bit/s; 1 to " + std::to_string(maxBitrate) + " are possible");
  }
  return static_cast<std::uint64_t>(std::llround(bitrate));
}

// A file whose tables change begins with those that come first. `whole` has read all of it.
std::unique_ptr<PsiReader> firstTables(TsFile &file, const PsiReader &whole) {
  auto psi = std::make_unique<PsiReader>();
  const bool hasCat = !whole.psi().cat.empty();
  const auto begun = [&psi, hasCat] {
    return psi->complete() && !psi->psi().programs.empty() && psi->psi().cat.empty() != hasCat;
  };
  TsPacket packet;
  file.rewind();
  while (!begun() && file.next(packet)) {
    psi->push(packet);
  }
  return psi;
}

}  // namespace

void requirePrograms(const std::string &path, const PsiReader &psi) {
  if (!psi.patSeen()) {
    throw InputError("'" + path + "' has no program association table (PAT)");
  }
  if (psi.psi().programs.empty()) {
    throw InputError("'" + path + "' has no program with a program map table (PMT)");
  }
}

std::string bitrateTrouble(const std::string &path, const GoOn &goOn) {
  PsiReader psi;
  PcrRulers rulers;
  TsFile file(path, goOn);
  TsPacket packet;
  while (measuredBitrate(psi.psi(), rulers) <= 0 && file.goesOn() && file.next(packet)) {
    const PacketView view(packet);
    if (!view.transportError()) {
      psi.push(packet);
      addPcr(rulers, view, file.packets());
    }
  }
  file.requireUninterrupted();
  return pcrTrouble(path, psi.psi(), rulers);
}

StreamScan scanStream(const std::string &path, std::uint64_t bitrate, const GoOn &goOn) {
  StreamScan scan;
  PsiReader whole;
  const auto ccEnds = std::make_unique<CcEnds>();
  PcrRulers rulers;
  TsFile file(path, goOn);
  TsPacket packet;
  while (file.goesOn() && file.next(packet)) {
    const PacketView view(packet);
    if (view.transportError()) {
      continue;
    }
    whole.push(packet);
    scan.pids.set(view.pid());
    ccEnds->add(view);
    if (const auto pcr = view.pcr()) {
      scan.firstPcrs.emplace(view.pid(), StreamScan::PcrMark{*pcr, file.packets() - 1});
    }
    addPcr(rulers, view, file.packets());
  }
  file.requireUninterrupted();
  if (goOn) {
    goOn({"", 1, 1});  // done
  }
  requirePrograms(path, whole);
  if (bitrate == 0) {
    requirePcrs(path, whole.psi(), rulers);
  }
  const double played =
      bitrate != 0 ? static_cast<double>(bitrate) : measuredBitrate(whole.psi(), rulers);
  scan.bitrate = checkedBitrate(path, played);
  scan.packets = file.packets();
  scan.skippedBytes = file.skippedBytes();
  scan.ccStep = ccEnds->steps();
  scan.psi = firstTables(file, whole);
  return scan;
}

}  // namespace chassis
