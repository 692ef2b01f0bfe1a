// A second flow of control in the one thread: it runs until it waits, and goes on when it is
// resumed.
#pragma once

#include <ucontext.h>

#include <functional>
#include <memory>

namespace chassis {

class Coroutine {
 public:
  // body: runs in the first resume; what it throws ends the process.
  explicit Coroutine(std::function<void()> body);
  // Its body must be over or not begun: what stands on its stack is not destroyed.
  ~Coroutine() = default;
  Coroutine(const Coroutine &) = delete;
  Coroutine &operator=(const Coroutine &) = delete;

  void resume();  // until the body waits or is over; nothing when it is over
  void wait();    // from within the body: back to who resumed it
  bool over() const { return over_; }

 private:
  static void enter();
  void runBody() noexcept;

  const std::function<void()> body_;
  const std::unique_ptr<char[]> stack_;
  ucontext_t inside_{};
  ucontext_t outside_{};
  bool over_ = false;
};

}  // namespace chassis
