// The words for what a person or a script does, and says, and for what the module prints.
#pragma once

#include "status/EventWords.h"

namespace chassis::words {

EventWords of(const event::ScriptLine &facts, const Place &place);
EventWords of(const event::ConsoleLine &facts, const Place &place);
EventWords of(const event::Remark &facts, const Place &place);
EventWords of(const event::AsExpected &facts, const Place &place);
EventWords of(const event::NotAsExpected &facts, const Place &place);
EventWords of(const event::NoEffect &facts, const Place &place);
EventWords of(const event::ModulePrint &facts, const Place &place);
EventWords of(const event::ModuleDebug &facts, const Place &place);

}  // namespace chassis::words
