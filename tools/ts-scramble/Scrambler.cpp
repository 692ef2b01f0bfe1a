#include "Scrambler.h"

#include <bitstream/mpeg/ts.h>
#include <dvbcsa/dvbcsa.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "PidText.h"
#include "PsiEdit.h"
#include "base/InputError.h"
#include "io/Files.h"
#include "io/ReplacedFile.h"
#include "ts/PacketView.h"

namespace tsscramble {

using chassis::PacketView;
using chassis::Section;
using chassis::TsPacket;

namespace {

constexpr double emmSeconds = 1;
constexpr double catSeconds = 0.5;
constexpr double patienceForNull = 0.2;  // of an ECM interval
constexpr std::uint8_t scrambledEven = 2;

// The packets of the output.
class OutputFile {
 public:
  explicit OutputFile(const std::string &path) : file_(path) {}

  void write(const TsPacket &packet) {
    file_.write(packet.data(), packet.size());
    ++packets_;
  }
  void finish() { file_.finish(); }

  std::uint64_t packets() const { return packets_; }

 private:
  chassis::ReplacedFile file_;
  std::uint64_t packets_ = 0;
};

struct FreeKey {
  void operator()(dvbcsa_key_t *key) const { dvbcsa_key_free(key); }
};

// The word that an ECM stream scrambles with now.
struct CurrentWord {
  std::unique_ptr<dvbcsa_key_t, FreeKey> key{dvbcsa_key_alloc()};
  std::optional<std::uint32_t> period;
};

// A section that is sent again and again.
struct Repeated {
  std::uint16_t pid = 0;
  double interval = 0;  // in input packets
  double next = 0;      // input packet before which it is due
  std::function<Section()> section;
};

class Scrambler {
 public:
  Scrambler(const Request &request, const Survey &survey, const Plan &plan, OutputFile &out);

  void run(chassis::TsFile &file);

 private:
  void planRepeated();
  void addRepeated(std::uint16_t pid, double seconds, double phase,
                   std::function<Section()> section);
  void followSections();
  void writeStart();

  void schedule();
  void sendDue(std::size_t repeated);
  void take(TsPacket &packet);
  void takeNull(const TsPacket &packet);
  void takeSections(chassis::SectionAssembler &assembler, const TsPacket &packet);
  void takeStream(std::size_t ecm, TsPacket &packet);
  Section edited(const Section &section) const;
  void writeSection(std::uint16_t pid, const Section &section);

  const Request &request_;
  const Survey &survey_;
  const Plan &plan_;
  OutputFile &out_;
  const Descriptors catDescriptor_;

  std::uint64_t index_ = 0;   // of the input packet at hand
  std::uint32_t period_ = 0;  // its crypto period
  std::uint32_t heartbeat_ = 0;
  std::int64_t surplus_ = 0;  // packets written more than read
  std::vector<CurrentWord> words_;
  std::vector<Repeated> repeated_;
  std::deque<std::pair<double, std::size_t>> waiting_;  // deadline and what waits for a null packet
  std::map<std::uint16_t, chassis::SectionAssembler> assemblers_;
  std::map<std::uint16_t, std::uint8_t> continuity_;  // of the PIDs that are written anew
};

Scrambler::Scrambler(const Request &request, const Survey &survey, const Plan &plan,
                     OutputFile &out)
    : request_(request),
      survey_(survey),
      plan_(plan),
      out_(out),
      catDescriptor_(caDescriptor(request.casid, plan.emmPid)),
      words_(plan.ecms.size()) {
  planRepeated();
  followSections();
}

void Scrambler::addRepeated(std::uint16_t pid, double seconds, double phase,
                            std::function<Section()> section) {
  const double interval = seconds * survey_.packetsPerSecond;
  repeated_.push_back({pid, interval, interval * phase, std::move(section)});
}

void Scrambler::planRepeated() {
  const auto count = static_cast<double>(plan_.ecms.size());
  for (std::size_t i = 0; i < plan_.ecms.size(); ++i) {
    addRepeated(plan_.ecms[i].pid, request_.ecmInterval, static_cast<double>(i + 1) / count,
                [this, i] { return encodeEcm(ecmOf(request_, plan_, i, period_)); });
  }
  addRepeated(plan_.emmPid, emmSeconds, 0.5,
              [this] { return chassis::labca::encodeEmm(heartbeat_++); });
  if (survey_.cat.empty()) {
    addRepeated(catPid, catSeconds, 1, [this] { return newCat(catDescriptor_); });
  }
}

void Scrambler::followSections() {
  assemblers_[patPid];
  assemblers_[catPid];
  for (const auto &[number, edit] : plan_.pmts) {
    assemblers_[survey_.program(number)->pmtPid];
  }
}

void Scrambler::writeSection(std::uint16_t pid, const Section &section) {
  for (const TsPacket &packet : chassis::sectionPackets(section, pid, continuity_[pid])) {
    out_.write(packet);
    ++surplus_;
  }
}

// What a receiver needs before the first scrambled packet.
void Scrambler::writeStart() {
  for (const Section &pat : survey_.pat) {
    writeSection(patPid, pat);
  }
  for (const Section &cat : survey_.cat) {
    writeSection(catPid, edited(cat));
  }
  for (const Section &pmt : survey_.pmts) {
    const auto chosen = plan_.pmts.find(tableExtension(pmt));
    if (chosen != plan_.pmts.end()) {
      writeSection(survey_.program(chosen->first)->pmtPid, edited(pmt));
    }
  }
  for (const Repeated &repeated : repeated_) {
    writeSection(repeated.pid, repeated.section());
  }
}

void Scrambler::run(chassis::TsFile &file) {
  writeStart();
  TsPacket packet;
  for (; index_ < plan_.packets && file.goesOn() && file.next(packet); ++index_) {
    period_ = plan_.periodAt(index_);
    schedule();
    take(packet);
  }
}

// Lets what is due wait for a null packet, and no longer than that is worth.
void Scrambler::schedule() {
  const auto now = static_cast<double>(index_);
  const double patience = patienceForNull * request_.ecmInterval * survey_.packetsPerSecond;
  for (std::size_t i = 0; i < repeated_.size(); ++i) {
    for (Repeated &repeated = repeated_[i]; repeated.next <= now;
         repeated.next += repeated.interval) {
      waiting_.emplace_back(repeated.next + patience, i);
    }
  }
  while (!waiting_.empty() && waiting_.front().first <= now) {
    sendDue(waiting_.front().second);
    waiting_.pop_front();
  }
}

void Scrambler::sendDue(std::size_t repeated) {
  writeSection(repeated_[repeated].pid, repeated_[repeated].section());
}

void Scrambler::take(TsPacket &packet) {
  --surplus_;
  const PacketView view(packet);
  const std::uint16_t pid = view.pid();
  const auto ecm = plan_.ecmOfPid.find(pid);
  const auto assembler = assemblers_.find(pid);
  if (view.transportError()) {
    out_.write(packet);
    ++surplus_;
  } else if (pid == chassis::nullPid) {
    takeNull(packet);
  } else if (assembler != assemblers_.end()) {
    takeSections(assembler->second, packet);
  } else {
    if (ecm != plan_.ecmOfPid.end()) {
      takeStream(ecm->second, packet);
    }
    out_.write(packet);
    ++surplus_;
  }
}

// A null packet gives its place to what waits, or makes up for what was inserted before.
void Scrambler::takeNull(const TsPacket &packet) {
  if (!waiting_.empty()) {
    sendDue(waiting_.front().second);
    waiting_.pop_front();
  } else if (surplus_ < 0) {
    out_.write(packet);
    ++surplus_;
  }
}

// The packets themselves go; what carries a PCR stays, without its payload.
void Scrambler::takeSections(chassis::SectionAssembler &assembler, const TsPacket &packet) {
  const PacketView view(packet);
  if (view.pcr()) {
    TsPacket clock = packet;
    const std::size_t end = view.hasPayload() ? view.payloadOffset() : chassis::tsPacketSize;
    std::fill(clock.begin() + static_cast<std::ptrdiff_t>(end), clock.end(), 0xFF);
    clock[1] &= 0x1F;
    clock[3] = static_cast<std::uint8_t>(0x20 | ((continuity_[view.pid()] + 15) & 0x0F));
    clock[4] = chassis::tsPacketSize - 5;
    out_.write(clock);
    ++surplus_;
  }
  assembler.push(
      packet, [this, &view](const Section &section) { writeSection(view.pid(), edited(section)); });
}

Section Scrambler::edited(const Section &section) const {
  constexpr std::size_t sectionNumberOffset = 6;
  if (isTable(section, pmtTable)) {
    const auto edit = plan_.pmts.find(tableExtension(section));
    return edit == plan_.pmts.end() ? section : editPmt(section, edit->second);
  }
  if (isTable(section, catTable) && section[sectionNumberOffset] == 0) {
    return editCat(section, catDescriptor_);
  }
  return section;
}

void Scrambler::takeStream(std::size_t ecm, TsPacket &packet) {
  const PacketView view(packet);
  if (view.payloadSize() == 0) {
    return;
  }
  CurrentWord &word = words_[ecm];
  if (word.period != period_) {
    word.period = period_;
    dvbcsa_key_set(controlWord(request_, plan_, ecm, period_).data(), word.key.get());
  }
  dvbcsa_encrypt(word.key.get(), packet.data() + view.payloadOffset(),
                 static_cast<unsigned>(view.payloadSize()));
  ts_set_scrambling(packet.data(), static_cast<std::uint8_t>(scrambledEven | (period_ & 1)));
}

void checkDifferent(const std::string &in, const std::string &out) {
  chassis::Files files;
  files.read("the input", in);
  files.checkWriting("the output", out);
}

}  // namespace

Result scramble(const Request &request, const std::string &in, const std::string &out,
                const chassis::GoOn &goOn) {
  check(request);
  chassis::TsFile file(in, goOn);
  checkDifferent(in, out);
  Result result;
  result.survey = survey(file, in, request.bitrate);
  result.plan = makePlan(request, result.survey);
  file.rewind();
  OutputFile output(out);
  Scrambler(request, result.survey, result.plan, output).run(file);
  output.finish();
  result.packetsWritten = output.packets();
  return result;
}

}  // namespace tsscramble
