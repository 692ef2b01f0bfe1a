#include "cilib/CamLink.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/ProgramText.h"
#include "base/Text.h"
#include "cilib/CaText.h"
#include "cilib/ReplyRecord.h"
#include "kernel/Semaphore.h"

namespace chassis {
namespace {

constexpr std::uint64_t answerLimitMs = 5000;
constexpr std::uint32_t maxRecords = 32;
// Bounds one tick against a CAM that never stops talking.
constexpr int apdusPerTick = 64;

struct TroubleWords {
  EventKind kind;
  const char *what;
};

// In the order of CamLink::Trouble.
constexpr TroubleWords troubleWords[] = {
    {EventKind::CamSilent, "CAM does not answer"},
    {EventKind::CamUnknownBytes, "CAM sends unknown bytes, ignored"},
    {EventKind::CaInfoRefused, "ca_info refused"},
    {EventKind::CaInfoUnasked, "ca_info that nobody asked for, ignored"},
    {EventKind::ReplyRefused, "reply refused"},
    {EventKind::ReplyUnasked, "reply to no query, ignored"},
    {EventKind::ReplyCut, "reply too long, cut"},
    {EventKind::ReplyChanged, "CAM changes its reply"}};

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

std::string bytesText(const Apdu &apdu) {
  const auto tag = apduTag(apdu);
  return (tag ? "tag " + hex(*tag, 6) + ", " : std::string()) + std::to_string(apdu.size()) +
         " bytes";
}

}  // namespace

// What one call of send hands over.
struct CamLink::Batch {
  std::vector<Apdu> apdus;
  std::vector<std::uint16_t> programs;
  std::vector<std::string> names;  // theirs
  std::vector<std::string> listManagement;
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
  startUp("inserted");
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
  tell(EventKind::CamRemoved, "CAM removed", "");
}

void CamLink::noteReset(std::uint64_t nowMs) {
  history_.reset = true;
  history_.resetMs = nowMs;
  ++history_.resets;
}

bool CamLink::resetObserved(std::uint64_t nowMs) {
  noteReset(nowMs);
  events_.tell({EventKind::ResetAdvised,
                place_,
                "the CAM would be reset",
                "it is only observed; so far " + std::to_string(history_.resets) +
                    (history_.resets == 1 ? " time" : " times"),
                {{"resets", std::uint64_t{history_.resets}}},
                Tone::Alarm});
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
    tell(EventKind::NoCamToReset, "no CAM to reset", "");
    return false;
  }
  cam_->reset(nowMs);
  noteReset(nowMs);
  events_.tell({EventKind::CamReset,
                place_,
                "RESET of the CAM",
                "reset " + std::to_string(history_.resets) + " since its insertion",
                {{"resets", std::uint64_t{history_.resets}}},
                Tone::Alarm});
  startUp("reset");
  return true;
}

void CamLink::startUp(const std::string &why) {
  phase_ = Phase::StartingUp;
  told_.reset();
  forgetExchange();
  tell(EventKind::CamStarting, "CAM starts up", why);
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
    tell(EventKind::CaPmtRefused, "CA PMT refused",
         std::to_string(count) + " programs, at most 32");
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
  return static_cast<std::int32_t>(batch.programs.size());
}

void CamLink::encode(const CaPmtProg *record, Batch &batch) {
  if (record == nullptr || record->mark != 1) {
    batch.leftOut.push_back("a record is not filled");
    return;
  }
  EncodedCaPmt encoded = encodeCaPmt(*record);
  batch.apdus.push_back(std::move(encoded.apdu));
  batch.programs.push_back(record->progNum);
  batch.names.push_back(nameOf(names_, record->progNum));
  batch.listManagement.push_back(listManagementText(record->listMgmt));
  if (record->cmdId == cmdQuery) {
    batch.queries[record->progNum].caSystems = caSystemsOf(*record);
  }
  const std::string program = textOf(record->progNum) + ": ";
  for (const std::string &clause : encoded.leftOut) {
    batch.leftOut.push_back(program + clause);
  }
}

std::string CamLink::textOf(std::uint16_t program) const {
  return programText(program, nameOf(names_, program));
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
  if (batch.queries.size() < batch.programs.size()) {
    history_.caPmt = true;
    history_.caPmtMs = nowMs;
  }
}

void CamLink::noteSent(const Batch &batch, std::uint64_t nowMs) {
  if (!batch.programs.empty()) {
    history_.sent = true;
    history_.sentMs = nowMs;
    history_.programs = static_cast<std::uint32_t>(batch.programs.size());
    noteCaPmt(batch, nowMs);
    const bool query = !batch.queries.empty();
    tell(query ? EventKind::QuerySent : EventKind::CaPmtSent,
         (query ? "query sent: " : "CA PMT sent: ") + programsText(batch.programs, batch.names),
         "list management " + joined(batch.listManagement),
         {{"programs", batch.programs}, {"list_management", batch.listManagement}});
  }
  if (!batch.leftOut.empty()) {
    tell(EventKind::CaPmtIncomplete, "CA PMT incomplete", firstAndMore(batch.leftOut),
         {{"left_out", batch.leftOut}});
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
      startUp("it went down by itself");
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
    trouble(Silent, "no ca_info within 5 s; asked again");
    ask(nowMs);
  }
  if (queriedMs_ && nowMs - *queriedMs_ >= answerLimitMs) {
    queriedMs_.reset();
    trouble(Silent, "no reply to the query within 5 s");
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
      trouble(Unknown, bytesText(apdu));
  }
}

void CamLink::takeCaInfo(const Apdu &apdu) {
  const Decoded<CaInfo> info = decodeCaInfo(apdu);
  if (!info.object) {
    trouble(BadCaInfo, info.reason);
    return;
  }
  if (phase_ != Phase::Asked) {
    // The second answer to an enquiry that was repeated is no trouble.
    if (info.object->caSystems != caSystems_) {
      trouble(UnaskedCaInfo, caSystemsText(info.object->caSystems));
    }
    return;
  }
  caSystems_ = info.object->caSystems;
  phase_ = Phase::Usable;
  told_.reset(Silent);
  tell(EventKind::CamUp, "CAM is up, " + caSystemsText(caSystems_), "ca_info of the CAM",
       {{"ca_systems", caSystems_}});
  flag_->give();
}

void CamLink::takeReply(const Apdu &apdu) {
  const Decoded<CaReply> reply = decodeCaPmtReply(apdu);
  if (!reply.object) {
    trouble(BadReply, reply.reason);
    return;
  }
  const auto query = queries_.find(reply.object->program);
  if (query == queries_.end()) {
    trouble(UnaskedReply, textOf(reply.object->program));
    return;
  }
  queriedMs_.reset();
  told_.reset(Silent);
  fileAnswer(*reply.object, query->second);
}

void CamLink::fileAnswer(const CaReply &reply, Query &query) {
  const FiledReply result = fileReply(answers_, reply);
  const std::string says = textOf(reply.program) + ": " + caEnableText(verdict(reply));
  if (!result.filed || result.streamsLeftOut > 0) {
    trouble(CutReply, says + "; a record holds 32 programs of 32 streams");
  }
  history_.repliedMs[reply.program] = nowMs_;
  if (!query.answered) {
    tell(EventKind::Reply, "reply: " + says, streamsText(reply),
         {{"programs", std::vector{reply.program}}, {"ca_enable", std::uint64_t{verdict(reply)}}});
  } else if (result.changed) {
    trouble(ChangedReply, says);
  }
  query.answered = true;
}

void CamLink::tell(EventKind kind, const std::string &what, const std::string &why,
                   std::vector<Fact> facts) {
  events_.tell({kind, place_, what, why, std::move(facts)});
}

void CamLink::trouble(Trouble kind, const std::string &why) {
  static_assert(std::size(troubleWords) == troubleKinds);
  if (!told_.test(kind)) {
    told_.set(kind);
    tell(troubleWords[kind].kind, troubleWords[kind].what, why);
  }
}

}  // namespace chassis
