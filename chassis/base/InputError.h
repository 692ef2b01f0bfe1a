// Bad input from a person: a file, a script line, an argument.
#pragma once

#include <stdexcept>
#include <string>

namespace chassis {

// The text names the input, tells what was wrong with it and, where there is one, what would have
// been right. Whoever read the input catches it and adds its position.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace chassis
