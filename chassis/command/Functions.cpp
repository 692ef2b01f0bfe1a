#include "command/Functions.h"

#include <algorithm>
#include <cmath>

#include "base/InputError.h"
#include "base/Number.h"
#include "base/Text.h"
#include "command/Expectations.h"
#include "command/Nearest.h"
#include "io/Url.h"

namespace chassis {
namespace {

using Form = Param::Form;

constexpr std::uint64_t maxBitrate = 1000000000;
constexpr std::uint64_t maxSeconds = 1000000;

const Param file{"\"file\"", Form::Stream, 1, 0, false};
const Param before{"\"before\"", Form::Stream, 1, 0, false};
const Param behind{"\"behind\"", Form::Stream, 1, 0, false};
const Param text{"\"text\"", Form::Text, 0, 0, false};
const Param bitrate{"bitrate", Form::Number, 1, maxBitrate, false};
const Param casid{"casid", Form::Number, 1, 0xFFFF, false};
const Param program{"program", Form::Number, 1, 0xFFFF, false};
const Param programOrAll{"program", Form::NumberOrAll, 1, 0xFFFF, false};
const Param camMask{"camMask", Form::Number, 0, 3, false};
const Param pid{"pid", Form::Number, 0, nullPid, false};
const Param on{"on", Form::Number, 0, 1, false};
const Param seconds{"seconds", Form::Seconds, 0, maxSeconds, false};
const Param state{"\"state\"", Form::Text, 0, 0, false, stateNames};
const Param fault{"\"fault\"", Form::Text, 0, 0, false, alarmNames};
const Param resets{"count", Form::Number, 0, 0xFFFFFFFF, false};

constexpr const char *allPrograms = "*";

std::uint32_t u32(const Value &value) {
  return static_cast<std::uint32_t>(value.number);
}
std::uint16_t u16(const Value &value) {
  return static_cast<std::uint16_t>(value.number);
}
std::uint8_t u8(const Value &value) {
  return static_cast<std::uint8_t>(value.number);
}
bool flag(const Value &value) {
  return value.number != 0;
}

void runCardInsert(Chassis &chassis, const Values &v) {
  chassis.rack().cardInsert(u32(v[0]), v[1].text, v.size() > 2 ? v[2].number : 0);
}

void runCamInsert(Chassis &chassis, const Values &v) {
  std::vector<std::uint16_t> caSystems;
  std::transform(v.begin() + 2, v.end(), std::back_inserter(caSystems), u16);
  chassis.rack().camInsert(u32(v[0]), u32(v[1]), caSystems);
}

void runProbeInsert(Chassis &chassis, const Values &v) {
  Rack::Probe probe;
  probe.before = v[1].text;
  probe.behind = v[2].text;
  chassis.rack().probeInsert(u32(v[0]), probe);
}

void runProgAssign(Chassis &chassis, const Values &v) {
  if (v[1].text == allPrograms) {
    chassis.rack().progAssignAll(u32(v[0]), u8(v[2]));
  } else {
    chassis.rack().progAssign(u32(v[0]), u16(v[1]), u8(v[2]));
  }
}

template <CamFault fault>
void runCamFault(Chassis &chassis, const Values &v) {
  chassis.rack().camFault(u32(v[0]), u32(v[1]), fault, flag(v[2]));
}

template <PidFault fault>
void runPidFault(Chassis &chassis, const Values &v) {
  chassis.rack().pidFault(u32(v[0]), fault, u16(v[1]), flag(v[2]));
}

// The driver's figure is good at `good`; any other value puts the fault on the card.
template <CardFault fault, bool good>
void runCardFault(Chassis &chassis, const Values &v) {
  chassis.rack().cardFault(u32(v[0]), fault, flag(v[1]) != good);
}

// clang-format off
const std::vector<Function> table = {
    {"cardInsert", {&aSlot, &file, &bitrate}, 2, false, Need::Nothing, Effect::CardIn,
     "puts a card in, with a file in a loop, a pipe, or udp:// or rtp://", runCardInsert},
    {"probeInsert", {&aSlot, &before, &behind}, 3, false, Need::Nothing, Effect::CardIn,
     "judges a receiver elsewhere by what goes in and what comes out", runProbeInsert},
    {"cardRemove", {&aSlot}, 1, false, Need::Card, Effect::CardOut,
     "pulls a card out, and its CAMs with it",
     [](Chassis &chassis, const Values &v) { chassis.rack().cardRemove(u32(v[0])); }},
    {"camInsert", {&aSlot, &aCam, &casid}, 3, true, Need::Card, Effect::CamIn,
     "puts in a CAM of these CA systems", runCamInsert},
    {"camRemove", {&aSlot, &aCam}, 2, false, Need::Cam, Effect::CamOut,
     "pulls a CAM out",
     [](Chassis &chassis, const Values &v) { chassis.rack().camRemove(u32(v[0]), u32(v[1])); }},
    {"progAssign", {&aSlot, &programOrAll, &camMask}, 3, false, Need::Card, Effect::None,
     "gives a program, or all (*), to CAM 0 (mask 1), CAM 1 (2), both (3) or none (0)",
     runProgAssign},
    {"wait", {&seconds}, 1, false, Need::Nothing, Effect::None,
     "lets chassis time pass before the next line", nullptr},
    {"note", {&text}, 1, false, Need::Nothing, Effect::None,
     "writes a line into the timeline",
     [](Chassis &chassis, const Values &v) { chassis.tell({{}, event::Remark{{v[0].text}}}); }},
    {"camEntitle", {&aSlot, &aCam, &program, &on}, 4, false, Need::Cam, Effect::None,
     "gives (1) or takes (0) a CAM's entitlement to a program",
     [](Chassis &chassis, const Values &v) {
       chassis.rack().camEntitle(u32(v[0]), u32(v[1]), u16(v[2]), flag(v[3]));
     }},
    {"camRefuse", {&aSlot, &aCam, &program, &on}, 4, false, Need::Cam, Effect::None,
     "a CAM refuses a program for technical reasons (1) or no longer (0)",
     [](Chassis &chassis, const Values &v) {
       chassis.rack().camRefuse(u32(v[0]), u32(v[1]), u16(v[2]), flag(v[3]));
     }},
    {"camDeaf", {&aSlot, &aCam, &on}, 3, false, Need::Cam, Effect::None,
     "a CAM stops working until its next reset", runCamFault<CamFault::Deaf>},
    {"camGarbage", {&aSlot, &aCam, &on}, 3, false, Need::Cam, Effect::None,
     "a CAM answers with random bytes", runCamFault<CamFault::Garbage>},
    {"camWrongKey", {&aSlot, &aCam, &on}, 3, false, Need::Cam, Effect::None,
     "a CAM descrambles with wrong keys", runCamFault<CamFault::WrongKey>},
    {"pidDrop", {&aSlot, &pid, &on}, 3, false, Need::Card, Effect::None,
     "a PID is lost before the card", runPidFault<PidFault::Drop>},
    {"pidDamage", {&aSlot, &pid, &on}, 3, false, Need::Card, Effect::None,
     "a PID reaches the card damaged and with gaps", runPidFault<PidFault::Damage>},
    {"cardReady", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the card reports itself ready (1) or not (0)", runCardFault<CardFault::NotReady, true>},
    {"cardBusy", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the card reports itself busy (1) or not (0)", runCardFault<CardFault::Busy, false>},
    {"cardOnline", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the card reports itself online (1) or not (0)", runCardFault<CardFault::Offline, true>},
    {"ciSync", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the CI controller is in sync (1) or not (0)", runCardFault<CardFault::NoSync, true>},
    {"pllLock", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the card's clock is locked (1) or not (0)", runCardFault<CardFault::PllLost, true>},
    {"fpgaError", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "reading the descrambling state fails (1) or works (0)",
     runCardFault<CardFault::FpgaError, false>},
    {"rateLow", {&aSlot, &on}, 2, false, Need::Card, Effect::None,
     "the card measures a tenth of the true rates (1) or not (0)",
     runCardFault<CardFault::RateLow, false>},
    {"alarmMask", {&aSlot, &aCam, &on}, 3, false, Need::Card, Effect::None,
     "holds the alarms of a CAM clear (1) or not (0)",
     [](Chassis &chassis, const Values &v) {
       chassis.rack().alarmMask(u32(v[0]), u32(v[1]), flag(v[2]));
     }},
    {"alarmFail", {&on}, 1, false, Need::Nothing, Effect::None,
     "the alarm service fails (1) or works (0)",
     [](Chassis &chassis, const Values &v) { chassis.alarmFail(flag(v[0])); }},
    {"expectState", {&aSlot, &program, &state, &seconds}, 3, false, Need::Card, Effect::None,
     "a program is in this state, or has this cause, now or within a time", nullptr, stateDiffers},
    {"expectAlarm", {&aSlot, &aCam, &fault, &seconds}, 3, false, Need::Card, Effect::None,
     "this alarm stands for a CAM, now or within a time", nullptr, alarmDiffers},
    {"expectNoAlarm", {&aSlot, &aCam, &fault, &seconds}, 3, false, Need::Card, Effect::None,
     "this alarm does not stand for a CAM, now or within a time", nullptr, noAlarmDiffers},
    {"expectReset", {&aSlot, &aCam, &resets, &seconds}, 3, false, Need::Cam, Effect::None,
     "a CAM has been reset so often since it was put in, now or within a time", nullptr,
     resetDiffers},
};
// clang-format on

std::string bare(const Param &param) {
  std::string name = param.name;
  name.erase(std::remove(name.begin(), name.end(), '"'), name.end());
  return name;
}

std::string range(const Param &param) {
  return std::to_string(param.min) + " to " + std::to_string(param.max);
}

[[noreturn]] void doesNotFit(const Param &param, const std::string &given) {
  if (param.place) {
    throw InputError("there is no " + bare(param) + " " + given + "; write " + range(param));
  }
  throw InputError(bare(param) + " " + given + " does not fit; write " + range(param));
}

bool isNegative(const std::string &given) {
  return given.size() > 1 && given[0] == '-' && readWhole(given.substr(1));
}

std::string asWritten(const Word &word) {
  return word.quoted ? "\"" + word.text + "\"" : word.text;
}

Value numberValue(const Param &param, const Word &word) {
  if (!word.quoted && isNegative(word.text)) {
    doesNotFit(param, word.text);
  }
  const std::optional<std::uint64_t> number = readWhole(word.text);
  if (word.quoted || !number) {
    throw InputError(bare(param) + " must be a number, not " + asWritten(word) + "; write " +
                     range(param));
  }
  if (*number < param.min || *number > param.max) {
    doesNotFit(param, word.text);
  }
  return Value{*number, ""};
}

Value secondsValue(const Param &param, const Word &word) {
  const std::optional<double> given = readDecimal(word.text);
  if (word.quoted || !given) {
    throw InputError(bare(param) + " must be a number, not " + asWritten(word) +
                     "; write it such as 30 or 0.5");
  }
  if (*given > static_cast<double>(param.max)) {
    doesNotFit(param, word.text);
  }
  return Value{static_cast<std::uint64_t>(std::llround(*given * 1000)), ""};
}

void requireChoice(const Param &param, const std::string &given) {
  const std::vector<std::string> choices = param.choices();
  if (std::find(choices.begin(), choices.end(), given) == choices.end()) {
    throw InputError("there is no " + bare(param) + " \"" + given + "\"; write one of \"" +
                     joined(choices, "\", \"") + "\"");
  }
}

Value textValue(const Param &param, const Word &word) {
  if (!word.quoted) {
    throw InputError(bare(param) + " must be a string, not " + word.text + "; write \"" +
                     word.text + "\"");
  }
  if (word.text.size() < param.min) {
    throw InputError("the name of the " + bare(param) + " is empty; write it such as \"in.ts\"");
  }
  if (param.choices != nullptr) {
    requireChoice(param, word.text);
  }
  if (param.form == Form::Stream) {
    readUrl(word.text, Url::Use::Input);
  }
  return Value{0, word.text};
}

Value numberOrAllValue(const Param &param, const Word &word) {
  const bool all = !word.quoted && word.text == allPrograms;
  return all ? Value{0, word.text} : numberValue(param, word);
}

std::string takes(const Function &function) {
  const std::size_t most = function.params.size();
  std::string count = std::to_string(function.required);
  if (function.repeats) {
    count += " or more";
  } else if (function.required < most) {
    count += " to " + std::to_string(most);
  }
  return count + (count == "1" ? " argument" : " arguments");
}

// Where the values of a function have the one of a parameter; their number: nowhere.
std::size_t indexOf(const Function &function, const Param &wanted, const Values &values) {
  const auto found = std::find(function.params.begin(), function.params.end(), &wanted);
  return std::min(static_cast<std::size_t>(found - function.params.begin()), values.size());
}

std::vector<Function>::const_iterator locate(const std::string &name) {
  return std::find_if(table.begin(), table.end(),
                      [&name](const Function &function) { return name == function.name; });
}

}  // namespace

const std::vector<Function> &functions() {
  return table;
}

bool isWait(const Function &function) {
  return function.run == nullptr && function.differs == nullptr;
}

std::string signature(const Function &function) {
  std::string call = function.name;
  for (std::size_t i = 0; i < function.params.size(); ++i) {
    const bool optional = i >= function.required;
    const std::string separator = i == 0 ? "" : ", ";
    call += i == 0 ? " " : "";
    call += optional ? "[" + separator + function.params[i]->name + "]"
                     : separator + function.params[i]->name;
  }
  if (function.repeats) {
    call += std::string("[, ") + function.params.back()->name + "...]";
  }
  return call;
}

Place placeOf(const Function &function, const Values &values) {
  const std::vector<const Param *> &params = function.params;
  Place place;
  if (!params.empty() && params[0]->place) {
    place.slot = static_cast<int>(values[0].number);
  }
  if (params.size() > 1 && params[1]->place) {
    place.cam = static_cast<int>(values[1].number);
  }
  return place;
}

std::optional<std::uint16_t> programOf(const Function &function, const Values &values) {
  const std::size_t at =
      std::min(indexOf(function, program, values), indexOf(function, programOrAll, values));
  const bool named = at < values.size() && values[at].text != allPrograms;
  return named ? std::optional<std::uint16_t>(u16(values[at])) : std::nullopt;
}

std::vector<std::string *> streamsOf(const Function &function, Values &values) {
  std::vector<std::string *> streams;
  for (std::size_t i = 0; i < std::min(function.params.size(), values.size()); ++i) {
    if (function.params[i]->form == Form::Stream) {
      streams.push_back(&values[i].text);
    }
  }
  return streams;
}

bool givesBitrate(const Function &function, const Values &values) {
  return indexOf(function, bitrate, values) < values.size();
}

bool speaksForItself(const Function &function) {
  return !function.params.empty() && function.params[0]->form == Form::Text;
}

std::string functionHelp() {
  std::size_t width = 0;
  for (const Function &function : table) {
    width = std::max(width, signature(function).size());
  }
  std::string help;
  for (const Function &function : table) {
    const std::string call = signature(function);
    help += "  " + call + std::string(width - call.size() + 2, ' ') + function.help + "\n";
  }
  return help;
}

bool isFunction(const std::string &name) {
  return locate(name) != table.end();
}

const Function &findFunction(const std::string &name) {
  const auto found = locate(name);
  if (found == table.end()) {
    const auto nearer = [&name](const Function &a, const Function &b) {
      return editDistance(name, a.name) < editDistance(name, b.name);
    };
    const auto near = std::min_element(table.begin(), table.end(), nearer);
    throw InputError("there is no function " + name + "; did you mean " + signature(*near) + "?");
  }
  return *found;
}

Value checkArg(const Param &param, const Word &word) {
  switch (param.form) {
    case Form::Number:
      return numberValue(param, word);
    case Form::Seconds:
      return secondsValue(param, word);
    case Form::NumberOrAll:
      return numberOrAllValue(param, word);
    case Form::Text:
    case Form::Stream:
      break;
  }
  return textValue(param, word);
}

Values checkArgs(const Function &function, const std::vector<Word> &args) {
  const bool tooMany = args.size() > function.params.size() && !function.repeats;
  if (args.size() < function.required || tooMany) {
    throw InputError(std::string(function.name) + " takes " + takes(function) + ", not " +
                     std::to_string(args.size()) + "; write " + signature(function));
  }
  Values values;
  for (std::size_t i = 0; i < args.size(); ++i) {
    values.push_back(checkArg(*function.params[std::min(i, function.params.size() - 1)], args[i]));
  }
  return values;
}

}  // namespace chassis
