// The host's side of the exchange with the CAM of one CAM slot (EN 50221 CA support).
#pragma once

#include <bitset>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CiPlatform.h"
#include "base/ProgramText.h"
#include "cilib/ApduCodec.h"
#include "cilib/CamPort.h"
#include "cilib/CiLibrary.h"
#include "event/Event.h"

namespace chassis {

class CamLink {
 public:
  // The flag is given whenever the CAM needs a fresh CA PMT; its replies go to `answers`.
  CamLink(Place place, Events &events, SEM_ID flag, CaPmtReply &answers);

  // Replaces the CAM that was there. names: of the programs that it gets, for people.
  void insert(std::unique_ptr<CamPort> cam, ProgramNames names = nullptr);
  // A CAM of somebody else's receiver, which descrambles by these CA systems: nothing is sent to
  // it, nothing comes from it, and a reset is only told to who asks for it.
  void observe(std::vector<std::uint16_t> caSystems, std::function<void()> onReset);
  void remove();
  void tick(std::uint64_t nowMs);
  void programsChanged();

  std::uint32_t insertStatus() const;  // as ciLibGetInsertCard
  bool supports(std::uint16_t caSystem) const;
  // Returns the number of records sent: 0 for no usable CAM, no record, or more than 32.
  std::int32_t send(CaPmtProg *const *records, std::uint32_t count, std::uint64_t nowMs);
  // Queries of programs under the CA system, or under none, and their answers.
  void forgetCaPmt(std::uint16_t caSystem);
  void forgetCaSystems();           // a CAM that is in is asked anew
  bool reset(std::uint64_t nowMs);  // false: no CAM
  const CiLibrary::History &history() const { return history_; }
  const std::vector<std::uint16_t> &caSystems() const { return caSystems_; }

 private:
  enum class Phase { Empty, StartingUp, Asked, Usable, Observed };
  struct Query {
    std::vector<std::uint16_t> caSystems;
    bool answered = false;
  };
  struct Batch;

  bool usable() const { return phase_ == Phase::Usable || phase_ == Phase::Observed; }
  bool resetObserved(std::uint64_t nowMs);
  void noteReset(std::uint64_t nowMs);
  void tell(Facts facts);
  void trouble(const Facts &facts);
  void answered();
  void forgetExchange();
  void startUp(event::StartReason reason);
  void ask(std::uint64_t nowMs);
  void watchSilence(std::uint64_t nowMs);
  void takeAnswers();
  void take(const Apdu &apdu);
  void takeCaInfo(const Apdu &apdu);
  void takeReply(const Apdu &apdu);
  void fileAnswer(const CaReply &reply, Query &query);
  event::Programs named(std::uint16_t program) const;
  void encode(const CaPmtProg *record, Batch &batch);
  void startQuery(const Batch &batch, std::uint64_t nowMs);
  void noteCaPmt(const Batch &batch, std::uint64_t nowMs);
  void noteSent(const Batch &batch, std::uint64_t nowMs);

  Place place_;
  Events &events_;
  SEM_ID flag_;
  CaPmtReply &answers_;
  std::unique_ptr<CamPort> cam_;   // null: none
  std::function<void()> onReset_;  // of an observed one
  ProgramNames names_;
  Phase phase_ = Phase::Empty;
  std::uint64_t nowMs_ = 0;  // of the last tick
  std::uint64_t askedMs_ = 0;
  std::optional<std::uint64_t> queriedMs_;  // while no reply to the query has come
  std::vector<std::uint16_t> caSystems_;
  std::map<std::uint16_t, Query> queries_;  // by program_number
  // A CAM can make the same trouble with every APDU: each kind is told once until it starts again.
  std::bitset<eventKinds> told_;
  CiLibrary::History history_;
};

}  // namespace chassis
