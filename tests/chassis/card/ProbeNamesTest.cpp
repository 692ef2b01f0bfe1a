// Streams that do not come out of a receiver are told with the names of their programs.
#include <gtest/gtest.h>

#include <memory>

#include "card/ProbePath.h"
#include "chassis/StreamWriter.h"
#include "status/EventWords.h"

using namespace testing_streams;
using chassis::Event;

namespace {

const ProgramMap whole{1, 0x1001, 0x100, {{0x1B, 0x100, {}}, {0x03, 0x101, {}}}, {}, 0};
const ProgramMap half{1, 0x1001, 0x100, {{0x1B, 0x100, {}}}, {}, 0};

// Gives a stream at once.
class OneStream : public chassis::PacketSource {
 public:
  explicit OneStream(const StreamWriter &stream) : stream_(stream) {}
  std::size_t due(std::uint64_t) override { return stream_.packets() - counters_.packets; }
  bool next(chassis::TsPacket &packet, std::uint64_t &) override {
    if (ended()) {
      return false;
    }
    packet = stream_.packet(counters_.packets++);
    return true;
  }
  bool ended() const override { return counters_.packets == stream_.packets(); }
  const chassis::SourceCounters &counters() const override { return counters_; }

 private:
  const StreamWriter stream_;
  chassis::SourceCounters counters_;
};

TEST(ProbeNames, StandBesideTheNumbersOfProgramsWithoutAStreamBehind) {
  StreamWriter stream;
  stream.psi({whole}).table(0x11, sdtSection({{1, {'O', 'n', 'e'}, {}}}));
  chassis::PsiReader before;
  for (std::size_t i = 0; i < stream.packets(); ++i) {
    before.push(stream.packet(i));
  }
  std::vector<std::string> told;
  chassis::Card::Fpga fpga;
  chassis::ProbePath probe(
      fpga, std::make_unique<OneStream>(StreamWriter().psi({half})), {},
      [&told](const Event &event) { told.push_back(chassis::wordsOf(event).why); });
  probe.endStep();
  told.clear();
  EXPECT_TRUE(probe.match(before.psi(), before.services()));
  EXPECT_EQ(told, std::vector<std::string>{"program 1 \"One\" PID 0x0101, stream type 0x03"});
}

}  // namespace
