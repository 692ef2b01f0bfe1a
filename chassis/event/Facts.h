// What is known of what happened: one type for each kind of event.
#pragma once

#include <cstddef>
#include <utility>
#include <variant>

#include "event/CamFacts.h"
#include "event/CheckFacts.h"
#include "event/EventKind.h"
#include "event/LineFacts.h"
#include "event/StreamFacts.h"

namespace chassis {

// In the order of EventKind.
using Facts = std::variant<
    event::ScriptLine, event::ConsoleLine, event::Remark, event::AsExpected, event::NotAsExpected,
    event::NoEffect, event::CardRemoved, event::StreamDamaged, event::StreamEnded,
    event::WriterCame, event::WriterGone, event::StreamChanged, event::StreamBegun,
    event::StreamSilent, event::StreamBack, event::InputLost, event::StreamsUnmatched,
    event::ProbeUnaligned, event::ProbeBegun, event::WentLive, event::TransportErrors,
    event::TablesCut, event::OutputLost, event::SenderChanged, event::InputForeign,
    event::BufferSmall, event::InterfaceGone, event::InterfaceBack, event::CamStarting,
    event::CamUp, event::CamRemoved, event::CamReset, event::ResetAdvised,
    event::ResetCommandFailed, event::NoCamToReset, event::CaPmtSent, event::QuerySent,
    event::CaPmtRefused, event::CaPmtIncomplete, event::Reply, event::CamSilent,
    event::CamUnknownBytes, event::CaInfoRefused, event::CaInfoUnasked, event::ReplyRefused,
    event::ReplyUnasked, event::ReplyCut, event::ReplyChanged, event::CamDescrambles,
    event::CamStops, event::CamCannot, event::CamIgnores, event::CamDeaf, event::ControllerState,
    event::CamState, event::ProgramState, event::AlarmRaised, event::AlarmCleared,
    event::AlarmNotRaised, event::AlarmNotCleared, event::ModulePrint, event::ModuleDebug>;

template <std::size_t... index>
constexpr bool inOrder(std::index_sequence<index...> /*all*/) {
  return ((std::variant_alternative_t<index, Facts>::kind == static_cast<EventKind>(index)) && ...);
}
static_assert(std::variant_size_v<Facts> == eventKinds &&
              inOrder(std::make_index_sequence<eventKinds>()));

}  // namespace chassis
