#include "app/ChassisRun.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "app/Program.h"
#include "base/ExitStatus.h"
#include "base/InputError.h"
#include "console/StandardOutput.h"
#include "status/Words.h"

namespace chassis {
namespace {

using Show = std::function<void(const std::string &)>;

Show showAt(std::unique_ptr<UserInterface> &interface) {
  return [&interface](const std::string &text) { interface->show(text); };
}

std::string wholeSeconds(std::uint64_t ms) {
  const std::string stamp = stampText(ms);
  return stamp.substr(0, stamp.find('.'));
}

Progress progressOf(std::uint64_t nowMs, std::uint64_t endMs, std::chrono::duration<double> real) {
  const double times = static_cast<double>(nowMs) / 1000 / real.count();
  return {"chassis time", nowMs, endMs,
          wholeSeconds(nowMs) + " of " + wholeSeconds(endMs) + ", " +
              std::to_string(std::llround(times)) + " times as fast as real time"};
}

}  // namespace

ChassisRun::ChassisRun(const Config &config, Script script)
    : config_(config),
      interface_(
          std::make_unique<UserInterface>(loop_, config.mode, config.historyPath, Shell::names())),
      clock_(config.clockStart, config.speed),
      journal_(showAt(interface_)),
      stream_(&journal_),
      timeline_(stream_, {config.colour, outputWidth}, [this] { return clock_.elapsedMs(); }),
      eventLines_([this](const std::string &line) { interface_->showWhole(line); },
                  [this] { return clock_.elapsedMs(); }),
      chassis_(clock_, events_, loop_),
      watch_(chassis_, events_),
      shell_(chassis_, watch_, journal_, showAt(interface_), config.colour, outputWidth),
      scriptRun_(std::move(script), chassis_, watch_),
      agenda_(scriptRun_, shell_,
              config.mode == InputMode::Terminal ? RunAgenda::Order::Overtaking
                                                 : RunAgenda::Order::InTurn,
              config.mode == InputMode::Terminal
                  ? Show([this](const std::string &what) { complain(what); })
                  : Show()),
      ticking_(clock_.onTick([this](std::uint64_t) {
        tellEventLoss();
        stopWhenOver();
      })) {
  if (config.mode != InputMode::Script) {
    chassis_.rack().ports().reserveStandardInput("lines of the console");
  } else if (config.scriptFromInput) {
    chassis_.rack().ports().reserveStandardInput("the script");
  }
  if (config.shown != Shown::Nothing) {
    events_.add(config.shown == Shown::Timeline ? static_cast<Events &>(timeline_) : eventLines_);
  }
  chassis_.rack().files().addStandardStreams();
  readStreams();
  chassis_.rack().files().onLongWork(
      [this](const Progress &progress) { return interface_->goOn(progress); });
  printing_ = chassis_.onPrinted([this](ConsolePort port, const std::string &line) {
    if (!shell_.takePrint(port, line)) {
      tellPrinted(port, line);
    }
  });
}

// A stream is nobody's output, also before its card is in.
void ChassisRun::readStreams() {
  for (const PlayedFile &file : playedFiles(scriptRun_.script())) {
    try {
      chassis_.rack().files().read("the stream of script line " + std::to_string(file.line),
                                   file.path);
    } catch (const InputError &error) {
      throw InputError(atLine(scriptRun_.script(), file.line, error.what()));
    }
  }
}

void ChassisRun::writeEvents(const std::string &path) {
  eventFile_ = std::make_unique<EventFile>(
      chassis_.rack().files(), path, [this] { return clock_.elapsedMs(); },
      [this] { return !clock_.live(); });
  events_.add(*eventFile_);
}

void ChassisRun::tellEventLoss() {
  const std::optional<Event> trouble = eventFile_ ? eventFile_->newTrouble() : std::nullopt;
  if (trouble) {
    events_.tell(*trouble);
  }
}

// From here on nobody is told: a file that was ended would begin anew.
void ChassisRun::endEvents() {
  if (eventFile_ == nullptr) {
    return;
  }
  tellEventLoss();
  events_.remove(*eventFile_);
  const std::string loss = eventFile_->end();
  tellEventLoss();
  if (!loss.empty()) {
    losses_.push_back(loss);
  }
}

void ChassisRun::tellPrinted(ConsolePort port, const std::string &line) {
  const bool shown = port == ConsolePort::Print || config_.debug;
  if (shown && !line.empty()) {
    events_.tell(printed(port, line));
  }
}

void ChassisRun::complain(const std::string &what) {
  interface_->show("error: " + what + "\n");
}

// One tick at a time, so that what a person asks of the module is served as soon as a cycle is
// over.
int ChassisRun::run() {
  interface_->serve(clock_, agenda_);
  clock_.setWait([this](std::uint64_t dueNs) { wait(dueNs); });
  std::string unexpected;
  try {
    runToTheEnd();
  } catch (const Unexpected &error) {
    unexpected = error.what();
  } catch (const InputError &) {
    if (!interface_->ended()) {
      end();
      throw;
    }
  }
  const int status = interface_->status();
  const std::string inputTrouble = interface_->inputTrouble();
  end();
  for (const std::string &trouble : {unexpected, inputTrouble}) {
    complainLines("ci-chassis", trouble);
  }
  return status == exitDone && agenda_.unexpected() ? exitUnexpected : status;
}

void ChassisRun::runToTheEnd() {
  do {
    takePipedLines();
    settlePace();
    chassis_.run(clock_.elapsedMs() + Clock::msPerTick, agenda_);
    stopWhenOver();
  } while (!clock_.stopped());
  if (interface_->status() == exitDone) {
    watch_.lookAtLast();
    agenda_.close();
  }
}

// A tick is due at a real time, also when it is one of a pause of the module.
void ChassisRun::wait(std::uint64_t dueNs) {
  interface_->waitUntil(dueNs);
  if (chassis_.supervising()) {
    takePipedLines();
  }
  chassis_.letHappen();
  stopWhenOver();
  showHowFar();
}

// A run that keeps a pace is as far as the clock on the wall.
void ChassisRun::showHowFar() {
  const std::uint64_t nowMs = clock_.elapsedMs();
  if (maximal() && nowMs % Chassis::cycleMs == 0) {
    interface_->showRun(progressOf(nowMs, knownEndMs(), std::chrono::steady_clock::now() - begun_));
  }
}

std::uint64_t ChassisRun::knownEndMs() const {
  return config_.endMs.value_or(std::max(scriptRun_.endMs(), shell_.blockedUntilMs()));
}

void ChassisRun::stopWhenOver() {
  if (isOver()) {
    chassis_.stop();
  }
}

// While the timeline still has its interface: the end of an output may have to be told.
void ChassisRun::end() {
  losses_ = chassis_.rack().endOutputs();
  watch_.lookAtLast();
  endEvents();
  timeline_.flush();
  clock_.setWait(nullptr);
  chassis_.rack().files().onLongWork(nullptr);
  interface_.reset();
}

bool ChassisRun::isOver() const {
  const std::uint64_t nowMs = clock_.elapsedMs();
  const bool forNobody = standardOutputGone() && !config_.writesFiles;
  if (shell_.exited() || interface_->ended() || forNobody) {
    return true;
  }
  const bool streamsOver = config_.endsWithStreams && chassis_.rack().streamsEnded();
  if (config_.endMs || config_.endsWithStreams || config_.mode == InputMode::Terminal) {
    return streamsOver || (config_.endMs && nowMs >= *config_.endMs);
  }
  const bool typedOver = config_.mode == InputMode::Script ||
                         (interface_->inputOver() && agenda_.idle() && !agenda_.waits(nowMs));
  return typedOver && scriptRun_.isOver(nowMs);
}

// Without a pace, chassis time stands still until the next line of a pipe has come.
void ChassisRun::takePipedLines() {
  const bool waits = maximal() && config_.mode == InputMode::Pipe;
  while (waits && !interface_->inputOver() && agenda_.idle() &&
         !agenda_.waits(clock_.elapsedMs()) && !isOver()) {
    interface_->awaitLine();
    agenda_.runDue(clock_.elapsedMs());
    if (chassis_.booted() && !chassis_.supervising()) {
      agenda_.serve();
    }
  }
}

// A person cannot keep up with time without a pace.
void ChassisRun::settlePace() {
  if (maximal() && config_.mode == InputMode::Terminal && scriptRun_.isOver(clock_.elapsedMs())) {
    clock_.setSpeed(1);
  }
}

}  // namespace chassis
