#include "app/Preparation.h"

#include <unistd.h>

#include <csignal>
#include <memory>

#include "base/ExitStatus.h"
#include "console/InputAndSignals.h"
#include "console/ProgressLine.h"

namespace chassis {
namespace {

// Takes signals for as long as the work lasts: what waits for a script to come through a pipe does
// not ask, and signals have their usual effect there.
class Work {
 public:
  explicit Work(int &status) : status_(status) {
    outside_.onSignal([this](int signal) { take(signal); });
  }
  ~Work() { takeSignals(); }
  Work(const Work &) = delete;
  Work &operator=(const Work &) = delete;

  bool goesOn(const Progress &progress) {
    progress_.show(progress);
    takeSignals();
    return status_ == exitDone;
  }

 private:
  void takeSignals() {
    outside_.waitUntil(0, [] { return true; });
  }

  void take(int signal) {
    if (signal == SIGTSTP) {
      progress_.clear();
      static_cast<void>(std::raise(SIGSTOP));
    } else if (signal != SIGWINCH) {
      status_ = exitSignalled + signal;
    }
  }

  int &status_;
  Loop loop_;
  InputAndSignals outside_{loop_, true};
  ProgressLine progress_{STDERR_FILENO};
};

}  // namespace

int prepare(const std::function<void(const BeginWork &begin)> &work) {
  int status = exitDone;
  const BeginWork begin = [&status] {
    return [piece = std::make_shared<Work>(status)](const Progress &progress) {
      return piece->goesOn(progress);
    };
  };
  try {
    work(begin);
  } catch (const Interrupted &) {
    if (status == exitDone) {
      throw;
    }
  }
  return status;
}

}  // namespace chassis
