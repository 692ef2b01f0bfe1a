#include "console/InputAndSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include "console/EndDeadline.h"

namespace chassis {
namespace {

constexpr int takenSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH};

volatile std::sig_atomic_t noteTo = -1;
volatile std::sig_atomic_t endsAtInterrupt = 0;

extern "C" void noteSignal(int signal) {
  const int before = errno;
  const auto byte = static_cast<unsigned char>(signal);
  static_cast<void>(!write(noteTo, &byte, 1));
  const bool ends = signal == SIGTERM || signal == SIGHUP || signal == SIGQUIT;
  if (ends || (signal == SIGINT && endsAtInterrupt)) {
    armEndDeadline(signal);
  }
  errno = before;
}

// What nohup, or a shell that puts a program into the background, has made deaf stays so.
bool staysIgnored(int signal) {
  struct sigaction action {};
  return (signal == SIGHUP || signal == SIGQUIT) && sigaction(signal, nullptr, &action) == 0 &&
         action.sa_handler == SIG_IGN;
}

void handleSignals(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigfillset(&action.sa_mask);
  for (const int signal : takenSignals) {
    if (!staysIgnored(signal)) {
      sigaction(signal, &action, nullptr);
    }
  }
}

}  // namespace

InputAndSignals::InputAndSignals(Loop &loop, bool interruptEnds) : loop_(loop) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::runtime_error("signals cannot be read");
  }
  signals_ = ends[0];
  noteTo = ends[1];
  endsAtInterrupt = interruptEnds ? 1 : 0;
  prepareEndDeadline();
  handleSignals(noteSignal);
  watchings_ = {
      loop_.watch(signals_, [this] { readSignal(); }),
      loop_.watch(
          STDIN_FILENO, [this] { readBytes(); }, [this] { return open_ && reading_ && take_; })};
}

InputAndSignals::~InputAndSignals() {
  handleSignals(SIG_DFL);
  close(noteTo);
  close(signals_);
}

void InputAndSignals::waitUntil(std::uint64_t dueNs, const std::function<bool()> &cut) {
  do {
    loop_.wait(dueNs);
  } while (!cut() && Loop::nowNs() < dueNs);
}

void InputAndSignals::waitForNext() {
  loop_.wait(std::nullopt);
}

void InputAndSignals::readBytes() {
  std::array<char, 1024> buffer{};
  const ssize_t size = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (size < 0 && (errno == EINTR || errno == EAGAIN)) {
    return;
  }
  open_ = size > 0;
  failure_ = size < 0 ? errno : 0;
  take_(std::string(buffer.data(), static_cast<std::size_t>(open_ ? size : 0)));
}

void InputAndSignals::readSignal() {
  unsigned char signal = 0;
  if (read(signals_, &signal, 1) == 1 && takeSignal_) {
    takeSignal_(signal);
  }
}

}  // namespace chassis
