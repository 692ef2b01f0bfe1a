// A chassis with a shell: one card of one program, as far as a test puts it in.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "chassis/StreamWriter.h"
#include "console/RunAgenda.h"
#include "console/Shell.h"
#include "console/Timeline.h"
#include "status/StatusWatch.h"

namespace chassis {

class ConsoleRig : public testing::Test {
 protected:
  ConsoleRig()
      : journal_([](const std::string &) {}),
        stream_(&journal_),
        timeline_(stream_, {}, [this] { return clock_.elapsedMs(); }),
        chassis_(clock_, timeline_, loop_),
        watch_(chassis_, timeline_),
        shell_(
            chassis_, watch_, journal_, [this](const std::string &text) { answer_ += text; },
            false),
        scriptRun_(Script{}, chassis_, watch_),
        agenda_(scriptRun_, shell_, RunAgenda::Order::Overtaking, nullptr) {
    printing_ = chassis_.onPrinted([this](ConsolePort port, const std::string &line) {
      if (!shell_.takePrint(port, line)) {
        timeline_.tell(printed(port, line));
      }
    });
  }

  // The answer to a line that runs in the chassis, started up, without what came before.
  std::string ask(const std::string &line) {
    if (!chassis_.booted()) {
      runFor(Clock::msPerTick);
    }
    answer_.clear();
    agenda_.type(line);
    chassis_.run(clock_.elapsedMs() + Clock::msPerTick, agenda_);
    return answer_;
  }
  void insertCard() { ASSERT_EQ(ask("cardInsert 0, \"" + file_.path() + "\", 1504000"), ""); }
  void runFor(std::uint64_t ms) { chassis_.run(clock_.elapsedMs() + ms, agenda_); }

  testing_streams::TemporaryFile file_{testing_streams::oneProgram()};
  Clock clock_;
  Journal journal_;
  std::ostream stream_;
  Timeline timeline_;
  Loop loop_;
  Chassis chassis_;
  StatusWatch watch_;
  std::string answer_;
  Shell shell_;
  ScriptRun scriptRun_;
  RunAgenda agenda_;
  Printing printing_;
};

inline bool isOneErrorLine(const std::string &answer) {
  return answer.rfind("error: ", 0) == 0 && std::count(answer.begin(), answer.end(), '\n') == 1 &&
         answer.back() == '\n';
}

inline bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

}  // namespace chassis
