#include "cam/CaClient.h"

#include <algorithm>
#include <utility>

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
      report_(event::CamStops{factsOf(
          old, selected ? event::FeedReason::OtherEcmPid : event::FeedReason::NotSelected)});
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

void CaClient::reportChange(const Feed &feed, State before) const {
  if (feed.state == State::Waiting) {
    return;
  }
  if (feed.state == State::Running) {
    report_(event::CamDescrambles{factsOf(feed), spoilWords_});
  } else if (before == State::Running) {
    report_(event::CamStops{factsOf(feed)});
  } else {
    report_(event::CamCannot{factsOf(feed)});
  }
}

event::Feed CaClient::factsOf(const Feed &feed, event::FeedReason reason) const {
  const auto ofProgram = [&](const Feed &other) { return other.program == feed.program; };
  const bool part = std::count_if(feeds_.begin(), feeds_.end(), ofProgram) > 1;
  return {{feed.program, nameOf(names_, feed.program)}, feed.pids, feed.ecmPid, part, reason};
}

event::Feed CaClient::factsOf(const Feed &feed) const {
  event::Feed facts = factsOf(feed, reasonOf(feed));
  if (feed.state == State::Running || feed.state == State::NotEntitled) {
    facts.tier = readers_.at(feed.ecmPid).ecm->tier;
  } else if (feed.state == State::NoEcm) {
    facts.timeoutMs = ecmTimeoutMs_;
  }
  return facts;
}

event::FeedReason CaClient::reasonOf(const Feed &feed) const {
  switch (feed.state) {
    case State::Refused:
      return event::FeedReason::Refused;
    case State::NotEntitled:
      return event::FeedReason::NotEntitled;
    case State::NoEcm:
      return readers_.at(feed.ecmPid).seen ? event::FeedReason::DamagedEcms
                                           : event::FeedReason::NoEcm;
    case State::Running:
    case State::Waiting:
      break;
  }
  return event::FeedReason::EcmsCome;
}

}  // namespace chassis::cam
