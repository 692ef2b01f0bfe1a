// One run of the chassis with everything around it: a script, a user interface, a timeline.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "command/ScriptRun.h"
#include "console/Journal.h"
#include "console/RunAgenda.h"
#include "console/Shell.h"
#include "console/Timeline.h"
#include "console/UserInterface.h"
#include "history/EventFile.h"
#include "history/EventLines.h"
#include "kernel/Clock.h"
#include "status/StatusWatch.h"
#include "supervision/Chassis.h"

namespace chassis {

// What the user interface shows of what happens.
enum class Shown { Timeline, EventLines, Nothing };

class ChassisRun {
 public:
  struct Config {
    InputMode mode = InputMode::Script;
    std::string historyPath;
    double speed = 1;  // 0: as fast as it can; at a terminal only until the script is over
    std::optional<std::uint64_t> endMs;  // chassis time; none: when script or person end it
    std::uint32_t clockStart = 0;
    bool colour = false;
    bool debug = false;  // tells of the firmware's debug prints too
    Shown shown = Shown::Timeline;
    bool endsWithStreams = false;  // not with the script: when those of all cards are over
    bool scriptFromInput = false;  // standard input has been read as the script
    bool writesFiles = false;  // which are to become whole, also when nobody reads what is shown
  };

  ChassisRun(const Config &config, Script script);
  ChassisRun(const ChassisRun &) = delete;
  ChassisRun &operator=(const ChassisRun &) = delete;

  Chassis &chassis() { return chassis_; }
  Events &events() { return events_; }
  // What is known of the chassis; after run, as the run has left it.
  std::shared_ptr<const Snapshot> snapshot() const { return watch_.snapshot(); }

  // Before run: writes all events to a file too. Throws InputError, as EventFile does.
  void writeEvents(const std::string &path);

  // Until the end; then the user interface gives its terminal back. Returns the exit status. Throws
  // InputError with file and line, unless a person at a terminal can be told.
  int run();

  // After run, however it ended: what the outputs and the file of events have lost, a sentence
  // each.
  const std::vector<std::string> &losses() const { return losses_; }

 private:
  void runToTheEnd();
  void end();
  void settlePace();
  void wait(std::uint64_t dueNs);
  void takePipedLines();
  void showHowFar();
  std::uint64_t knownEndMs() const;
  bool maximal() const { return clock_.speed() <= 0; }
  bool isOver() const;
  void stopWhenOver();
  void readStreams();
  void tellEventLoss();
  void endEvents();
  void tellPrinted(ConsolePort port, const std::string &line);
  void complain(const std::string &what);

  const Config config_;
  Loop loop_;
  std::unique_ptr<UserInterface> interface_;
  Clock clock_;
  Journal journal_;
  std::ostream stream_;
  Timeline timeline_;
  EventLines eventLines_;
  EventFan events_;
  Chassis chassis_;
  StatusWatch watch_;
  Shell shell_;
  ScriptRun scriptRun_;
  RunAgenda agenda_;
  std::unique_ptr<EventFile> eventFile_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  Clock::Listening ticking_;
  Printing printing_;
  std::vector<std::string> losses_;
};

}  // namespace chassis
