// Tells at a terminal how far long work is. What is over soon is not told at all.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "base/LongWork.h"

namespace chassis {

// "what: 34 %", "what reached: 34 %", or "what" where all is not known.
std::string progressText(const Progress &progress);

// When a progress is to be shown.
class ProgressPace {
 public:
  ProgressPace(std::chrono::milliseconds first, std::chrono::milliseconds every)
      : first_(first), every_(every) {}

  // Whether it is time to show this, which is then taken for shown.
  bool due(const Progress &progress);

 private:
  using Time = std::chrono::steady_clock;

  const std::chrono::milliseconds first_;  // after the work has begun
  const std::chrono::milliseconds every_;
  std::string what_;
  std::uint64_t done_ = 0;
  Time::time_point next_{};
};

// A line of its own at a terminal, without an end, that is written over and goes in the end.
class ProgressLine {
 public:
  explicit ProgressLine(int file);  // nothing is written when it is no terminal
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine &) = delete;
  ProgressLine &operator=(const ProgressLine &) = delete;

  void show(const Progress &progress);  // work that is done goes from the line
  void clear();

 private:
  void put(const std::string &text);

  const int file_;
  const bool terminal_;
  ProgressPace pace_;
  std::size_t shown_ = 0;  // bytes that stand in the line, at most its columns
};

// What always goes on, and shows how far it is.
GoOn showingOn(ProgressLine &line);

}  // namespace chassis
