// Where a person sits: a terminal with a prompt, a pipe of lines, or nothing but signals. What the
// chassis shows goes through it, and while the clock waits it takes what comes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/LongWork.h"
#include "console/Editor.h"
#include "console/InputAndSignals.h"
#include "console/ProgressLine.h"
#include "console/RunAgenda.h"
#include "kernel/Clock.h"

namespace chassis {

enum class InputMode {
  Script,   // standard input is not read
  Pipe,     // plain lines from standard input
  Terminal  // a prompt
};

class UserInterface {
 public:
  // historyPath and names: as Editor's, for a terminal.
  // Waits in the loop, which outlives it.
  UserInterface(Loop &loop, InputMode mode, const std::string &historyPath,
                const std::vector<std::string> &names);

  // Whole lines with their ends; what is too wide for a terminal is wrapped.
  void show(const std::string &text);

  // The same for programs: nothing is wrapped. Not for a terminal with a prompt.
  void showWhole(const std::string &text);

  // From now on lines go to the agenda, and a clock that stood still with the job is not late.
  void serve(Clock &clock, RunAgenda &agenda);

  // Takes what comes until a real time in ns of CLOCK_MONOTONIC, or the end of the run.
  void waitUntil(std::uint64_t dueNs);

  // A pipe, at a speed without a pace: chassis time stands still until there is a line or the end.
  void awaitLine();

  // While something takes long: shows how far it is at a terminal, takes what has come. False: the
  // run is to end, or a person has broken the work off.
  bool goOn(const Progress &progress);

  // How far the run itself is: shown at a terminal where there is no prompt.
  void showRun(const Progress &progress) { progress_.show(progress); }

  bool inputOver() const { return inputOver_; }
  // Why a pipe could not be read to its end, with the line that is missing, which ends the run;
  // empty: it could, or not yet.
  const std::string &inputTrouble() const { return inputTrouble_; }
  bool ended() const { return ended_; }   // a person or a signal wants the end of the run
  int status() const { return status_; }  // exit status: 0, or 128 and the signal's number

 private:
  void take(const std::string &bytes);
  void takeTyped(const std::string &bytes);
  void takePiped(const std::string &bytes);
  void takeFailure(int reason);
  void takeSignal(int signal);
  void interrupt();
  void stop();
  void end(int status);
  void admitBytes();

  const InputMode mode_;
  InputAndSignals outside_;
  std::unique_ptr<Editor> editor_;
  Clock *clock_ = nullptr;
  RunAgenda *agenda_ = nullptr;
  bool working_ = false;  // it is asked whether long work goes on
  ProgressLine progress_;
  ProgressPace progressAtPrompt_;
  std::string partial_;    // of a piped line
  std::size_t lines_ = 0;  // that came through the pipe
  std::string inputTrouble_;
  bool inputOver_ = false;
  bool leaving_ = false;  // the last thing typed was Ctrl-C, with nothing to break off
  bool ended_ = false;
  int status_ = 0;
};

}  // namespace chassis
