// What happens in the chassis, told to whoever shows it, writes it down or counts it. Who makes an
// event says what is so; words for it are made where they are read (status/EventWords.h).
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include "event/EventKind.h"
#include "event/Facts.h"

namespace chassis {

// Of a receiver elsewhere that is judged: which of its two streams.
enum class Side : std::uint8_t { None, Before, Behind };

// Where something happened: the chassis, a card, or a CAM of a card. -1 means "not about one".
struct Place {
  int slot = -1;  // card slot 0..5
  int cam = -1;   // CAM slot 0..1
  Side side = Side::None;
};

// What so many kinds make of copying and taking apart is compiled once.
struct Event {
  template <typename Kind>
  Event(Place where, Kind known)
      : place(where), facts(std::in_place_type<Kind>, std::move(known)) {}
  Event(Place where, Facts known);
  Event(const Event &other);
  Event(Event &&other) noexcept;
  Event &operator=(const Event &other);
  Event &operator=(Event &&other) noexcept;
  ~Event();

  Place place;
  Facts facts;
  EventKind kind() const { return static_cast<EventKind>(facts.index()); }
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
