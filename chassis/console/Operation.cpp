#include "console/Operation.h"

#include <algorithm>

namespace chassis {
namespace {

using Show = std::function<void(const std::string &)>;

Show showAt(std::unique_ptr<Desk> &desk) {
  return [&desk](const std::string &text) { desk->show(text); };
}

}  // namespace

Operation::Operation(const Config &config, Script script)
    : config_(config),
      desk_(std::make_unique<Desk>(config.mode, config.historyPath, Shell::names())),
      clock_(config.clockStart),
      journal_(showAt(desk_)),
      stream_(&journal_),
      timeline_(stream_, {config.colour, config.debug, outputWidth},
                [this] { return clock_.elapsedMs(); }),
      chassis_(clock_, timeline_),
      watch_(chassis_, timeline_),
      shell_(chassis_, journal_, showAt(desk_), config.colour, outputWidth),
      player_(std::move(script), chassis_),
      session_(player_, shell_,
               config.mode == DeskMode::Terminal
                   ? Show([this](const std::string &what) { complain(what); })
                   : Show()),
      maximal_(config.speed <= 0) {
  bindConsole([this](ConsolePort port, const std::string &line) {
    if (!shell_.takePrint(port, line)) {
      timeline_.print(port, line);
    }
  });
}

Operation::~Operation() {
  bindConsole(nullptr);
}

void Operation::complain(const std::string &what) {
  desk_->show("error: " + what + "\n");
}

// One tick at a time, so that what a person types runs as soon as a cycle is over.
int Operation::run() {
  desk_->serve(clock_, config_.speed, session_);
  do {
    settlePace();
    const std::uint64_t nextMs = clock_.elapsedMs() + Clock::msPerTick;
    chassis_.run(std::min(nextMs, config_.endMs.value_or(nextMs)), session_);
  } while (!isOver());
  timeline_.flush();
  const int status = desk_->status();
  clock_.setWait(nullptr);
  desk_.reset();
  return status;
}

bool Operation::isOver() const {
  const std::uint64_t nowMs = clock_.elapsedMs();
  if (shell_.exited() || desk_->ended()) {
    return true;
  }
  if (config_.endMs || config_.mode == DeskMode::Terminal) {
    return config_.endMs && nowMs >= *config_.endMs;
  }
  const bool typedOver = config_.mode == DeskMode::Script ||
                         (desk_->inputOver() && session_.idle() && !session_.waits(nowMs));
  return typedOver && nowMs >= player_.endMs();
}

// Without a pace, chassis time waits for the lines of a pipe; a person cannot keep up with it, so
// at a terminal it gets one.
void Operation::settlePace() {
  if (!maximal_) {
    return;
  }
  if (config_.mode == DeskMode::Pipe && !session_.waits(clock_.elapsedMs())) {
    desk_->awaitLine();
  }
  if (config_.mode == DeskMode::Terminal && clock_.elapsedMs() >= player_.endMs()) {
    maximal_ = false;
    desk_->serve(clock_, 1, session_);
  }
}

}  // namespace chassis
