// Programs that an event is about, each with the name of its service.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace chassis::event {

class Programs {
 public:
  Programs() = default;
  Programs(std::uint16_t number, const std::string &name) { add(number, name); }

  // name: empty where the stream tells none.
  void add(std::uint16_t number, const std::string &name) {
    numbers_.push_back(number);
    names_.push_back(name);
  }

  const std::vector<std::uint16_t> &numbers() const { return numbers_; }
  const std::vector<std::string> &names() const { return names_; }  // in the same order
  bool named() const {
    return std::any_of(names_.begin(), names_.end(),
                       [](const auto &name) { return !name.empty(); });
  }

  // Names are told where there is one.
  template <typename To>
  void each(To to, const char *numbersName = "programs", const char *namesName = "names") const {
    to(numbersName, numbers_);
    if (named()) {
      to(namesName, names_);
    }
  }

 private:
  std::vector<std::uint16_t> numbers_;
  std::vector<std::string> names_;
};

}  // namespace chassis::event
