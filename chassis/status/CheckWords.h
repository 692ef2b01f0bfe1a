// The words for what a check of the module has found, and for alarms.
#pragma once

#include "status/EventWords.h"

namespace chassis::words {

EventWords of(const event::ControllerState &facts, const Place &place);
EventWords of(const event::CamState &facts, const Place &place);
EventWords of(const event::ProgramState &facts, const Place &place);
EventWords of(const event::AlarmRaised &facts, const Place &place);
EventWords of(const event::AlarmCleared &facts, const Place &place);
EventWords of(const event::AlarmNotRaised &facts, const Place &place);
EventWords of(const event::AlarmNotCleared &facts, const Place &place);

}  // namespace chassis::words
