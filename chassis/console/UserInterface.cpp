#include "console/UserInterface.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
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

UserInterface::UserInterface(Loop &loop, InputMode mode, const std::string &historyPath,
                             const std::vector<std::string> &names)
    : mode_(mode),
      outside_(loop, mode != InputMode::Terminal),
      progress_(mode == InputMode::Terminal ? -1 : STDERR_FILENO),
      progressAtPrompt_(std::chrono::seconds(1), std::chrono::seconds(2)) {
  outside_.onSignal([this](int signal) { takeSignal(signal); });
  if (mode_ == InputMode::Terminal) {
    editor_ = std::make_unique<Editor>(Editor::Config{"-> ", historyPath, names});
    show(greeting);
    if (!editor_->historyTrouble().empty()) {
      show("error: " + editor_->historyTrouble() + "\n");
    }
  }
}

void UserInterface::show(const std::string &whole) {
  const std::string text = fitted(whole, outputWidth());
  if (editor_ != nullptr) {
    editor_->write(text);
    return;
  }
  showWhole(text);
}

void UserInterface::showWhole(const std::string &text) {
  progress_.clear();
  writeStandardOutput(text);
}

void UserInterface::serve(Clock &clock, RunAgenda &agenda) {
  clock_ = &clock;
  agenda_ = &agenda;
  if (mode_ != InputMode::Script) {
    outside_.onBytes([this](const std::string &bytes) { take(bytes); });
  }
}

void UserInterface::waitUntil(std::uint64_t dueNs) {
  if (!ended_) {
    admitBytes();
    outside_.waitUntil(dueNs, [this] { return ended_; });
  }
}

void UserInterface::awaitLine() {
  progress_.clear();
  while (!ended_ && !inputOver_ && agenda_->idle()) {
    admitBytes();
    outside_.waitForNext();
  }
}

bool UserInterface::goOn(const Progress &progress) {
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
void UserInterface::admitBytes() {
  outside_.setReading(mode_ == InputMode::Terminal || (agenda_ != nullptr && agenda_->idle()));
}

void UserInterface::take(const std::string &bytes) {
  inputOver_ = bytes.empty();
  if (mode_ == InputMode::Terminal) {
    takeTyped(bytes);
  } else if (outside_.failure() != 0) {
    takeFailure(outside_.failure());
  } else {
    takePiped(bytes);
  }
}

// What came of the line does not run: nobody knows what it would have been.
void UserInterface::takeFailure(int reason) {
  inputTrouble_ = "standard input:" + std::to_string(lines_ + 1) +
                  ": cannot be read any further: " + std::strerror(reason);
  end(exitBadInput);
}

void UserInterface::takeTyped(const std::string &bytes) {
  leaving_ = false;
  editor_->feed(bytes);
  for (const std::string &line : editor_->takeLines()) {
    agenda_->type(line);
  }
  if (bytes.empty() || editor_->ended()) {
    end(exitDone);
  }
}

void UserInterface::takePiped(const std::string &bytes) {
  for (const char c : inputOver_ && !partial_.empty() ? std::string("\n") : bytes) {
    if (c == '\n') {
      ++lines_;
      agenda_->type(withoutReturn(partial_));
      partial_.clear();
    } else if (partial_.size() <= longestLine) {
      partial_ += c;
    }
  }
  admitBytes();
}

void UserInterface::takeSignal(int signal) {
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
void UserInterface::interrupt() {
  if (std::exchange(working_, false)) {
    return;
  }
  const bool cleared = editor_->clearLine();
  const bool broken = agenda_ != nullptr && agenda_->breakOff(clock_->elapsedMs());
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
void UserInterface::stop() {
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

void UserInterface::end(int status) {
  ended_ = true;
  status_ = status;
}

}  // namespace chassis
