// What can happen in the chassis, by name.
#pragma once

#include <cstddef>
#include <cstdint>

namespace chassis {

enum class EventKind : std::uint8_t {
  // What a person or a script does, and says.
  ScriptLine,
  ConsoleLine,
  Remark,
  AsExpected,
  NotAsExpected,
  NoEffect,
  // A card and its stream.
  CardRemoved,
  StreamDamaged,
  StreamEnded,
  WriterCame,
  WriterGone,
  StreamChanged,
  StreamBegun,
  StreamSilent,
  StreamBack,
  InputLost,
  StreamsUnmatched,
  ProbeUnaligned,
  ProbeBegun,
  WentLive,
  TransportErrors,
  TablesCut,
  OutputLost,
  // Datagrams that a card takes.
  SenderChanged,
  InputForeign,
  BufferSmall,
  InterfaceGone,
  InterfaceBack,
  // A CAM and its exchange with the CI library.
  CamStarting,
  CamUp,
  CamRemoved,
  CamReset,
  ResetAdvised,
  ResetCommandFailed,
  NoCamToReset,
  CaPmtSent,
  QuerySent,
  CaPmtRefused,
  CaPmtIncomplete,
  Reply,
  CamSilent,
  CamUnknownBytes,
  CaInfoRefused,
  CaInfoUnasked,
  ReplyRefused,
  ReplyUnasked,
  ReplyCut,
  ReplyChanged,
  // What the software CAM does by itself.
  CamDescrambles,
  CamStops,
  CamCannot,
  CamIgnores,
  CamDeaf,
  // What a check of the module has found.
  ControllerState,
  CamState,
  ProgramState,
  AlarmRaised,
  AlarmCleared,
  AlarmNotRaised,
  AlarmNotCleared,
  // A line that the module or the firmware prints.
  ModulePrint,
  ModuleDebug,
};
constexpr std::size_t eventKinds = static_cast<std::size_t>(EventKind::ModuleDebug) + 1;

// The kind's name for programs: "alarm_raised".
const char *kindName(EventKind kind);

}  // namespace chassis
