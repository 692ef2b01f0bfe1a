#include "event/Event.h"

namespace chassis {

Event::Event(Place where, Facts known) : place(where), facts(std::move(known)) {}
Event::Event(const Event &other) = default;
Event::Event(Event &&other) noexcept = default;
Event &Event::operator=(const Event &other) = default;
Event &Event::operator=(Event &&other) noexcept = default;
Event::~Event() = default;

}  // namespace chassis
