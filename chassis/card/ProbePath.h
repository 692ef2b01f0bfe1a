// A receiver of somebody else's between the two meters: what goes into it is the card's stream,
// what comes out of it is a second one, whose PIDs are counted as those before that they are.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "card/Fpga.h"
#include "card/LossWatch.h"
#include "card/Path.h"
#include "card/PidMatch.h"
#include "card/SeamWatch.h"
#include "card/StreamWatch.h"
#include "io/PacketSource.h"
#include "ts/Psi.h"

namespace chassis {

class ProbePath : public Path {
 public:
  // So long the programs behind may take to be known, from the first packet or a new PAT on.
  static constexpr std::uint64_t learningMs = 2000;

  ProbePath(Card::Fpga &fpga, std::unique_ptr<PacketSource> behind, ProgramNumbers numbers,
            Tell tell);

  // A path, though nothing flows through: what comes out comes by itself.
  void beginStep(std::size_t) override {}
  void beginAnew() override {}
  void take(const TsPacket &, std::uint64_t) override {}
  void endStep() override;
  void settle() override {}

  // The programs before have changed, or those behind may have: the PIDs are matched anew. True:
  // others are missing behind than before.
  bool match(const Psi &before, const ServiceNames &names);
  bool mustMatch() const { return known_ && (!matched_ || psi_.changes() != psiChanges_); }

  // The programs before with the streams that can be judged.
  Psi judgeable(const Psi &before) const { return withoutUnmatched(before, match_); }
  std::size_t unmatched() const { return match_.unmatched.size(); }
  // Nothing of the program has come out for a while, though it goes in.
  bool nothingBehind(const PsiProgram &program) const;

  // Of a program before. Nothing is missing while the programs behind are not known.
  bool missing(std::uint16_t program) const { return match_.missing.count(program) != 0; }
  bool known() const { return known_; }  // the programs behind
  bool silent() const { return watch_.silent() || !begun_; }
  bool ended() const { return source_->ended(); }
  std::uint64_t transportErrors() const { return transportErrors_; }
  const PacketSource &source() const { return *source_; }
  const Psi &psi() const { return psi_.psi(); }

 private:
  void takeOne(TsPacket &packet);
  void learn();
  void tellUnmatched(const PidMatch &before, const ServiceNames &names);
  void forgetMoved(const PidMatch &before);

  Card::Fpga &fpga_;
  std::unique_ptr<PacketSource> source_;
  const ProgramNumbers numbers_;
  const Tell tell_;
  PsiReader psi_;
  std::uint32_t psiChanges_ = 0;
  PidMatch match_;
  StreamWatch watch_;
  LossWatch losses_;
  SeamWatch seams_;
  bool begun_ = false;
  bool known_ = false;
  bool matched_ = false;
  std::uint64_t begunMs_ = 0;
  std::uint64_t matchedMs_ = 0;
  std::uint64_t transportErrors_ = 0;
};

}  // namespace chassis
