// A flag that is up for a while.
#pragma once

namespace chassis {

// True while it lives.
class Raised {
 public:
  explicit Raised(bool &flag) : flag_(flag) { flag_ = true; }
  ~Raised() { flag_ = false; }
  Raised(const Raised &) = delete;
  Raised &operator=(const Raised &) = delete;

 private:
  bool &flag_;
};

}  // namespace chassis
