#include "console/Desk.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <utility>

#include "base/ExitStatus.h"
#include "command/Line.h"
#include "console/EndDeadline.h"
#include "console/Layout.h"
#include "console/StandardOutput.h"

namespace chassis {
namespace {

constexpr const char *greeting =
    "help lists what can be typed, Tab completes it; exit, quit or Ctrl-D leaves\n";
constexpr const char *howToLeave = "exit, quit or Ctrl-D leaves, and so does Ctrl-C once more\n";
constexpr const char *brokenOff = "broken off, and anything typed behind it\n";

}  // namespace

Desk::Desk(Loop &loop, DeskMode mode, const std::string &historyPath,
           const std::vector<std::string> &names)
    : mode_(mode),
      inlet_(loop, mode != DeskMode::Terminal),
      progress_(mode == DeskMode::Terminal ? -1 : STDERR_FILENO),
      progressAtPrompt_(std::chrono::seconds(1), std::chrono::seconds(2)) {
  inlet_.onSignal([this](int signal) { takeSignal(signal); });
  if (mode_ == DeskMode::Terminal) {
    editor_ = std::make_unique<Editor>(Editor::Config{"-> ", historyPath, names});
    show(greeting);
    if (!editor_->historyTrouble().empty()) {
      show("error: " + editor_->historyTrouble() + "\n");
    }
  }
}

void Desk::show(const std::string &whole) {
  const std::string text = fitted(whole, outputWidth());
  if (editor_ != nullptr) {
    editor_->write(text);
    return;
  }
  showWhole(text);
}

void Desk::showWhole(const std::string &text) {
  progress_.clear();
  writeStandardOutput(text);
}

void Desk::serve(Clock &clock, Session &session) {
  clock_ = &clock;
  session_ = &session;
  if (mode_ != DeskMode::Script) {
    inlet_.onBytes([this](const std::string &bytes) { take(bytes); });
  }
}

void Desk::waitUntil(std::uint64_t dueNs) {
  if (!ended_) {
    admitBytes();
    inlet_.waitUntil(dueNs, [this] { return ended_; });
  }
}

void Desk::awaitLine() {
  progress_.clear();
  while (!ended_ && !inputOver_ && session_->idle()) {
    admitBytes();
    inlet_.waitForNext();
  }
}

bool Desk::goOn(const Progress &progress) {
  progress_.show(progress);
  if (editor_ != nullptr && !isDone(progress) && progressAtPrompt_.due(progress)) {
    show(progressText(progress) + "\n");
  }
  working_ = !isDone(progress);
  const bool works = working_;
  waitUntil(0);
  const bool stopped = works && !std::exchange(working_, false);
  return !stopped && !ended_;
}

// A pipe is not emptied faster than its lines run.
void Desk::admitBytes() {
  inlet_.setReading(mode_ == DeskMode::Terminal || (session_ != nullptr && session_->idle()));
}

void Desk::take(const std::string &bytes) {
  inputOver_ = bytes.empty();
  if (mode_ == DeskMode::Terminal) {
    takeTyped(bytes);
  } else {
    takePiped(bytes);
  }
}

void Desk::takeTyped(const std::string &bytes) {
  leaving_ = false;
  editor_->feed(bytes);
  for (const std::string &line : editor_->takeLines()) {
    session_->type(line);
  }
  if (bytes.empty() || editor_->ended()) {
    end(exitDone);
  }
}

void Desk::takePiped(const std::string &bytes) {
  for (const char c : inputOver_ && !partial_.empty() ? std::string("\n") : bytes) {
    if (c == '\n') {
      session_->type(withoutReturn(partial_));
      partial_.clear();
    } else if (partial_.size() <= longestLine) {
      partial_ += c;
    }
  }
  admitBytes();
}

void Desk::takeSignal(int signal) {
  switch (signal) {
    case SIGWINCH:
      if (editor_ != nullptr) {
        editor_->resized();
      }
      return;
    case SIGTSTP:
      stop();
      return;
    case SIGINT:
      if (editor_ != nullptr) {
        interrupt();
        return;
      }
      [[fallthrough]];
    default:
      armEndDeadline(signal);
      end(exitSignalled + signal);
  }
}

// Ctrl-C is for what a person wants to be rid of: long work, the line, a wait, at last the chassis.
void Desk::interrupt() {
  if (std::exchange(working_, false)) {
    return;
  }
  const bool cleared = editor_->clearLine();
  const bool broken = session_ != nullptr && session_->breakOff(clock_->elapsedMs());
  if (broken) {
    show(brokenOff);
  } else if (!cleared && leaving_) {
    end(exitSignalled + SIGINT);
  } else if (!cleared) {
    show(howToLeave);
  }
  leaving_ = !cleared && !broken;
}

// The job is stopped until its shell continues it; chassis time stands still meanwhile.
void Desk::stop() {
  if (editor_ != nullptr) {
    editor_->pause();
  }
  static_cast<void>(std::raise(SIGSTOP));
  if (editor_ != nullptr) {
    editor_->resume();
  }
  if (clock_ != nullptr) {
    clock_->forgetDelay();
  }
}

void Desk::end(int status) {
  ended_ = true;
  status_ = status;
}

}  // namespace chassis
