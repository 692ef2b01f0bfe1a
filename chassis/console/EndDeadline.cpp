#include "console/EndDeadline.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "base/ExitStatus.h"

namespace chassis {
namespace {

constexpr char told[] = "ci-chassis: ended by a signal; not everything could be written\n";

volatile std::sig_atomic_t endSignal = 0;
timer_t timer{};
bool prepared = false;
bool atTerminal = false;
termios terminal{};

// In the background the terminal is somebody else's.
bool ownsTerminal() {
  return atTerminal && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

extern "C" void giveUp(int) {
  pollfd errors{STDERR_FILENO, POLLOUT, 0};
  if (ownsTerminal()) {
    static_cast<void>(tcsetattr(STDIN_FILENO, TCSANOW, &terminal));
  }
  if (poll(&errors, 1, 0) > 0) {
    static_cast<void>(!write(STDERR_FILENO, told, sizeof told - 1));
  }
  _exit(exitSignalled + endSignal);
}

}  // namespace

void prepareEndDeadline() {
  if (prepared) {
    return;
  }
  struct sigaction action {};
  action.sa_handler = giveUp;
  sigaddset(&action.sa_mask, SIGTTOU);  // which would stop the program instead
  sigaction(SIGALRM, &action, nullptr);
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGALRM;
  prepared = timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
  atTerminal = tcgetattr(STDIN_FILENO, &terminal) == 0;
}

void armEndDeadline(int signal) {
  if (!prepared || endSignal != 0) {
    return;
  }
  endSignal = signal;
  itimerspec time{};
  time.it_value.tv_nsec = endDeadlineMs * 1000000L;
  timer_settime(timer, 0, &time, nullptr);
}

}  // namespace chassis
