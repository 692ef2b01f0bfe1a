#include "cam/CaClient.h"

#include <algorithm>
#include <utility>

#include "base/Text.h"
#include "ts/PacketView.h"

namespace chassis::cam {
namespace {

void setMember(std::set<std::uint16_t> &members, std::uint16_t value, bool member) {
  if (member) {
    members.insert(value);
  } else {
    members.erase(value);
  }
}

constexpr const char *stops = "stops descrambling ";

}  // namespace

CaClient::CaClient(std::vector<std::uint16_t> caSystems, std::uint32_t ecmTimeoutMs, Report report,
                   ProgramNames names)
    : caSystems_(std::move(caSystems)),
      ecmTimeoutMs_(ecmTimeoutMs),
      report_(std::move(report)),
      names_(std::move(names)),
      readerOfPid_(pidCount, nullptr) {}

// The first descriptor of a CA system that this CAM has.
std::optional<std::uint16_t> CaClient::ecmPidOf(const CaLevel &level) const {
  for (const CaDescriptor &descriptor : level.ca) {
    if (std::count(caSystems_.begin(), caSystems_.end(), descriptor.casid) != 0) {
      return descriptor.ecmPid;
    }
  }
  return std::nullopt;
}

std::vector<CaClient::Feed> CaClient::feedsOf(const CaPmt &pmt) const {
  std::vector<Feed> feeds;
  for (const CaPmtStream &stream : pmt.streams) {
    const CaLevel &level = stream.level.ca.empty() ? pmt.level : stream.level;
    const std::optional<std::uint16_t> ecmPid = ecmPidOf(level);
    if (!ecmPid || level.command != Command::OkDescrambling) {
      continue;
    }
    auto feed = std::find_if(feeds.begin(), feeds.end(),
                             [&](const Feed &other) { return other.ecmPid == *ecmPid; });
    if (feed == feeds.end()) {
      feed = feeds.insert(feeds.end(), Feed{pmt.program, *ecmPid, {}, State::Waiting});
    }
    feed->pids.push_back(stream.pid);
  }
  return feeds;
}

void CaClient::select(Selection selection, std::uint64_t nowMs) {
  nowMs_ = nowMs;
  selection_ = std::move(selection);
  std::vector<Feed> feeds;
  for (const auto &[program, pmt] : selection_) {
    const std::vector<Feed> own = feedsOf(pmt);
    feeds.insert(feeds.end(), own.begin(), own.end());
  }
  replaceFeeds(std::move(feeds));
  replaceReaders(nowMs);
  review();
  assign();
}

void CaClient::forget() {
  selection_.clear();
  feeds_.clear();
  replaceReaders(nowMs_);
  assign();
}

void CaClient::replaceFeeds(std::vector<Feed> feeds) {
  const auto sameAs = [](const Feed &feed) {
    return [&feed](const Feed &other) {
      return other.program == feed.program && other.ecmPid == feed.ecmPid;
    };
  };
  for (const Feed &old : feeds_) {
    const auto kept = std::find_if(feeds.begin(), feeds.end(), sameAs(old));
    if (kept != feeds.end()) {
      kept->state = old.state;
    } else if (old.state == State::Running) {
      const bool selected = selection_.count(old.program) != 0;
      report(EventKind::CamStops, old, stops,
             selected ? "selected with another ECM PID now" : "no longer selected");
    }
  }
  feeds_ = std::move(feeds);
}

void CaClient::replaceReaders(std::uint64_t nowMs) {
  std::set<std::uint16_t> wanted;
  for (const Feed &feed : feeds_) {
    wanted.insert(feed.ecmPid);
  }
  for (auto reader = readers_.begin(); reader != readers_.end();) {
    if (wanted.count(reader->first) != 0) {
      ++reader;
      continue;
    }
    descrambler_.drop(reader->first);
    reader = readers_.erase(reader);
  }
  for (const std::uint16_t pid : wanted) {
    const auto [reader, created] = readers_.try_emplace(pid);
    if (created) {
      reader->second.goodMs = nowMs;
    }
  }
}

std::uint16_t CaClient::tierOf(std::uint16_t program, std::uint16_t ecmPid) const {
  const auto reader = readers_.find(ecmPid);
  return reader != readers_.end() && reader->second.ecm ? reader->second.ecm->tier : program;
}

CaEnable CaClient::enableOf(std::uint16_t program, const CaLevel &level) const {
  const std::optional<std::uint16_t> ecmPid = ecmPidOf(level);
  if (level.ca.empty()) {
    return CaEnable::None;
  }
  if (!ecmPid || refusedPrograms_.count(program) != 0) {
    return CaEnable::Technical;
  }
  return revokedTiers_.count(tierOf(program, *ecmPid)) != 0 ? CaEnable::NoEntitlement
                                                            : CaEnable::Possible;
}

CaPmtReply CaClient::answer(const CaPmt &query) const {
  CaPmtReply reply;
  reply.program = query.program;
  reply.versionByte = query.versionByte;
  reply.enable = enableOf(query.program, query.level);
  for (const CaPmtStream &stream : query.streams) {
    reply.streams.push_back({stream.pid, enableOf(query.program, stream.level)});
  }
  return reply;
}

void CaClient::tick(std::uint64_t nowMs) {
  nowMs_ = nowMs;
  review();
}

void CaClient::process(TsPacket *const *packets, std::size_t count, std::uint64_t nowMs) {
  nowMs_ = nowMs;
  for (std::size_t i = 0; i < count; ++i) {
    TsPacket &packet = *packets[i];
    const std::uint16_t pid = PacketView(packet).pid();
    if (EcmReader *reader = readerOfPid_[pid]) {
      reader->seen = true;
      reader->assembler.push(
          packet, [this, reader, pid](const Section &section) { readEcm(*reader, pid, section); });
    } else {
      descrambler_.push(packet);
    }
  }
}

bool CaClient::mustSettleBefore(const CaClient &next) const {
  return (descrambler_.pending() & next.ecmPids_).any();
}

void CaClient::readEcm(EcmReader &reader, std::uint16_t pid, const Section &section) {
  const bool repeated = section == reader.last;
  if (!repeated) {
    const std::optional<labca::Ecm> ecm = labca::decodeEcm(section.data(), section.size());
    if (!ecm) {
      return;
    }
    reader.last = section;
    reader.ecm = ecm;
    setWords(pid, *ecm);
  }
  reader.goodMs = nowMs_;
  reader.seen = false;
  review();
}

void CaClient::setWords(std::uint16_t ecmPid, const labca::Ecm &ecm) {
  constexpr std::uint8_t spoiler = 0x5A;
  const auto set = [&](Parity parity, labca::ControlWord word) {
    word[0] ^= spoilWords_ ? spoiler : 0;
    word[4] ^= spoilWords_ ? spoiler : 0;
    labca::setChecksums(word);
    descrambler_.setWord(ecmPid, parity, word);
  };
  set(Parity::Even, ecm.even);
  set(Parity::Odd, ecm.odd);
}

void CaClient::entitle(std::uint16_t tier, bool on) {
  setMember(revokedTiers_, tier, !on);
  review();
}

void CaClient::refuse(std::uint16_t program, bool on) {
  setMember(refusedPrograms_, program, on);
  review();
}

void CaClient::spoilWords(bool on) {
  if (on == spoilWords_) {
    return;
  }
  spoilWords_ = on;
  for (const Feed &feed : feeds_) {
    if (feed.state == State::Running) {
      reportChange(feed, feed.state);
    }
  }
  for (const auto &[pid, reader] : readers_) {
    if (reader.ecm) {
      setWords(pid, *reader.ecm);
    }
  }
}

CaClient::State CaClient::judge(const Feed &feed) const {
  const EcmReader &reader = readers_.at(feed.ecmPid);
  if (refusedPrograms_.count(feed.program) != 0) {
    return State::Refused;
  }
  if (reader.ecm && revokedTiers_.count(reader.ecm->tier) != 0) {
    return State::NotEntitled;
  }
  if (nowMs_ - reader.goodMs > ecmTimeoutMs_) {
    return State::NoEcm;
  }
  return reader.ecm ? State::Running : State::Waiting;
}

// Brings every feed to the state that it is in now.
void CaClient::review() {
  bool changed = false;
  for (Feed &feed : feeds_) {
    const State before = std::exchange(feed.state, judge(feed));
    if (feed.state != before) {
      changed = true;
      reportChange(feed, before);
    }
  }
  if (changed) {
    assign();
  }
}

void CaClient::assign() {
  descrambler_.releaseAll();
  std::fill(readerOfPid_.begin(), readerOfPid_.end(), nullptr);
  ecmPids_.reset();
  for (auto &[pid, reader] : readers_) {
    ecmPids_.set(pid);
    readerOfPid_[pid] = &reader;
  }
  for (const Feed &feed : feeds_) {
    for (const std::uint16_t pid : feed.pids) {
      if (feed.state == State::Running) {
        descrambler_.assign(pid, feed.ecmPid);
      }
    }
  }
}

// The streams are named too where they do not share their ECMs.
std::string CaClient::nameOf(const Feed &feed) const {
  std::string name = programText(feed.program, chassis::nameOf(names_, feed.program));
  const auto ofProgram = [&](const Feed &other) { return other.program == feed.program; };
  if (std::count_if(feeds_.begin(), feeds_.end(), ofProgram) > 1) {
    for (const std::uint16_t pid : feed.pids) {
      name += (pid == feed.pids.front() ? " PID " : ", ") + hex(pid, 4);
    }
  }
  return name;
}

// Clear headers around garbage are no descrambled program.
const char *CaClient::runningVerb() const {
  return spoilWords_ ? "works with wrong keys on " : "descrambles ";
}

void CaClient::reportChange(const Feed &feed, State before) const {
  if (feed.state == State::Waiting) {
    return;
  }
  const std::string why = reasonOf(feed);
  if (feed.state == State::Running) {
    report(EventKind::CamDescrambles, feed, runningVerb(), why);
  } else if (before == State::Running) {
    report(EventKind::CamStops, feed, stops, why);
  } else {
    report(EventKind::CamCannot, feed, "does not descramble ", why);
  }
}

void CaClient::report(EventKind kind, const Feed &feed, const std::string &verb,
                      const std::string &why) const {
  report_({kind,
           {},
           verb + nameOf(feed),
           why,
           {{"programs", std::vector{feed.program}},
            {"pids", feed.pids},
            {"ecm_pid", std::uint64_t{feed.ecmPid}}}});
}

std::string CaClient::reasonOf(const Feed &feed) const {
  const EcmReader &reader = readers_.at(feed.ecmPid);
  switch (feed.state) {
    case State::Running:
      return "ECMs on PID " + hex(feed.ecmPid, 4) + ", tier " + std::to_string(reader.ecm->tier);
    case State::Refused:
      return "refuses it for technical reasons";
    case State::NotEntitled:
      return "no entitlement for tier " + std::to_string(reader.ecm->tier);
    case State::NoEcm:
      return std::string(reader.seen ? "only damaged ECMs" : "no ECM") + " on PID " +
             hex(feed.ecmPid, 4) + " for " + std::to_string(ecmTimeoutMs_) + " ms";
    case State::Waiting:
      break;
  }
  return "";
}

}  // namespace chassis::cam
