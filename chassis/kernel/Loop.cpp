#include "kernel/Loop.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "base/Units.h"

namespace chassis {
namespace {

timespec timeLeft(std::uint64_t untilNs) {
  const std::uint64_t now = Loop::nowNs();
  const std::uint64_t left = untilNs - std::min(untilNs, now);
  timespec time{};
  time.tv_sec = static_cast<time_t>(left / nsPerSecond);
  time.tv_nsec = static_cast<long>(left % nsPerSecond);
  return time;
}

template <typename Entry>
void forgetEnded(std::vector<Entry> &entries) {
  const auto ended = [](const Entry &entry) { return entry.expired(); };
  entries.erase(std::remove_if(entries.begin(), entries.end(), ended), entries.end());
}

}  // namespace

std::uint64_t Loop::nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * nsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

Loop::Watching Loop::watch(int file, std::function<void()> readable, std::function<bool()> on) {
  auto watched = std::make_shared<const Watched>(Watched{file, std::move(readable), std::move(on)});
  watched_.push_back(watched);
  return watched;
}

Loop::Watching Loop::add(Timed &timed) {
  auto entry = std::make_shared<Timed *>(&timed);
  timed_.push_back(entry);
  return entry;
}

std::uint64_t Loop::nextDueNs() const {
  std::uint64_t next = never;
  for (const auto &entry : timed_) {
    if (const auto timed = entry.lock()) {
      next = std::min(next, (*timed)->dueNs());
    }
  }
  return next;
}

// By index: who is served may add somebody.
void Loop::serveTimed() {
  const std::uint64_t now = nowNs();
  for (std::size_t i = 0; i < timed_.size(); ++i) {
    const auto timed = timed_[i].lock();
    if (timed != nullptr && (*timed)->dueNs() <= now) {
      (*timed)->serve(now);
    }
  }
}

void Loop::waitTimed(std::uint64_t untilNs) {
  const timespec left = timeLeft(std::min(untilNs, nextDueNs()));
  static_cast<void>(ppoll(nullptr, 0, &left, nullptr));
  serveTimed();
}

void Loop::wait(std::optional<std::uint64_t> untilNs) {
  forgetEnded(watched_);
  forgetEnded(timed_);
  std::vector<pollfd> files;
  for (const auto &entry : watched_) {
    const auto watched = entry.lock();
    const bool on = !watched->on || watched->on();
    files.push_back({on ? watched->file : -1, POLLIN, 0});
  }
  const std::uint64_t until = std::min(untilNs.value_or(never), nextDueNs());
  const timespec left = until == never ? timespec{} : timeLeft(until);
  if (ppoll(files.data(), files.size(), until == never ? nullptr : &left, nullptr) > 0) {
    for (std::size_t i = 0; i < files.size(); ++i) {
      const auto watched = files[i].revents != 0 ? watched_[i].lock() : nullptr;
      if (watched != nullptr) {
        watched->readable();
      }
    }
  }
  serveTimed();
}

}  // namespace chassis
