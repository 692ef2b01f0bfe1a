// What happens in the chassis, told to whoever shows it.
#pragma once

#include <cstdint>
#include <string>

namespace chassis {

// Where something happened: the chassis, a card, or a CAM of a card. -1 means "not about one".
struct Place {
  int slot = -1;  // card slot 0..5
  int cam = -1;   // CAM slot 0..1
};

// Receives one line of history. The receiver stamps it with the chassis time. `what` is one short
// clause in an operator's words; `why` is the reason or evidence, empty where there is none.
class Events {
 public:
  virtual ~Events() = default;
  virtual void report(Place place, const std::string &what, const std::string &why) = 0;
  // The same of what nobody may miss: an alarm, a reset.
  virtual void alert(Place place, const std::string &what, const std::string &why) {
    report(place, what, why);
  }
};

}  // namespace chassis
