// The words for a CAM and its exchange with the CI library, and for what the software CAM does.
#pragma once

#include "status/EventWords.h"

namespace chassis::words {

EventWords of(const event::CamStarting &facts, const Place &place);
EventWords of(const event::CamUp &facts, const Place &place);
EventWords of(const event::CamRemoved &facts, const Place &place);
EventWords of(const event::CamReset &facts, const Place &place);
EventWords of(const event::ResetAdvised &facts, const Place &place);
EventWords of(const event::ResetCommandFailed &facts, const Place &place);
EventWords of(const event::NoCamToReset &facts, const Place &place);
EventWords of(const event::CaPmtSent &facts, const Place &place);
EventWords of(const event::QuerySent &facts, const Place &place);
EventWords of(const event::CaPmtRefused &facts, const Place &place);
EventWords of(const event::CaPmtIncomplete &facts, const Place &place);
EventWords of(const event::Reply &facts, const Place &place);
EventWords of(const event::CamSilent &facts, const Place &place);
EventWords of(const event::CamUnknownBytes &facts, const Place &place);
EventWords of(const event::CaInfoRefused &facts, const Place &place);
EventWords of(const event::CaInfoUnasked &facts, const Place &place);
EventWords of(const event::ReplyRefused &facts, const Place &place);
EventWords of(const event::ReplyUnasked &facts, const Place &place);
EventWords of(const event::ReplyCut &facts, const Place &place);
EventWords of(const event::ReplyChanged &facts, const Place &place);
EventWords of(const event::CamDescrambles &facts, const Place &place);
EventWords of(const event::CamStops &facts, const Place &place);
EventWords of(const event::CamCannot &facts, const Place &place);
EventWords of(const event::CamIgnores &facts, const Place &place);
EventWords of(const event::CamDeaf &facts, const Place &place);

}  // namespace chassis::words
