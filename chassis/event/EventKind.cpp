#include "event/EventKind.h"

#include <iterator>

namespace chassis {
namespace {

struct KindName {
  EventKind kind;
  const char *name;
};

constexpr KindName kindNames[] = {
    {EventKind::ScriptLine, "script_line"},
    {EventKind::ConsoleLine, "console_line"},
    {EventKind::Remark, "remark"},
    {EventKind::AsExpected, "as_expected"},
    {EventKind::NotAsExpected, "not_as_expected"},
    {EventKind::NoEffect, "no_effect"},
    {EventKind::CardRemoved, "card_removed"},
    {EventKind::StreamDamaged, "stream_damaged"},
    {EventKind::StreamEnded, "stream_ended"},
    {EventKind::WriterCame, "writer_came"},
    {EventKind::WriterGone, "writer_gone"},
    {EventKind::StreamChanged, "stream_changed"},
    {EventKind::StreamBegun, "stream_begun"},
    {EventKind::StreamSilent, "stream_silent"},
    {EventKind::StreamBack, "stream_back"},
    {EventKind::InputLost, "input_lost"},
    {EventKind::StreamsUnmatched, "streams_unmatched"},
    {EventKind::ProbeUnaligned, "probe_unaligned"},
    {EventKind::ProbeBegun, "probe_begun"},
    {EventKind::WentLive, "went_live"},
    {EventKind::TransportErrors, "transport_errors"},
    {EventKind::TablesCut, "tables_cut"},
    {EventKind::OutputLost, "output_lost"},
    {EventKind::SenderChanged, "sender_changed"},
    {EventKind::InputForeign, "input_foreign"},
    {EventKind::BufferSmall, "buffer_small"},
    {EventKind::InterfaceGone, "interface_gone"},
    {EventKind::InterfaceBack, "interface_back"},
    {EventKind::CamStarting, "cam_starting"},
    {EventKind::CamUp, "cam_up"},
    {EventKind::CamRemoved, "cam_removed"},
    {EventKind::CamReset, "cam_reset"},
    {EventKind::ResetAdvised, "reset_advised"},
    {EventKind::ResetCommandFailed, "reset_command_failed"},
    {EventKind::NoCamToReset, "no_cam_to_reset"},
    {EventKind::CaPmtSent, "ca_pmt_sent"},
    {EventKind::QuerySent, "query_sent"},
    {EventKind::CaPmtRefused, "ca_pmt_refused"},
    {EventKind::CaPmtIncomplete, "ca_pmt_incomplete"},
    {EventKind::Reply, "reply"},
    {EventKind::CamSilent, "cam_silent"},
    {EventKind::CamUnknownBytes, "cam_unknown_bytes"},
    {EventKind::CaInfoRefused, "ca_info_refused"},
    {EventKind::CaInfoUnasked, "ca_info_unasked"},
    {EventKind::ReplyRefused, "reply_refused"},
    {EventKind::ReplyUnasked, "reply_unasked"},
    {EventKind::ReplyCut, "reply_cut"},
    {EventKind::ReplyChanged, "reply_changed"},
    {EventKind::CamDescrambles, "cam_descrambles"},
    {EventKind::CamStops, "cam_stops"},
    {EventKind::CamCannot, "cam_cannot"},
    {EventKind::CamIgnores, "cam_ignores"},
    {EventKind::CamDeaf, "cam_deaf"},
    {EventKind::ControllerState, "controller_state"},
    {EventKind::CamState, "cam_state"},
    {EventKind::ProgramState, "program_state"},
    {EventKind::AlarmRaised, "alarm_raised"},
    {EventKind::AlarmCleared, "alarm_cleared"},
    {EventKind::AlarmNotRaised, "alarm_not_raised"},
    {EventKind::AlarmNotCleared, "alarm_not_cleared"},
    {EventKind::ModulePrint, "module_print"},
    {EventKind::ModuleDebug, "module_debug"},
};

constexpr bool inOrder() {
  for (std::size_t i = 0; i < std::size(kindNames); ++i) {
    if (kindNames[i].kind != static_cast<EventKind>(i)) {
      return false;
    }
  }
  return std::size(kindNames) == eventKinds;
}
static_assert(inOrder());

}  // namespace

const char *kindName(EventKind kind) {
  return kindNames[static_cast<std::size_t>(kind)].name;
}

}  // namespace chassis
