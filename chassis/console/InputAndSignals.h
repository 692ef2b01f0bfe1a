// What comes from outside while a run waits: bytes on standard input, and signals. Those that it
// takes have their usual effect again when it is gone. One at a time.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "kernel/Loop.h"

namespace chassis {

class InputAndSignals {
 public:
  // interruptEnds: SIGINT ends the program, as SIGTERM, SIGHUP and SIGQUIT do; then the program
  // ends even if nobody waits here any more (EndDeadline).
  // It waits in the loop, which outlives it.
  InputAndSignals(Loop &loop, bool interruptEnds);
  ~InputAndSignals();
  InputAndSignals(const InputAndSignals &) = delete;
  InputAndSignals &operator=(const InputAndSignals &) = delete;

  // The end of the input comes as no bytes, once, and so does a read that fails. Null: standard
  // input is not read.
  void onBytes(std::function<void(const std::string &bytes)> take) { take_ = std::move(take); }
  int failure() const { return failure_; }     // errno of the read that failed; 0: none has
  void setReading(bool on) { reading_ = on; }  // off: bytes stay where they are
  void onSignal(std::function<void(int signal)> take) { takeSignal_ = std::move(take); }

  // Hands on all that comes until a real time in ns of CLOCK_MONOTONIC; what is there already is
  // taken even when the time has come. cut: ends the wait early once it is true.
  void waitUntil(std::uint64_t dueNs, const std::function<bool()> &cut);
  // Waits for the next bytes or signal, however long.
  void waitForNext();

 private:
  void readBytes();
  void readSignal();

  Loop &loop_;
  std::array<Loop::Watching, 2> watchings_;
  int signals_ = -1;  // a byte for each
  std::function<void(const std::string &)> take_;
  std::function<void(int)> takeSignal_;
  bool open_ = true;
  int failure_ = 0;
  bool reading_ = true;
};

}  // namespace chassis
