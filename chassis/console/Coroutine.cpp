#include "console/Coroutine.h"

#include <utility>

namespace chassis {
namespace {

constexpr std::size_t stackSize = 512 * 1024;

// makecontext can hand over ints only: the one that begins is left here.
thread_local Coroutine *beginning = nullptr;

}  // namespace

Coroutine::Coroutine(std::function<void()> body)
    : body_(std::move(body)), stack_(std::make_unique<char[]>(stackSize)) {
  getcontext(&inside_);
  inside_.uc_stack.ss_sp = stack_.get();
  inside_.uc_stack.ss_size = stackSize;
  inside_.uc_link = &outside_;
  makecontext(&inside_, &Coroutine::enter, 0);
}

void Coroutine::enter() {
  beginning->runBody();
}

void Coroutine::runBody() noexcept {
  body_();
  over_ = true;
}

void Coroutine::resume() {
  if (!over_) {
    beginning = this;
    swapcontext(&outside_, &inside_);
  }
}

void Coroutine::wait() {
  swapcontext(&inside_, &outside_);
}

}  // namespace chassis
