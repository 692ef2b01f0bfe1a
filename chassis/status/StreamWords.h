// The words for a card, its stream and the datagrams that it takes.
#pragma once

#include "status/EventWords.h"

namespace chassis::words {

EventWords of(const event::CardRemoved &facts, const Place &place);
EventWords of(const event::StreamDamaged &facts, const Place &place);
EventWords of(const event::StreamEnded &facts, const Place &place);
EventWords of(const event::WriterCame &facts, const Place &place);
EventWords of(const event::WriterGone &facts, const Place &place);
EventWords of(const event::StreamChanged &facts, const Place &place);
EventWords of(const event::StreamBegun &facts, const Place &place);
EventWords of(const event::StreamSilent &facts, const Place &place);
EventWords of(const event::StreamBack &facts, const Place &place);
EventWords of(const event::InputLost &facts, const Place &place);
EventWords of(const event::StreamsUnmatched &facts, const Place &place);
EventWords of(const event::ProbeUnaligned &facts, const Place &place);
EventWords of(const event::ProbeBegun &facts, const Place &place);
EventWords of(const event::WentLive &facts, const Place &place);
EventWords of(const event::TransportErrors &facts, const Place &place);
EventWords of(const event::TablesCut &facts, const Place &place);
EventWords of(const event::OutputLost &facts, const Place &place);
EventWords of(const event::SenderChanged &facts, const Place &place);
EventWords of(const event::InputForeign &facts, const Place &place);
EventWords of(const event::BufferSmall &facts, const Place &place);
EventWords of(const event::InterfaceGone &facts, const Place &place);
EventWords of(const event::InterfaceBack &facts, const Place &place);

}  // namespace chassis::words
