#include "console/Inlet.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <stdexcept>

namespace chassis {
namespace {

constexpr std::uint64_t nsPerSecond = 1000000000;

sigset_t takenSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGWINCH}) {
    sigaddset(&set, signal);
  }
  return set;
}

std::uint64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * nsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

timespec timeLeft(std::uint64_t dueNs) {
  const std::uint64_t now = nowNs();
  const std::uint64_t left = dueNs > now ? dueNs - now : 0;
  timespec time{};
  time.tv_sec = static_cast<time_t>(left / nsPerSecond);
  time.tv_nsec = static_cast<long>(left % nsPerSecond);
  return time;
}

}  // namespace

Inlet::Inlet() {
  const sigset_t set = takenSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  signals_ = signalfd(-1, &set, SFD_CLOEXEC);
  if (signals_ < 0) {
    throw std::runtime_error("signals cannot be read");
  }
}

Inlet::~Inlet() {
  close(signals_);
  const sigset_t set = takenSignals();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void Inlet::waitUntil(std::uint64_t dueNs, const std::function<bool()> &cut) {
  do {
    poll(dueNs);
  } while (!cut() && nowNs() < dueNs);
}

void Inlet::waitForNext() {
  poll(std::nullopt);
}

void Inlet::poll(std::optional<std::uint64_t> dueNs) {
  const bool reads = open_ && reading_ && take_;
  std::array<pollfd, 2> sources{{{signals_, POLLIN, 0}, {reads ? STDIN_FILENO : -1, POLLIN, 0}}};
  const timespec left = dueNs ? timeLeft(*dueNs) : timespec{};
  if (ppoll(sources.data(), sources.size(), dueNs ? &left : nullptr, nullptr) <= 0) {
    return;
  }
  if (sources[0].revents != 0) {
    readSignal();
  }
  if (sources[1].revents != 0) {
    readBytes();
  }
}

void Inlet::readBytes() {
  std::array<char, 1024> buffer{};
  const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (size < 0 && (errno == EINTR || errno == EAGAIN)) {
    return;
  }
  open_ = size > 0;
  take_(std::string(buffer.data(), static_cast<std::size_t>(open_ ? size : 0)));
}

void Inlet::readSignal() {
  signalfd_siginfo info{};
  if (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info) && takeSignal_) {
    takeSignal_(static_cast<int>(info.ssi_signo));
  }
}

}  // namespace chassis
