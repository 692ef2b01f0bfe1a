// What happens in the chassis, told to whoever shows it, writes it down or counts it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace chassis {

// Where something happened: the chassis, a card, or a CAM of a card. -1 means "not about one".
struct Place {
  int slot = -1;  // card slot 0..5
  int cam = -1;   // CAM slot 0..1
};

// How an event is meant. Alarm: nobody may miss it.
enum class Tone : std::uint8_t { Plain, Good, Bad, Faint, Alarm };

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
