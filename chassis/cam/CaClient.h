// What a CAM does with the stream: reads the ECMs of the programs that it was given, decides which
// of them it may descramble, and descrambles those.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/ProgramText.h"
#include "cam/CaObjects.h"
#include "cam/Descrambler.h"
#include "cam/LabCa.h"
#include "event/Event.h"
#include "ts/Section.h"
#include "ts/TsPacket.h"

namespace chassis::cam {

class CaClient {
 public:
  // The place of what happens is the receiver's.
  using Report = std::function<void(const Facts &facts)>;

  CaClient(std::vector<std::uint16_t> caSystems, std::uint32_t ecmTimeoutMs, Report report,
           ProgramNames names);

  // The programs to descramble; words and states of those that stay are kept. Levels of a CA PMT
  // that carry another command than ok_descrambling are not descrambled.
  using Selection = std::map<std::uint16_t, CaPmt>;  // by program_number
  const Selection &selection() const { return selection_; }
  void select(Selection selection, std::uint64_t nowMs);
  void forget();  // everything but entitlements and refusals, without a report

  // What a query about a program is answered: program level or streams, where its CA is.
  CaPmtReply answer(const CaPmt &query) const;

  void tick(std::uint64_t nowMs);
  void process(TsPacket *const *packets, std::size_t count, std::uint64_t nowMs);
  void settle() { descrambler_.settle(); }
  bool mustSettleBefore(const CaClient &next) const;

  const DescramblerWork &work() const { return descrambler_.work(); }

  void entitle(std::uint16_t tier, bool on);
  void refuse(std::uint16_t program, bool on);
  void spoilWords(bool on);  // descrambles with wrong words

 private:
  enum class State { Waiting, Running, Refused, NotEntitled, NoEcm };

  // Streams of one program that have their words from one ECM PID.
  struct Feed {
    std::uint16_t program = 0;
    std::uint16_t ecmPid = 0;
    std::vector<std::uint16_t> pids;
    State state = State::Waiting;
  };

  struct EcmReader {
    SectionAssembler assembler;
    Section last;                   // the last good ECM
    std::optional<labca::Ecm> ecm;  // what it said
    std::uint64_t goodMs = 0;       // when it came; when reading began while there was none
    bool seen = false;              // packets came since then
  };

  std::optional<std::uint16_t> ecmPidOf(const CaLevel &level) const;
  std::vector<Feed> feedsOf(const CaPmt &pmt) const;
  std::uint16_t tierOf(std::uint16_t program, std::uint16_t ecmPid) const;
  CaEnable enableOf(std::uint16_t program, const CaLevel &level) const;

  void replaceFeeds(std::vector<Feed> feeds);
  void replaceReaders(std::uint64_t nowMs);
  void readEcm(EcmReader &reader, std::uint16_t pid, const Section &section);
  void setWords(std::uint16_t ecmPid, const labca::Ecm &ecm);

  State judge(const Feed &feed) const;
  void review();
  void assign();
  void reportChange(const Feed &feed, State before) const;
  event::Feed factsOf(const Feed &feed, event::FeedReason reason) const;
  event::Feed factsOf(const Feed &feed) const;
  event::FeedReason reasonOf(const Feed &feed) const;

  std::vector<std::uint16_t> caSystems_;
  std::uint32_t ecmTimeoutMs_;
  Report report_;
  ProgramNames names_;
  std::uint64_t nowMs_ = 0;
  bool spoilWords_ = false;
  std::set<std::uint16_t> revokedTiers_;
  std::set<std::uint16_t> refusedPrograms_;

  Selection selection_;
  std::vector<Feed> feeds_;
  std::map<std::uint16_t, EcmReader> readers_;  // by ECM PID, which also names the key
  std::vector<EcmReader *> readerOfPid_;
  std::bitset<pidCount> ecmPids_;  // those with a reader
  Descrambler descrambler_;
};

}  // namespace chassis::cam
