// A programmable answer of one platform or card function.
#ifndef TESTS_PLATFORM_ANSWER_H
#define TESTS_PLATFORM_ANSWER_H

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <tuple>
#include <utility>

// What a function answers, in this order of precedence:
//   answer.then(1).then(2)          the next calls, one value each
//   answer.when(0, 0x100) = 5       calls with exactly these arguments
//   answer.does([](...) { ... })    a function of the arguments
//   answer = 3                      everything else; forgets all of the above
template <typename Signature>
class Answer;

template <typename R, typename... A>
class Answer<R(A...)> {
 public:
  Answer() = default;
  Answer(R value) : value_(value) {}  // NOLINT: an answer is written like its value

  Answer &operator=(R value) {
    value_ = value;
    next_.clear();
    cases_.clear();
    function_ = nullptr;
    return *this;
  }

  Answer &then(R value) {
    next_.push_back(value);
    return *this;
  }

  R &when(A... arguments) { return cases_[std::make_tuple(arguments...)]; }

  Answer &does(std::function<R(A...)> function) {
    function_ = std::move(function);
    return *this;
  }

  R operator()(A... arguments) {
    if (!next_.empty()) {
      R value = next_.front();
      next_.pop_front();
      return value;
    }
    auto found = cases_.find(std::make_tuple(arguments...));
    if (found != cases_.end()) {
      return found->second;
    }
    return function_ ? function_(arguments...) : value_;
  }

 private:
  R value_{};
  std::deque<R> next_;
  std::map<std::tuple<A...>, R> cases_;
  std::function<R(A...)> function_;
};

#endif
