#include "card/FilePair.h"

#include <algorithm>
#include <utility>

#include "io/FileSource.h"
#include "ts/PacketView.h"

namespace chassis {

namespace {

constexpr std::int64_t ticksPerMs = pcrHz / 1000;

std::int64_t msOf(const StreamScan &scan, std::uint64_t packets) {
  return static_cast<std::int64_t>(packets * tsPacketSize * 8 * 1000 / scan.bitrate);
}

// The shorter way around the wrap.
std::int64_t pcrStep(std::uint64_t from, std::uint64_t to) {
  const std::uint64_t forward = (to + pcrRange - from) % pcrRange;
  return forward < pcrRange / 2
             ? static_cast<std::int64_t>(forward)
             : static_cast<std::int64_t>(forward) - static_cast<std::int64_t>(pcrRange);
}

using Mark = StreamScan::PcrMark;

const Mark *markOn(const StreamScan &scan, std::uint16_t pid) {
  const auto found = scan.firstPcrs.find(pid);
  return found == scan.firstPcrs.end() ? nullptr : &found->second;
}

// The clock of a program; null: it has none that comes.
const Mark *markOf(const StreamScan &scan, std::uint16_t program) {
  if (scan.psi == nullptr) {
    return nullptr;
  }
  for (const PsiProgram &known : scan.psi->psi().programs) {
    if (known.number == program) {
      return markOn(scan, known.pcrPid);
    }
  }
  return nullptr;
}

// The same clock in both: on the same PID, or else of the same program, whose PIDs have changed.
std::pair<const Mark *, const Mark *> sameClock(const StreamScan &first, const StreamScan &second,
                                                const ProgramNumbers &numbers) {
  for (const auto &[pid, mark] : first.firstPcrs) {
    if (const Mark *other = markOn(second, pid)) {
      return {&mark, other};
    }
  }
  const std::vector<PsiProgram> none;
  for (const PsiProgram &program : first.psi != nullptr ? first.psi->psi().programs : none) {
    const Mark *mark = markOn(first, program.pcrPid);
    const Mark *other = markOf(second, numberBehind(numbers, program.number));
    if (mark != nullptr && other != nullptr) {
      return {mark, other};
    }
  }
  return {nullptr, nullptr};
}

}  // namespace

std::optional<std::int64_t> beginsLaterMs(const StreamScan &first, const StreamScan &second,
                                          const ProgramNumbers &numbers) {
  const auto [mark, other] = sameClock(first, second, numbers);
  if (mark == nullptr) {
    return std::nullopt;
  }
  const std::int64_t later = pcrStep(mark->pcr, other->pcr) / ticksPerMs +
                             msOf(first, mark->packet) - msOf(second, other->packet);
  const StreamScan &earlier = later > 0 ? first : second;
  const bool overlap = std::abs(later) < msOf(earlier, earlier.packets);
  return overlap ? std::optional<std::int64_t>(later) : std::nullopt;
}

FilePair::FilePair(GoOn goOn, ProgramNumbers numbers)
    : goOn_(std::move(goOn)), numbers_(std::move(numbers)) {}

FilePair::~FilePair() = default;

void FilePair::add(std::size_t which, const std::string &path) {
  files_[which].emplace(File{path, scanStream(path, 0, goOn_)});
}

std::optional<std::int64_t> FilePair::behindLaterMs() const {
  return beginsLaterMs(files_[Before]->scan, files_[Behind]->scan, numbers_);
}

bool FilePair::unaligned() const {
  return files_[Before] && files_[Behind] && !behindLaterMs();
}

std::unique_ptr<PacketSource> FilePair::play(std::size_t which, std::uint64_t nowMs) const {
  const File &file = *files_[which];
  const bool both = files_[Before] && files_[Behind];
  const std::int64_t later = both ? behindLaterMs().value_or(0) : 0;
  const std::int64_t delay = std::max<std::int64_t>(0, which == Behind ? later : -later);
  FileSource::Pace pace;
  pace.bitrate = file.scan.bitrate;
  pace.startMs = nowMs + static_cast<std::uint64_t>(delay);
  pace.repeat = FileSource::Repeat::Once;
  return std::make_unique<FileSource>(file.path, pace, goOn_);
}

}  // namespace chassis
