#include "console/Coroutine.h"

#include <cstdint>
#include <utility>

namespace chassis {
namespace {

constexpr std::size_t stackSize = 512 * 1024;
constexpr unsigned halfBits = 32;

}  // namespace

Coroutine::Coroutine(std::function<void()> body)
    : body_(std::move(body)), stack_(std::make_unique<char[]>(stackSize)) {
  getcontext(&inside_);
  inside_.uc_stack.ss_sp = stack_.get();
  inside_.uc_stack.ss_size = stackSize;
  inside_.uc_link = &outside_;
  // makecontext hands over ints only: the address travels in two halves.
  const auto self = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(this));
  makecontext(&inside_, reinterpret_cast<void (*)()>(&Coroutine::enter), 2,
              static_cast<unsigned>(self >> halfBits), static_cast<unsigned>(self));
}

void Coroutine::enter(unsigned high, unsigned low) {
  const std::uint64_t self = static_cast<std::uint64_t>(high) << halfBits | low;
  reinterpret_cast<Coroutine *>(static_cast<std::uintptr_t>(self))->runBody();
}

void Coroutine::runBody() noexcept {
  body_();
  over_ = true;
}

void Coroutine::resume() {
  if (!over_) {
    swapcontext(&outside_, &inside_);
  }
}

void Coroutine::wait() {
  swapcontext(&inside_, &outside_);
}

}  // namespace chassis
