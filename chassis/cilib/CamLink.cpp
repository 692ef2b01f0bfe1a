#include "cilib/CamLink.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/ProgramText.h"
#include "cilib/CaText.h"
#include "cilib/ReplyRecord.h"
#include "kernel/Semaphore.h"

namespace chassis {
namespace {

constexpr std::uint64_t answerLimitMs = 5000;
constexpr std::uint32_t maxRecords = 32;
// Bounds one tick against a CAM that never stops talking.
constexpr int apdusPerTick = 64;

// The CA systems of all descriptors of a record.
std::vector<std::uint16_t> caSystemsOf(const CaPmtProg &record) {
  std::vector<std::uint16_t> systems;
  const auto add = [&systems](const auto &level) {
    const std::size_t count = std::min<std::size_t>(level.caNum, std::size(level.casid));
    systems.insert(systems.end(), level.casid, level.casid + count);
  };
  add(record);
  std::for_each_n(record.ele, std::min<std::size_t>(record.eleNum, std::size(record.ele)), add);
  return systems;
}

bool contains(const std::vector<std::uint16_t> &ids, std::uint16_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

event::Reply replyOf(const event::Answer &answer, const CaReply &reply) {
  event::Reply facts{answer, {}, {}};
  for (const CaReplyStream &stream : reply.streams) {
    if (stream.caEnable != 0) {
      facts.add(stream.pid, stream.caEnable);
    }
  }
  return facts;
}

}  // namespace

// What one call of send hands over.
struct CamLink::Batch {
  std::vector<Apdu> apdus;
  event::CaPmts sent;
  std::map<std::uint16_t, Query> queries;
  std::vector<std::string> leftOut;
};

CamLink::CamLink(Place place, Events &events, SEM_ID flag, CaPmtReply &answers)
    : place_(place), events_(events), flag_(flag), answers_(answers) {}

// ------------------------------------------------------------------------------------------------
// Coming and going
// ------------------------------------------------------------------------------------------------

void CamLink::insert(std::unique_ptr<CamPort> cam, ProgramNames names) {
  remove();
  cam_ = std::move(cam);
  names_ = std::move(names);
  history_ = {};
  startUp(event::StartReason::Inserted);
}

void CamLink::observe(std::vector<std::uint16_t> caSystems, std::function<void()> onReset) {
  if (phase_ != Phase::Observed) {
    remove();
    history_ = {};
    history_.observed = true;
  }
  forgetExchange();
  phase_ = Phase::Observed;
  caSystems_ = std::move(caSystems);
  onReset_ = std::move(onReset);
  flag_->give();
}

void CamLink::remove() {
  if (phase_ == Phase::Observed) {
    phase_ = Phase::Empty;
    forgetExchange();
    return;
  }
  if (cam_ == nullptr) {
    return;
  }
  cam_.reset();
  phase_ = Phase::Empty;
  forgetExchange();
  tell(event::CamRemoved{});
}

void CamLink::noteReset(std::uint64_t nowMs) {
  history_.reset = true;
  history_.resetMs = nowMs;
  ++history_.resets;
}

bool CamLink::resetObserved(std::uint64_t nowMs) {
  noteReset(nowMs);
  tell(event::ResetAdvised{{history_.resets}});
  if (onReset_) {
    onReset_();
  }
  return true;
}

bool CamLink::reset(std::uint64_t nowMs) {
  if (phase_ == Phase::Observed) {
    return resetObserved(nowMs);
  }
  if (cam_ == nullptr) {
    tell(event::NoCamToReset{});
    return false;
  }
  cam_->reset(nowMs);
  noteReset(nowMs);
  tell(event::CamReset{{history_.resets}});
  startUp(event::StartReason::Reset);
  return true;
}

void CamLink::startUp(event::StartReason reason) {
  phase_ = Phase::StartingUp;
  told_.reset();
  forgetExchange();
  tell(event::CamStarting{reason});
}

void CamLink::forgetExchange() {
  caSystems_.clear();
  queries_.clear();
  queriedMs_.reset();
  answers_ = {};
  // What the CAM needed before, it is given once it is usable again.
  flag_->take();
}

void CamLink::forgetCaSystems() {
  if (phase_ == Phase::Observed) {
    return;
  }
  caSystems_.clear();
  if (phase_ == Phase::Usable) {
    phase_ = Phase::StartingUp;
  }
}

// ------------------------------------------------------------------------------------------------
// What the module asks
// ------------------------------------------------------------------------------------------------

std::uint32_t CamLink::insertStatus() const {
  if (phase_ == Phase::Empty) {
    return 0;
  }
  return usable() ? 1 : 2;
}

bool CamLink::supports(std::uint16_t caSystem) const {
  return contains(caSystems_, caSystem);
}

void CamLink::programsChanged() {
  if (usable()) {
    flag_->give();
  }
}

void CamLink::forgetCaPmt(std::uint16_t caSystem) {
  for (auto query = queries_.begin(); query != queries_.end();) {
    const auto &systems = query->second.caSystems;
    if (systems.empty() || contains(systems, caSystem)) {
      dropReply(answers_, query->first);
      query = queries_.erase(query);
    } else {
      ++query;
    }
  }
  if (queries_.empty()) {
    queriedMs_.reset();
  }
}

// ------------------------------------------------------------------------------------------------
// Sending
// ------------------------------------------------------------------------------------------------

std::int32_t CamLink::send(CaPmtProg *const *records, std::uint32_t count, std::uint64_t nowMs) {
  if (phase_ != Phase::Usable || records == nullptr || count == 0) {
    return 0;
  }
  if (count > maxRecords) {
    tell(event::CaPmtRefused{count, maxRecords});
    return 0;
  }
  Batch batch;
  std::for_each_n(records, count, [&](const CaPmtProg *record) { encode(record, batch); });
  startQuery(batch, nowMs);
  // Told first, so that what the CAM does about it follows in the history.
  noteSent(batch, nowMs);
  for (const Apdu &apdu : batch.apdus) {
    cam_->receive(apdu);
  }
  return static_cast<std::int32_t>(batch.apdus.size());
}

void CamLink::encode(const CaPmtProg *record, Batch &batch) {
  if (record == nullptr || record->mark != 1) {
    batch.leftOut.push_back("a record is not filled");
    return;
  }
  EncodedCaPmt encoded = encodeCaPmt(*record);
  batch.apdus.push_back(std::move(encoded.apdu));
  const std::string name = nameOf(names_, record->progNum);
  batch.sent.programs.add(record->progNum, name);
  batch.sent.listManagement.push_back(listManagementText(record->listMgmt));
  if (record->cmdId == cmdQuery) {
    batch.queries[record->progNum].caSystems = caSystemsOf(*record);
  }
  const std::string program = programText(record->progNum, name) + ": ";
  for (const std::string &clause : encoded.leftOut) {
    batch.leftOut.push_back(program + clause);
  }
}

event::Programs CamLink::named(std::uint16_t program) const {
  return {program, nameOf(names_, program)};
}

// Only the last query counts: the module cleared the record of the answers for it.
void CamLink::startQuery(const Batch &batch, std::uint64_t nowMs) {
  if (batch.queries.empty()) {
    return;
  }
  queries_ = batch.queries;
  // Without a descriptor there is no command in the APDU, and nothing to answer.
  const bool answerDue = std::any_of(queries_.begin(), queries_.end(), [](const auto &query) {
    return !query.second.caSystems.empty();
  });
  queriedMs_ = answerDue ? std::optional<std::uint64_t>(nowMs) : std::nullopt;
}

// A query has a CAM begin nothing.
void CamLink::noteCaPmt(const Batch &batch, std::uint64_t nowMs) {
  if (batch.queries.size() < batch.apdus.size()) {
    history_.caPmt = true;
    history_.caPmtMs = nowMs;
  }
}

void CamLink::noteSent(const Batch &batch, std::uint64_t nowMs) {
  if (!batch.apdus.empty()) {
    history_.sent = true;
    history_.sentMs = nowMs;
    history_.programs = static_cast<std::uint32_t>(batch.apdus.size());
    noteCaPmt(batch, nowMs);
    tell(batch.queries.empty() ? Facts(event::CaPmtSent{batch.sent})
                               : Facts(event::QuerySent{batch.sent}));
  }
  if (!batch.leftOut.empty()) {
    tell(event::CaPmtIncomplete{batch.leftOut});
  }
}

// ------------------------------------------------------------------------------------------------
// Exchange
// ------------------------------------------------------------------------------------------------

void CamLink::tick(std::uint64_t nowMs) {
  nowMs_ = nowMs;
  if (cam_ == nullptr) {
    return;
  }
  if (!cam_->up()) {
    if (phase_ != Phase::StartingUp) {
      startUp(event::StartReason::WentDown);
    }
    return;
  }
  if (phase_ == Phase::StartingUp) {
    ask(nowMs);
  }
  takeAnswers();
  watchSilence(nowMs);
}

void CamLink::ask(std::uint64_t nowMs) {
  phase_ = Phase::Asked;
  askedMs_ = nowMs;
  cam_->receive(encodeCaInfoEnquiry());
}

void CamLink::watchSilence(std::uint64_t nowMs) {
  if (phase_ == Phase::Asked && nowMs - askedMs_ >= answerLimitMs) {
    trouble(event::CamSilent{event::Awaited::CaInfo, answerLimitMs});
    ask(nowMs);
  }
  if (queriedMs_ && nowMs - *queriedMs_ >= answerLimitMs) {
    queriedMs_.reset();
    trouble(event::CamSilent{event::Awaited::Reply, answerLimitMs});
  }
}

void CamLink::takeAnswers() {
  for (int taken = 0; taken < apdusPerTick; ++taken) {
    const std::optional<Apdu> apdu = cam_->transmit();
    if (!apdu) {
      return;
    }
    take(*apdu);
  }
}

void CamLink::take(const Apdu &apdu) {
  switch (apduTag(apdu).value_or(0)) {
    case caInfoTag:
      takeCaInfo(apdu);
      break;
    case caPmtReplyTag:
      takeReply(apdu);
      break;
    default:
      trouble(event::CamUnknownBytes{apduTag(apdu), apdu.size()});
  }
}

void CamLink::takeCaInfo(const Apdu &apdu) {
  const Decoded<CaInfo> info = decodeCaInfo(apdu);
  if (!info.object) {
    trouble(event::CaInfoRefused{{info.reason}});
    return;
  }
  if (phase_ != Phase::Asked) {
    // The second answer to an enquiry that was repeated is no trouble.
    if (info.object->caSystems != caSystems_) {
      trouble(event::CaInfoUnasked{{info.object->caSystems}});
    }
    return;
  }
  caSystems_ = info.object->caSystems;
  phase_ = Phase::Usable;
  answered();
  tell(event::CamUp{{caSystems_}});
  flag_->give();
}

void CamLink::takeReply(const Apdu &apdu) {
  const Decoded<CaReply> reply = decodeCaPmtReply(apdu);
  if (!reply.object) {
    trouble(event::ReplyRefused{{reply.reason}});
    return;
  }
  const auto query = queries_.find(reply.object->program);
  if (query == queries_.end()) {
    trouble(event::ReplyUnasked{named(reply.object->program)});
    return;
  }
  queriedMs_.reset();
  answered();
  fileAnswer(*reply.object, query->second);
}

void CamLink::fileAnswer(const CaReply &reply, Query &query) {
  const FiledReply result = fileReply(answers_, reply);
  const event::Answer answer{named(reply.program), verdict(reply)};
  if (!result.filed || result.streamsLeftOut > 0) {
    trouble(event::ReplyCut{answer});
  }
  history_.repliedMs[reply.program] = nowMs_;
  if (!query.answered) {
    tell(replyOf(answer, reply));
  } else if (result.changed) {
    trouble(event::ReplyChanged{answer});
  }
  query.answered = true;
}

void CamLink::tell(Facts facts) {
  events_.tell({place_, std::move(facts)});
}

void CamLink::trouble(const Facts &facts) {
  if (!told_.test(facts.index())) {
    told_.set(facts.index());
    tell(facts);
  }
}

// Its next silence is told again.
void CamLink::answered() {
  told_.reset(static_cast<std::size_t>(EventKind::CamSilent));
}

}  // namespace chassis
