// What happens in the chassis, told to whoever shows it, writes it down or counts it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "event/EventKind.h"

namespace chassis {

// Of a receiver elsewhere that is judged: which of its two streams.
enum class Side : std::uint8_t { None, Before, Behind };

// Where something happened: the chassis, a card, or a CAM of a card. -1 means "not about one".
struct Place {
  int slot = -1;  // card slot 0..5
  int cam = -1;   // CAM slot 0..1
  Side side = Side::None;
};

// How an event is meant. Alarm: nobody may miss it.
enum class Tone : std::uint8_t { Plain, Good, Bad, Faint, Alarm };

// The tone's: "alarm".
const char *toneName(Tone tone);

// One fact of an event, named for programs. Times are in ms, ids and PIDs numbers.
struct Fact {
  using Value = std::variant<std::uint64_t, std::string, std::vector<std::uint16_t>,
                             std::vector<std::string>>;
  const char *name;
  Value value;
};

struct Event {
  EventKind kind;
  Place place;
  std::string what;  // one short clause in an operator's words
  std::string why;   // the reason or evidence; empty where there is none
  std::vector<Fact> facts = {};
  Tone tone = Tone::Plain;
};

// Receives one event after the other, as they happen. The receiver stamps them with its time.
class Events {
 public:
  virtual ~Events() = default;
  virtual void tell(const Event &event) = 0;
};

// Tells each event to several receivers, in the order in which they were added.
class EventFan : public Events {
 public:
  void add(Events &receiver) { receivers_.push_back(&receiver); }
  void remove(Events &receiver) {
    receivers_.erase(std::remove(receivers_.begin(), receivers_.end(), &receiver),
                     receivers_.end());
  }
  void tell(const Event &event) override {
    for (Events *receiver : receivers_) {
      receiver->tell(event);
    }
  }

 private:
  std::vector<Events *> receivers_;
};

}  // namespace chassis
